// detail::ListenerCore: what a NatsListener runs on: its connection, its queue
// subscription, the worker pool its deliveries run on, and its metrics. Private to
// connector/nats.
//
//   ListenerCore core(router, options);   // connects
//   core.subscribe();                     // serves
//   core.drain();                         // leaves the group, answers what it took
//
// Thread-safety: subscribe() and drain() from one thread at a time (NatsListener's lock);
// requests arrive on nats.c's delivery thread and are served on the workers.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include <nats/nats.h>

#include "connector/host/Router.hpp"
#include "connector/nats/NatsListenerOptions.hpp"
#include "connector/nats/detail/Connection.hpp"
#include "connector/transport/DeliveryAnswer.hpp"
#include "connector/transport/MetricsRegistry.hpp"
#include "connector/transport/detail/WorkerPool.hpp"

namespace connector::nats::detail {

// connector_nats_requests_total by status, the usual statuses' counters made up front.
class AnswerCounters {
 public:
  explicit AnswerCounters(transport::MetricsRegistry& registry);
  void count(int status);

 private:
  static constexpr std::array<int, 5> kKnown = {200, 400, 404, 500, 503};
  transport::MetricsRegistry& registry;
  std::array<transport::MetricsRegistry::Counter, kKnown.size()> known;
  std::mutex mutex;  // guards others
  std::unordered_map<int, transport::MetricsRegistry::Counter> others;
};

class ListenerCore : public ConnectionEvents {
 public:
  ListenerCore(std::shared_ptr<Router> router, const NatsListenerOptions& options);
  ~ListenerCore() override;
  ListenerCore(const ListenerCore&) = delete;
  ListenerCore& operator=(const ListenerCore&) = delete;

  // Joins the queue group; returns once the server has the subscription. Throws
  // std::runtime_error "NatsListener cannot subscribe to <subject>: <cause>".
  void subscribe();
  // Leaves the group, answers what was received, flushes and closes (see
  // NatsListener::stop). Never throws.
  void drain() noexcept;

  std::string subject() const { return options.subjectPrefix + ".>"; }
  std::uint64_t served() const noexcept { return answered.load(std::memory_order_relaxed); }

  const std::shared_ptr<transport::MetricsRegistry> registry;

 private:
  // nats.c's handler of the queue subscription: hands the request to a worker.
  static void onRequest(natsConnection* connection, natsSubscription* subscription,
                        natsMsg* message, void* core);
  // Runs on a worker: delivers, answers, counts.
  void serve(natsMsg* request);
  // Replaces an answer too large for the server by a 500 that says so.
  void fitAnswer(transport::DeliveryAnswer& answer) const;
  // Publishes the answer to `reply`, with its status header when it is a failure.
  void publish(const char* reply, const transport::DeliveryAnswer& answer);
  // Waits (at most until `deadline`) until no request is being served.
  bool waitIdle(std::chrono::steady_clock::time_point deadline);

  const std::shared_ptr<Router> router;
  const NatsListenerOptions options;
  AnswerCounters counters;
  std::atomic<std::uint64_t> answered{0};

  std::mutex slotsMutex;
  std::condition_variable slotFreed;
  int busy = 0;          // guarded by slotsMutex: requests handed to workers, not done
  bool giveUp = false;   // guarded by slotsMutex: drain is past its deadline

  std::unique_ptr<transport::detail::WorkerPool> workers;
  std::unique_ptr<Connection> connection;
  natsSubscription* subscription = nullptr;
};

}  // namespace connector::nats::detail

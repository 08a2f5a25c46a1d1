// detail::ListenerCore: what a NatsListener runs on: its connection, its queue
// subscription and the worker threads that take requests from it, deliver them and
// publish the answers. Private to connector/nats.
//
//   ListenerCore core(router, options);   // connects
//   core.subscribe();                     // serves
//   core.drain();                         // leaves the group, answers what it took
//
// Workers pull: the subscription is nats.c's synchronous kind, and each worker waits in
// natsSubscription_NextMsg for the next request, so a request reaches the thread that
// serves it straight from nats.c's reader thread (no hand-over between threads), and a
// busy worker takes nothing: requests wait in nats.c's queue of the subscription, bounded
// by the pending limits.
//
// Lifetime: what the workers use lives in a shared State; a worker still in a delivery
// when drain() gives up keeps it (and the closed connection) alive until it returns.
//
// Thread-safety: subscribe() and drain() from one thread at a time (NatsListener's lock).
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <nats/nats.h>

#include "connector/host/Router.hpp"
#include "connector/nats/NatsListenerOptions.hpp"
#include "connector/nats/detail/Connection.hpp"
#include "connector/transport/DeliveryAnswer.hpp"
#include "connector/transport/MetricsRegistry.hpp"

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

class ListenerCore {
 public:
  ListenerCore(std::shared_ptr<Router> router, const NatsListenerOptions& options);
  ~ListenerCore();
  ListenerCore(const ListenerCore&) = delete;
  ListenerCore& operator=(const ListenerCore&) = delete;

  // Joins the queue group and starts the workers; returns once the server has the
  // subscription. Throws std::runtime_error "NatsListener cannot subscribe to <subject>:
  // <cause>".
  void subscribe();
  // Leaves the group, answers what was received, flushes and closes (see
  // NatsListener::stop). Never throws.
  void drain() noexcept;

  std::string subject() const;
  std::string connectedUrl() const;
  std::uint64_t served() const noexcept;
  std::shared_ptr<transport::MetricsRegistry> registry() const;

 private:
  struct State;
  // A worker: takes requests and serves them until the subscription ends.
  static void work(const std::shared_ptr<State>& state);
  // Delivers one request, counts and publishes its answer.
  static void serve(State& state, natsMsg* request);
  // Replaces an answer too large for the server by a 500 that says so.
  static void fitAnswer(State& state, transport::DeliveryAnswer& answer);
  // Publishes the answer to `reply`, with its status header when it is a failure.
  static void publish(State& state, const char* reply, const transport::DeliveryAnswer& answer);

  std::shared_ptr<State> state;
  std::vector<std::thread> workers;
};

}  // namespace connector::nats::detail

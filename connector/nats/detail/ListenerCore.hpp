// detail::ListenerCore: what a NatsListener runs on: its connection, its queue
// subscription, the queue of requests received, the worker threads that take requests
// from it, deliver them and publish the answers, and the subscription that answers the
// NATS services protocol's discovery requests. Private to connector/nats.
//
//   ListenerCore core(router, options);   // connects
//   core.subscribe();                     // serves
//   core.drain();                         // leaves the group, answers what it took
//
// Receiving: nats.c's delivery thread of the queue subscription notes when each request
// arrived and puts it in the queue (bounded by the pending limits: past them a request
// is dropped, and its requester times out); an idle worker takes it at once. A request
// whose requester's time (Connector-Timeout-Ms, counted from its arrival) is up when a
// worker takes it is skipped: not delivered, not answered, counted as expired.
//
// Discovery: one plain subscription to "$SRV.>" (outside the queue group: every listener
// answers) answers PING, INFO and STATS for this service on nats.c's delivery thread.
//
// Lifetime: what the workers and the callbacks use lives in a shared State; a worker
// still in a delivery when drain() gives up keeps it (and the closed connection) alive
// until it returns.
//
// Thread-safety: subscribe() and drain() from one thread at a time (NatsListener's lock).
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <nats/nats.h>

#include "connector/host/Router.hpp"
#include "connector/nats/NatsListenerOptions.hpp"
#include "connector/nats/detail/Connection.hpp"
#include "connector/nats/detail/EndpointStats.hpp"
#include "connector/nats/detail/ServiceDiscovery.hpp"
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

  // Joins the queue group, answers discovery and starts the workers; returns once the
  // server has the subscriptions. Throws std::runtime_error "NatsListener cannot
  // subscribe to <subject>: <cause>".
  void subscribe();
  // Leaves the group, answers what was received, flushes and closes (see
  // NatsListener::stop). Never throws.
  void drain() noexcept;

  std::string subject() const;
  std::string connectedUrl() const;
  std::uint64_t served() const noexcept;
  std::uint64_t expired() const noexcept;
  const ServiceIdentity& identity() const noexcept;
  std::shared_ptr<transport::MetricsRegistry> registry() const;

 private:
  struct State;
  // A request received, and when.
  struct Received {
    MsgPtr message;
    std::chrono::steady_clock::time_point at;
  };
  // nats.c's handlers: a request of the queue subscription, a discovery request, and
  // the end of a subscription (its last callback returned).
  static void onRequest(natsConnection* connection, natsSubscription* subscription,
                        natsMsg* message, void* closure);
  static void onDiscovery(natsConnection* connection, natsSubscription* subscription,
                          natsMsg* message, void* closure);
  static void onRequestsDone(void* closure);
  static void onDiscoveryDone(void* closure);
  // Unsubscribes both subscriptions, waits (5 s at most) for their last callbacks and
  // destroys them; when a callback is still owed, the state is kept alive for it.
  static void dropSubscriptions(const std::shared_ptr<State>& state) noexcept;
  // A worker: takes requests and serves them until the queue ends.
  static void work(const std::shared_ptr<State>& state);
  // Delivers one request (or skips it, expired), counts and publishes its answer.
  static void serve(State& state, Received& received);
  // The endpoints to show: one per bound address, with its figures.
  static std::vector<EndpointView> endpoints(const State& state);
  // Replaces an answer too large for the server by a 500 that says so.
  static void fitAnswer(State& state, transport::DeliveryAnswer& answer, std::string& errorText);
  // Publishes the answer to `reply`, with the error headers when it is a failure.
  static void publish(State& state, const char* reply, const transport::DeliveryAnswer& answer,
                      const std::string& errorText);

  std::shared_ptr<State> state;
  std::vector<std::thread> workers;
};

}  // namespace connector::nats::detail

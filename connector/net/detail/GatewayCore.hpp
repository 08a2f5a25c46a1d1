// detail::GatewayCore: everything an HttpGateway's listener and sessions share: the
// router, the options, the event loops and their threads, the delivery scheduler, the
// in-flight budget, the metrics, and the live sessions (for draining). Private to
// connector/net.
//
//   auto core = std::make_shared<GatewayCore>(router, nullptr, options);
//   std::uint16_t port = core->listen();   // binds; throws when it cannot
//   core->start();                         // threads, accepting
//   core->stop();                          // drain, then close what remains
//
// Thread-safety: listen, start and stop from one thread at a time (HttpGateway's lock);
// the rest (read by sessions on the loop threads and by spare threads) is constant after
// construction, atomic, or guarded by its own lock.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>

#include "connector/host/DataBuffer.hpp"
#include "connector/host/Router.hpp"
#include "connector/net/HttpGatewayOptions.hpp"
#include "connector/net/detail/ApiDocs.hpp"
#include "connector/net/detail/BearerTokens.hpp"
#include "connector/net/detail/DeliveryScheduler.hpp"
#include "connector/net/detail/EventLoops.hpp"
#include "connector/net/detail/InFlightBudget.hpp"
#include "connector/net/detail/Socket.hpp"
#include "connector/transport/DeliveryAnswer.hpp"
#include "connector/transport/MetricsRegistry.hpp"

namespace connector::net::detail {

class GatewayListener;

// What a session does for the gateway's drain and stop; posted to its own loop.
class SessionBase : public DeliveryClient {
 public:
  // Closes the connection now when it waits for a request; otherwise answers what it
  // has read, the last answer with Connection: close, and then closes.
  virtual void drain() = 0;
  // Closes the connection and cancels every timer.
  virtual void forceClose() = 0;
};

// Why a connection or request was refused or cut (label "reason" of the rejected counter).
enum class Rejection {
  Connections,
  HeaderSize,
  BodySize,
  Busy,
  HeaderTimeout,
  BodyTimeout,
  DeliveryTimeout,
  Tls,
  Auth,
  ContentType
};

// The handles of the gateway's metrics.
class GatewayMetrics {
 public:
  explicit GatewayMetrics(transport::MetricsRegistry& registry);

  // A request answered with `status`, `seconds` after its header arrived (negative: no
  // complete header, not timed).
  void answered(int status, double seconds);
  void rejected(Rejection why) { rejections[static_cast<std::size_t>(why)].increment(); }

  transport::MetricsRegistry::Gauge connectionsOpen;
  transport::MetricsRegistry::Gauge requestsInFlight;

 private:
  transport::MetricsRegistry& registry;
  std::array<transport::MetricsRegistry::Counter, 10> known;  // by the statuses answered
  std::mutex mutex;                                           // guards byStatus, the other statuses
  std::unordered_map<int, transport::MetricsRegistry::Counter> byStatus;
  transport::MetricsRegistry::Histogram duration;
  std::array<transport::MetricsRegistry::Counter, 10> rejections;
};

using transport::DeliveryAnswer;

class GatewayCore : public std::enable_shared_from_this<GatewayCore> {
 public:
  // Serves `router`, or, when it is null, forwards every delivery to `forward`. Loads
  // the TLS files and the tokens file the options name; throws as HttpGateway's
  // constructor does for them.
  GatewayCore(std::shared_ptr<Router> router, std::shared_ptr<Context> forward,
              const HttpGatewayOptions& options);
  ~GatewayCore();
  GatewayCore(const GatewayCore&) = delete;
  GatewayCore& operator=(const GatewayCore&) = delete;

  // Binds and listens; returns the port. Throws std::runtime_error "HttpGateway cannot
  // listen on HOST:PORT: <cause>".
  std::uint16_t listen();
  // Starts the threads and the accept loop.
  void start();
  // Drains (see HttpGateway::stop) and joins the threads. Never throws.
  void stop() noexcept;
  // Closes the listening socket of a gateway that never started. Never throws.
  void closeUnstarted() noexcept;

  // A new connection from the accept loop, its socket on `loop`: a session (over TLS
  // when serving HTTPS), or a 503 when over the limit. On the listener's loop thread;
  // the session starts on its own loop.
  void accepted(Socket socket, boost::asio::io_context& loop);

  // Sessions register while they live, so that a drain reaches them.
  void add(const std::shared_ptr<SessionBase>& session);
  void remove(SessionBase* session) noexcept;

  // {"addresses":[...]} of the router's bound addresses (none when forwarding).
  std::string addressesJson() const;
  std::string metricsText() const { return registry->exposition(); }

  const HttpGatewayOptions options;
  // The TLS context when serving HTTPS, else null.
  const std::unique_ptr<boost::asio::ssl::context> tls;
  // The accepted bearer tokens when options.authTokensFile is set, else null.
  const std::unique_ptr<BearerTokens> tokens;
  // The OpenAPI document and the interactive docs (GET /openapi.json, /docs).
  const ApiDocs docs;
  const std::shared_ptr<transport::MetricsRegistry> registry;
  GatewayMetrics metrics;
  InFlightBudget budget;
  std::atomic<bool> draining{false};
  std::atomic<std::uint64_t> served{0};
  std::atomic<std::size_t> connections{0};  // sessions counted against maxConnections
  std::atomic<std::uint64_t> nextWaitId{1};

  // Runs the POST deliveries (on loop threads, or spare threads when they block).
  DeliveryScheduler deliveries;

  // Posts a handler to a session's executor from another thread (a spare, a budget
  // grant); dropped once stop() has stopped the loops, so that nothing queued there
  // keeps a session alive afterwards.
  template <class Executor, class Handler>
  void postBack(const Executor& executor, Handler&& handler) {
    std::lock_guard<std::mutex> lock(postMutex);
    if (!ioStopped) boost::asio::post(executor, std::forward<Handler>(handler));
  }

 private:
  // Makes the session of an accepted socket, on the socket's loop thread.
  void startSession(Socket socket, boost::asio::io_context& loop);
  // Waits until no session is left or `deadline` passes; true when none is left.
  bool waitForSessions(std::chrono::steady_clock::time_point deadline);
  // Posts drain() or forceClose() to every live session.
  void forEachSession(void (SessionBase::*operation)());

  const std::shared_ptr<Router> router;
  const std::shared_ptr<Context> forward;

  std::mutex sessionsMutex;
  std::condition_variable sessionsGone;
  std::unordered_map<SessionBase*, std::weak_ptr<SessionBase>> sessions;  // guarded

  std::mutex postMutex;
  bool ioStopped = false;  // guarded by postMutex

  // Last: destroying the loops destroys the handlers still queued, and the sessions
  // they hold, which use the members above.
  EventLoops loops;
  std::shared_ptr<GatewayListener> listener;
};

}  // namespace connector::net::detail

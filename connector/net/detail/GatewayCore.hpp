// detail::GatewayCore: everything an HttpGateway's listener and sessions share: the
// router, the options, the I/O context and its threads, the worker pool, the in-flight
// budget, the metrics, and the live sessions (for draining). Private to connector/net.
//
//   auto core = std::make_shared<GatewayCore>(router, options);
//   std::uint16_t port = core->listen();   // binds; throws when it cannot
//   core->start();                         // I/O threads, workers, accepting
//   core->stop();                          // drain, then close what remains
//
// Thread-safety: listen, start and stop from one thread at a time (HttpGateway's lock);
// the rest (read by sessions on the I/O threads and by workers) is constant after
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
#include <thread>
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
#include "connector/net/detail/BearerTokens.hpp"
#include "connector/net/detail/InFlightBudget.hpp"
#include "connector/net/detail/WorkerPool.hpp"
#include "connector/transport/DeliveryAnswer.hpp"
#include "connector/transport/MetricsRegistry.hpp"

namespace connector::net::detail {

class GatewayListener;

// What a session does for the gateway's drain and stop; posted to its own strand.
class SessionBase {
 public:
  virtual ~SessionBase() = default;
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
  Auth
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
  std::array<transport::MetricsRegistry::Counter, 9> rejections;
};

// A delivery's answer, made on a worker thread.
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

  // A new connection from the accept loop: a session (over TLS when serving HTTPS), or a
  // 503 when over the limit.
  void accepted(boost::asio::ip::tcp::socket socket);

  // Sessions register while they live, so that a drain reaches them.
  void add(const std::shared_ptr<SessionBase>& session);
  void remove(SessionBase* session) noexcept;

  // Delivers a POST body to the router (or the forward context) and makes its answer
  // (200, or an error body). `deadline` is when the session answers 504 instead: a link
  // the delivery goes through tells the next hop what is left of it.
  // Runs on a worker thread and blocks while the service works. Never throws.
  DeliveryAnswer deliver(const std::string& contentType, common::DataBuffer body,
                         const std::string& address,
                         std::chrono::steady_clock::time_point deadline) const;
  // {"addresses":[...]} of the router's bound addresses (none when forwarding).
  std::string addressesJson() const;
  std::string metricsText() const { return registry->exposition(); }

  const HttpGatewayOptions options;
  // The TLS context when serving HTTPS, else null.
  const std::unique_ptr<boost::asio::ssl::context> tls;
  // The accepted bearer tokens when options.authTokensFile is set, else null.
  const std::unique_ptr<BearerTokens> tokens;
  const std::shared_ptr<transport::MetricsRegistry> registry;
  GatewayMetrics metrics;
  InFlightBudget budget;
  std::atomic<bool> draining{false};
  std::atomic<std::uint64_t> served{0};
  std::atomic<std::size_t> connections{0};  // sessions counted against maxConnections
  std::atomic<std::uint64_t> nextWaitId{1};

  WorkerPool& workers() { return *workerPool; }

  // Posts a handler to a session's executor from another thread (a worker, a budget
  // grant); dropped once stop() has stopped the I/O, so that nothing queued there
  // keeps a session alive afterwards.
  template <class Executor, class Handler>
  void postBack(const Executor& executor, Handler&& handler) {
    std::lock_guard<std::mutex> lock(postMutex);
    if (!ioStopped) boost::asio::post(executor, std::forward<Handler>(handler));
  }

 private:
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

  std::unique_ptr<WorkerPool> workerPool;
  // Last but the threads: destroying it destroys the handlers still queued, and the
  // sessions they hold, which use the members above.
  boost::asio::io_context io;
  std::shared_ptr<GatewayListener> listener;
  std::vector<std::thread> ioThreads;
};

}  // namespace connector::net::detail

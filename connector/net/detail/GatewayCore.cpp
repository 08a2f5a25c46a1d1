#include "connector/net/detail/GatewayCore.hpp"

#include <sstream>
#include <stdexcept>
#include <utility>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <boost/asio/ip/address.hpp>

#include "connector/net/detail/GatewayListener.hpp"
#include "connector/net/detail/GatewaySession.hpp"
#include "connector/net/detail/TlsServerContext.hpp"
#include "connector/transport/DeliveryAnswer.hpp"
#include "connector/transport/MetricNames.hpp"

namespace connector::net::detail {

namespace asio = boost::asio;
namespace metric = transport::metric;

namespace {

// Statuses whose counters are made up front; others are made when first answered.
const std::array<int, 10> kKnownStatuses = {200, 400, 401, 404, 405, 413, 431, 500, 503, 504};

const char* const kReasons[] = {metric::reason::kConnections,
                                metric::reason::kHeaderSize,
                                metric::reason::kBodySize,
                                metric::reason::kBusy,
                                metric::reason::kHeaderTimeout,
                                metric::reason::kBodyTimeout,
                                metric::reason::kDeliveryTimeout,
                                metric::reason::kTls,
                                metric::reason::kAuth,
                                metric::reason::kContentType};

// Seconds: from well under a millisecond (a cached answer) to the 30 s delivery time-out.
const std::vector<double> kDurationBuckets = {0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1,
                                              0.25,   0.5,   1,      2.5,   5,    10,    30};

// Serves a counted connection; answers 503 on one over the limit.
template <class Session>
void serve(const std::shared_ptr<Session>& session, bool counted) {
  if (counted) {
    session->start();
  } else {
    session->refuse();
  }
}

}  // namespace

GatewayMetrics::GatewayMetrics(transport::MetricsRegistry& registry)
    : connectionsOpen(
          registry.gauge(metric::kGatewayConnectionsOpen, metric::kGatewayConnectionsOpenHelp)),
      requestsInFlight(
          registry.gauge(metric::kGatewayRequestsInFlight, metric::kGatewayRequestsInFlightHelp)),
      registry(registry),
      duration(registry.histogram(metric::kGatewayRequestDuration,
                                  metric::kGatewayRequestDurationHelp, kDurationBuckets)) {
  for (std::size_t i = 0; i < known.size(); ++i) {
    known[i] = registry.counter(metric::kGatewayRequests, metric::kGatewayRequestsHelp,
                                {{metric::kStatusLabel, std::to_string(kKnownStatuses[i])}});
  }
  for (std::size_t i = 0; i < rejections.size(); ++i) {
    rejections[i] = registry.counter(metric::kGatewayRejected, metric::kGatewayRejectedHelp,
                                     {{metric::kReasonLabel, kReasons[i]}});
  }
}

void GatewayMetrics::answered(int status, double seconds) {
  if (seconds >= 0) duration.observe(seconds);
  // The statuses the gateway answers with have their counters ready, read without a lock.
  for (std::size_t i = 0; i < known.size(); ++i) {
    if (kKnownStatuses[i] == status) {
      known[i].increment();
      return;
    }
  }
  transport::MetricsRegistry::Counter counter;
  {
    std::lock_guard<std::mutex> lock(mutex);
    auto found = byStatus.find(status);
    if (found == byStatus.end()) {
      found = byStatus
                  .emplace(status,
                           registry.counter(metric::kGatewayRequests, metric::kGatewayRequestsHelp,
                                            {{metric::kStatusLabel, std::to_string(status)}}))
                  .first;
    }
    counter = found->second;
  }
  counter.increment();
}

GatewayCore::GatewayCore(std::shared_ptr<Router> router, std::shared_ptr<Context> forward,
                         const HttpGatewayOptions& options)
    : options(options),
      tls(options.tlsCertificateFile.empty()
              ? nullptr
              : makeTlsServerContext(options.tlsCertificateFile, options.tlsKeyFile)),
      tokens(options.authTokensFile.empty()
                 ? nullptr
                 : std::make_unique<BearerTokens>(options.authTokensFile)),
      docs(options.api, !options.authTokensFile.empty(), options.swaggerUiFolder),
      registry(options.metrics ? options.metrics : std::make_shared<transport::MetricsRegistry>()),
      metrics(*registry),
      budget(options.maxInFlightBytes),
      // The pointers stay those of the members they are moved into below.
      deliveries(router.get(), forward.get(), budget, options.threads),
      router(std::move(router)),
      forward(std::move(forward)),
      loops(options.ioThreads, options.threads,
            [this](std::uint32_t lane) { deliveries.stuck(lane); }) {
  deliveries.attach(loops);
}

GatewayCore::~GatewayCore() = default;

std::uint16_t GatewayCore::listen() {
  listener = std::make_shared<GatewayListener>(loops, *this);
  try {
    const asio::ip::address address = asio::ip::make_address(options.bindAddress);
    listener->open(asio::ip::tcp::endpoint(address, options.port));
    return listener->port();
  } catch (const boost::system::system_error& error) {
    throw std::runtime_error("HttpGateway cannot listen on " + options.bindAddress + ":" +
                             std::to_string(options.port) + ": " + error.code().message());
  }
}

void GatewayCore::start() {
  listener->run();
  loops.start();
}

void GatewayCore::closeUnstarted() noexcept {
  if (listener) listener->closeNow();
}

void GatewayCore::stop() noexcept {
  const auto deadline = std::chrono::steady_clock::now() + options.drainTimeout;
  draining.store(true);
  listener->close();
  forEachSession(&SessionBase::drain);
  if (!waitForSessions(deadline)) {
    forEachSession(&SessionBase::forceClose);
  }
  // Closed connections end on the loop threads.
  waitForSessions(std::chrono::steady_clock::now() + std::chrono::milliseconds(250));
  loops.stopLoops();
  {
    std::lock_guard<std::mutex> lock(postMutex);
    ioStopped = true;  // a delivery that ends now has nobody to answer
  }
  deliveries.clear();
  // Deliveries still running now are what remains: their threads are left to finish.
  loops.stop(std::chrono::milliseconds(100));
  // Completes what the closed sockets and timers left queued, so that no handler keeps
  // a session (and through it this core) alive.
  loops.runLeftovers();
}

void GatewayCore::accepted(Socket socket, asio::io_context& loop) {
  if (&loop != &loops.loop(0)) {
    // The listener runs on the first loop; the session starts on its own.
    asio::post(loop, [self = shared_from_this(), socket = std::move(socket), &loop]() mutable {
      self->startSession(std::move(socket), loop);
    });
    return;
  }
  startSession(std::move(socket), loop);
}

void GatewayCore::startSession(Socket socket, asio::io_context& loop) {
  boost::system::error_code ignored;
  // An answer leaves as header then body: neither may wait for a delayed acknowledgement.
  socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  const bool counted = connections.fetch_add(1, std::memory_order_relaxed) < options.maxConnections;
  if (!counted) {
    connections.fetch_sub(1, std::memory_order_relaxed);
    metrics.rejected(Rejection::Connections);
  }
  if (tls) {
    serve(std::make_shared<GatewaySession<TlsStream>>(TlsStream(std::move(socket), *tls),
                                                      shared_from_this(), counted, loop),
          counted);
  } else {
    serve(std::make_shared<GatewaySession<PlainStream>>(std::move(socket), shared_from_this(),
                                                        counted, loop),
          counted);
  }
}

void GatewayCore::add(const std::shared_ptr<SessionBase>& session) {
  std::lock_guard<std::mutex> lock(sessionsMutex);
  sessions.emplace(session.get(), session);
}

void GatewayCore::remove(SessionBase* session) noexcept {
  std::lock_guard<std::mutex> lock(sessionsMutex);
  sessions.erase(session);
  if (sessions.empty()) sessionsGone.notify_all();
}

bool GatewayCore::waitForSessions(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock<std::mutex> lock(sessionsMutex);
  return sessionsGone.wait_until(lock, deadline, [this] { return sessions.empty(); });
}

void GatewayCore::forEachSession(void (SessionBase::*operation)()) {
  std::vector<std::shared_ptr<SessionBase>> live;
  {
    std::lock_guard<std::mutex> lock(sessionsMutex);
    live.reserve(sessions.size());
    for (auto& entry : sessions) {
      if (auto session = entry.second.lock()) live.push_back(std::move(session));
    }
  }
  for (auto& session : live) ((*session).*operation)();
}

std::string GatewayCore::addressesJson() const {
  Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
  if (router) {
    for (const Address& address : router->addresses()) list->add(address.str());
  }
  Poco::JSON::Object body;
  body.set("addresses", list);
  std::ostringstream out;
  body.stringify(out, 0, -1);
  return out.str();
}

}  // namespace connector::net::detail

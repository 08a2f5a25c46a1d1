#include "connector/net/HttpGateway.hpp"

#include <stdexcept>
#include <utility>

#include "connector/net/detail/BearerTokens.hpp"
#include "connector/net/detail/GatewayCore.hpp"

namespace connector::net {

namespace {

void checkOptions(const HttpGatewayOptions& options) {
  if (options.threads < 1) throw std::invalid_argument("HttpGateway needs at least one thread");
  if (options.ioThreads < 1) {
    throw std::invalid_argument("HttpGateway needs at least one I/O thread");
  }
  if (options.maxConnections < 1 || options.maxBodyBytes < 1 || options.maxInFlightBytes < 1) {
    throw std::invalid_argument("HttpGateway limits must be at least 1");
  }
  const std::chrono::milliseconds zero{0};
  if (options.headerTimeout <= zero || options.bodyTimeout <= zero ||
      options.keepAliveTimeout <= zero || options.deliveryTimeout <= zero ||
      options.drainTimeout <= zero) {
    throw std::invalid_argument("HttpGateway time-outs must be positive");
  }
  if (options.tlsCertificateFile.empty() != options.tlsKeyFile.empty()) {
    throw std::invalid_argument("HttpGateway needs both tlsCertificateFile and tlsKeyFile");
  }
}

std::shared_ptr<Router> required(std::shared_ptr<Router> router) {
  if (!router) throw std::invalid_argument("HttpGateway needs a router");
  return router;
}

}  // namespace

HttpGateway::HttpGateway(std::shared_ptr<Router> router, HttpGatewayOptions options)
    : HttpGateway(required(std::move(router)), nullptr, std::move(options)) {}

HttpGateway::HttpGateway(std::shared_ptr<Router> router, std::shared_ptr<Context> target,
                         HttpGatewayOptions options)
    : gatewayOptions(std::move(options)) {
  checkOptions(gatewayOptions);
  core =
      std::make_shared<detail::GatewayCore>(std::move(router), std::move(target), gatewayOptions);
  boundPort = core->listen();
}

std::unique_ptr<HttpGateway> HttpGateway::forwarding(std::shared_ptr<Context> target,
                                                     HttpGatewayOptions options) {
  if (!target) throw std::invalid_argument("HttpGateway needs a context to forward to");
  return std::unique_ptr<HttpGateway>(
      new HttpGateway(nullptr, std::move(target), std::move(options)));
}

HttpGateway::~HttpGateway() { stop(); }

void HttpGateway::start() {
  std::lock_guard<std::mutex> lock(lifecycleMutex);
  if (phase == Phase::Stopped) {
    throw std::logic_error("HttpGateway cannot be started again after stop()");
  }
  if (phase == Phase::Serving) return;
  core->start();
  phase = Phase::Serving;
}

void HttpGateway::stop() {
  std::lock_guard<std::mutex> lock(lifecycleMutex);
  if (phase == Phase::Ready) {
    // Never served: release the listening socket so the port is free again.
    core->closeUnstarted();
    phase = Phase::Stopped;
    return;
  }
  if (phase == Phase::Stopped) return;
  phase = Phase::Stopped;
  core->stop();
}

std::string HttpGateway::url() const {
  const bool ipv6 = gatewayOptions.bindAddress.find(':') != std::string::npos;
  const char* scheme = gatewayOptions.tlsCertificateFile.empty() ? "http://" : "https://";
  return scheme + (ipv6 ? "[" + gatewayOptions.bindAddress + "]" : gatewayOptions.bindAddress) +
         ":" + std::to_string(boundPort);
}

std::size_t HttpGateway::reloadTokens() {
  if (!core->tokens) throw std::logic_error("HttpGateway has no tokens file");
  return core->tokens->reload();
}

std::uint64_t HttpGateway::requestsServed() const noexcept {
  return core->served.load(std::memory_order_relaxed);
}

std::shared_ptr<transport::MetricsRegistry> HttpGateway::metrics() const { return core->registry; }

}  // namespace connector::net

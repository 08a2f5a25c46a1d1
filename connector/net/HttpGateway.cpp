#include "connector/net/HttpGateway.hpp"

#include <stdexcept>
#include <utility>

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/ThreadPool.h>
#include <Poco/Timespan.h>

#include "connector/net/detail/GatewayRequestHandler.hpp"

namespace connector::net {

HttpGateway::HttpGateway(std::shared_ptr<Router> router, HttpGatewayOptions options)
    : gatewayOptions(std::move(options)) {
  if (!router) throw std::invalid_argument("HttpGateway needs a router");
  if (gatewayOptions.threads < 1) {
    throw std::invalid_argument("HttpGateway needs at least one thread");
  }
  if (gatewayOptions.queueLength < 1) {
    throw std::invalid_argument("HttpGateway needs a queue length of at least one");
  }

  listener = std::make_unique<Poco::Net::ServerSocket>();
  Poco::Net::ServerSocket& socket = *listener;
  try {
    // Address reuse lets a restarted gateway take its port back at once; port reuse stays
    // off so that two gateways can never share one port unnoticed.
    socket.bind(Poco::Net::SocketAddress(gatewayOptions.bindAddress, gatewayOptions.port), true,
                false);
    socket.listen(gatewayOptions.queueLength);
    // Accepted connections inherit it: a response leaves as headers then body, which must
    // not wait for the client's delayed acknowledgement.
    socket.setNoDelay(true);
    boundPort = socket.address().port();
  } catch (const Poco::Exception& error) {
    throw std::runtime_error("HttpGateway cannot listen on " + gatewayOptions.bindAddress + ":" +
                             std::to_string(gatewayOptions.port) + ": " + error.displayText());
  }

  state = std::make_shared<detail::GatewayState>(std::move(router), gatewayOptions.maxBodyBytes);
  pool = std::make_unique<Poco::ThreadPool>(1, gatewayOptions.threads);

  Poco::Net::HTTPServerParams::Ptr params = new Poco::Net::HTTPServerParams;
  params->setMaxThreads(gatewayOptions.threads);
  params->setMaxQueued(gatewayOptions.queueLength);
  params->setKeepAlive(true);
  params->setKeepAliveTimeout(Poco::Timespan(
      static_cast<Poco::Timespan::TimeDiff>(gatewayOptions.keepAliveTimeout.count()) * 1000));
  params->setMaxKeepAliveRequests(0);  // unlimited
  params->setServerName("connector-gateway");
  server = std::make_unique<Poco::Net::HTTPServer>(new detail::GatewayRequestHandlerFactory(state),
                                                   *pool, socket, params);
}

HttpGateway::~HttpGateway() {
  stop();
  // The server must go before the pool its connections ran on.
  server.reset();
  pool.reset();
  listener.reset();
}

void HttpGateway::start() {
  std::lock_guard<std::mutex> lock(lifecycleMutex);
  if (phase == Phase::Stopped) {
    throw std::logic_error("HttpGateway cannot be started again after stop()");
  }
  if (phase == Phase::Serving) return;
  server->start();
  phase = Phase::Serving;
}

void HttpGateway::stop() {
  std::lock_guard<std::mutex> lock(lifecycleMutex);
  if (phase != Phase::Serving) {
    if (phase == Phase::Ready) {
      // Never served: release the listening socket so the port is free again.
      try {
        listener->close();
      } catch (...) {
      }
      phase = Phase::Stopped;
    }
    return;
  }
  phase = Phase::Stopped;
  try {
    // Stops accepting, then waits for each connection's request in flight and shuts the
    // connection down; joinAll waits for the workers to leave.
    server->stopAll(false);
    // The server stops accepting but keeps its socket open until destroyed; close it so
    // that new connections are refused at once instead of waiting in the backlog.
    listener->close();
    pool->joinAll();
  } catch (...) {
    // Stopping must not fail; the destructor relies on it.
  }
}

std::string HttpGateway::url() const {
  const bool ipv6 = gatewayOptions.bindAddress.find(':') != std::string::npos;
  return "http://" + (ipv6 ? "[" + gatewayOptions.bindAddress + "]" : gatewayOptions.bindAddress) +
         ":" + std::to_string(boundPort);
}

std::uint64_t HttpGateway::requestsServed() const noexcept {
  return state->served.load(std::memory_order_relaxed);
}

}  // namespace connector::net

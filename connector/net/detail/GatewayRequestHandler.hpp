// detail::GatewayState and the request handling of HttpGateway. Private to connector/net.
//
// One handler object per request (Poco's HTTPServer asks the factory for each); all of
// them share the GatewayState.
//
// Thread-safety: handlers run on the gateway's worker threads at once; the state holds
// only the router (thread-safe), constants and an atomic counter.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>

#include "connector/host/Router.hpp"

namespace connector::net::detail {

struct GatewayState {
  GatewayState(std::shared_ptr<Router> router, std::size_t maxBodyBytes)
      : router(std::move(router)), maxBodyBytes(maxBodyBytes) {}

  const std::shared_ptr<Router> router;
  const std::size_t maxBodyBytes;
  std::atomic<std::uint64_t> served{0};
};

class GatewayRequestHandler : public Poco::Net::HTTPRequestHandler {
 public:
  explicit GatewayRequestHandler(std::shared_ptr<GatewayState> state) : state(std::move(state)) {}
  void handleRequest(Poco::Net::HTTPServerRequest& request,
                     Poco::Net::HTTPServerResponse& response) override;

 private:
  std::shared_ptr<GatewayState> state;
};

class GatewayRequestHandlerFactory : public Poco::Net::HTTPRequestHandlerFactory {
 public:
  explicit GatewayRequestHandlerFactory(std::shared_ptr<GatewayState> state)
      : state(std::move(state)) {}
  Poco::Net::HTTPRequestHandler* createRequestHandler(
      const Poco::Net::HTTPServerRequest& request) override;

 private:
  std::shared_ptr<GatewayState> state;
};

}  // namespace connector::net::detail

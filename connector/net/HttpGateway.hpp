// connector::net::HttpGateway: an HTTP server that lets any HTTP client reach the
// services bound on a router. POST /<address> with a body becomes an OpaqueMessage
// (the request's Content-Type, the body bytes) delivered to the router at <address>,
// normally bound to a JsonDeserializerServiceProvider; the answer's content type and
// bytes become the 200 response.
//
//   auto farNode = std::make_shared<connector::Router>();
//   farNode->bind(connector::Address("shop/ReserveItem"),
//                 std::make_shared<connector::json::JsonDeserializerServiceProvider>(serializer),
//                 services->context());
//   farNode->start();
//   connector::net::HttpGateway gateway(farNode);   // 127.0.0.1, a free port
//   gateway.start();
//   std::cout << gateway.url() << "\n";              // http://127.0.0.1:<port>
//
// Answers, each error with the JSON body {"error":"<text>"}:
//   200  the service's answer
//   GET /  200 {"addresses":["shop/CancelOrder","shop/ReserveItem"]} (bound addresses, sorted)
//   400  the service refused the request as invalid (std::invalid_argument), e.g. bytes
//        that are not JSON for a registered type, or a malformed request target
//   404  nothing bound at <address>: "No service bound at address '<address>'"
//   405  a method other than POST (GET for "/"), with an Allow header
//   413  a body over maxBodyBytes: "Request body exceeds the limit of <n> bytes"; the
//        connection is then closed
//   503  the service is not running: "Service exists but is not running."
//   500  anything else, with the failure's text
// The gateway keeps serving after every one of them.
//
// Lifecycle: the constructor binds and listens (so port() is known at once); start()
// begins serving; stop() stops accepting, lets requests in flight finish and answer,
// closes idle keep-alive connections and waits for the worker threads. A stopped gateway
// cannot be started again: make a new one (it may reuse the port).
//
// Thread-safety: requests are served on the gateway's own worker threads (threads
// option), each calling the router's deliver and blocking while the service works.
// start(), stop() and the accessors may be called from any thread; the destructor stops
// the gateway. The router must stay usable while the gateway runs (it is held shared).
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "connector/Export.hpp"
#include "connector/host/Router.hpp"
#include "connector/net/HttpGatewayOptions.hpp"

namespace Poco {
class ThreadPool;
namespace Net {
class HTTPServer;
class ServerSocket;
}  // namespace Net
}  // namespace Poco

namespace connector::net {

namespace detail {
struct GatewayState;
}

class CONNECTOR_API HttpGateway {
 public:
  // Binds and listens on options.bindAddress:options.port; serves nothing until start().
  // Throws std::invalid_argument "HttpGateway needs a router" for a null router,
  // std::invalid_argument "HttpGateway needs at least one thread" for threads < 1,
  // std::invalid_argument "HttpGateway needs a queue length of at least one" for
  // queueLength < 1, and std::runtime_error "HttpGateway cannot listen on HOST:PORT:
  // <cause>" when the address cannot be bound (e.g. the port is taken).
  explicit HttpGateway(std::shared_ptr<Router> router, HttpGatewayOptions options = {});

  // Stops the gateway (see stop()). Never throws.
  ~HttpGateway();

  HttpGateway(const HttpGateway&) = delete;
  HttpGateway& operator=(const HttpGateway&) = delete;

  // Starts accepting connections. Does nothing when already serving. Throws
  // std::logic_error "HttpGateway cannot be started again after stop()" after stop().
  void start();

  // Stops accepting, lets requests in flight finish and be answered, closes idle
  // connections, and returns once every worker is done. Blocks as long as the slowest
  // request in flight. Does nothing when not serving. Never throws.
  void stop();

  // The port listened on (the chosen one when options.port was 0).
  std::uint16_t port() const noexcept { return boundPort; }

  // "http://HOST:PORT" of the bound address.
  std::string url() const;

  // Requests answered so far, whatever their status.
  std::uint64_t requestsServed() const noexcept;

  const HttpGatewayOptions& options() const noexcept { return gatewayOptions; }

 private:
  HttpGatewayOptions gatewayOptions;
  std::uint16_t boundPort = 0;
  std::shared_ptr<detail::GatewayState> state;
  std::unique_ptr<Poco::Net::ServerSocket> listener;
  std::unique_ptr<Poco::ThreadPool> pool;
  std::unique_ptr<Poco::Net::HTTPServer> server;

  std::mutex lifecycleMutex;
  enum class Phase { Ready, Serving, Stopped };
  Phase phase = Phase::Ready;  // guarded by lifecycleMutex
};

}  // namespace connector::net

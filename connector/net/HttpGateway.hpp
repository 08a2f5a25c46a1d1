// connector::net::HttpGateway: an HTTP server that lets any HTTP client reach the
// services bound on a router. POST /<address> with a JSON object as its body becomes an
// OpaqueMessage (the request's Content-Type, application/json when it has none, and the
// body bytes) delivered to the router at <address>,
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
//   GET /healthz  200 {"status":"ok"}; 503 {"status":"draining"} once stop() began
//   GET /metrics  200, the gateway's metrics in the Prometheus text format
//   GET /schemas  200, options.schemas ({"<type name>": <JSON Schema>, ...}), or {}
//   GET /openapi.json  200, the OpenAPI 3.1.0 document of options.api; 404 without one
//   GET /docs  200, interactive docs of that document (GET /docs/<file>: its files), with
//        a Content-Security-Policy header; 404 without options.api or the Swagger UI files
//   400  the service refused the request as invalid (std::invalid_argument), e.g. bytes
//        that are not JSON for a registered type; a malformed request or request target;
//        a body that ends before its declared length; a body whose root is not a JSON
//        object (or an empty one): "the request body must be a JSON object", undelivered
//   401  with authTokensFile, no accepted bearer token (every path but GET /healthz)
//   404  nothing bound at <address>: "No service bound at address '<address>'"
//   405  a method other than POST on an address, other than GET on "/", "/healthz",
//        "/metrics", "/schemas", "/openapi.json", "/docs" or "/docs/<file>", with an
//        Allow header
//   413  a body over maxBodyBytes: "Request body exceeds the limit of <n> bytes"
//   415  a POST whose Content-Type is neither application/json nor application/<x>+json
//        (any case, parameters allowed): "Content-Type must be application/json"
//   431  a header over 8 KiB: "Request header exceeds the limit of 8192 bytes"
//   503  the service is not running: "Service exists but is not running."; too many
//        connections; no room in the in-flight budget (with Retry-After)
//   504  no answer within deliveryTimeout: "No answer from '<address>' within <n> ms"
//   500  anything else, with the failure's text
// "/healthz", "/metrics", "/schemas", "/openapi.json", "/docs" and every path under
// "/docs/" are reserved: no address of that name can be reached. Answers
// that leave a request's body unread (405, 413, 415, 431, 503 busy) close the connection. The
// gateway keeps serving after every one of them. See HttpGatewayOptions for the limits
// and deadlines.
//
// Connections cost no thread: ioThreads event loops own every socket (an idle connection
// costs its socket and a few KiB), each run by one thread at a time. A delivery whose
// service answers at once runs on the loop thread that read its request, which writes
// the answer at once: no thread hand-over. One that has been slow, or that blocks, runs
// on one of `threads` spare threads, and a loop whose thread blocks in a delivery is
// taken over by a spare within a few milliseconds: whatever the services do, the gateway
// keeps accepting, answering GET /healthz, enforcing its deadlines and refusing in time.
// Keep-alive and pipelined requests are answered in order.
//
// Lifecycle: the constructor binds and listens (so port() is known at once); start()
// begins serving; stop() drains (see there). A stopped gateway cannot be started again:
// make a new one (it may reuse the port).
//
// HTTPS and bearer tokens (HttpGatewayOptions::tlsCertificateFile, tlsKeyFile,
// authTokensFile): a request without an accepted token is answered 401 {"error":"Missing
// bearer token"}, {"error":"Invalid bearer token"} or {"error":"The Authorization header
// must be 'Bearer <token>'"} with "WWW-Authenticate: Bearer"; GET /healthz needs none. Refusals are
// logged on the module logger (when enabled) with the client's address, the method and the path,
// never the token.
//
// Thread-safety: start(), stop(), reloadTokens() and the accessors may be called from any thread;
// the destructor stops the gateway. The router must stay usable while the gateway runs (it is held
// shared); its deliveries run on the gateway's threads, several at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "connector/Export.hpp"
#include "connector/host/Context.hpp"
#include "connector/host/Router.hpp"
#include "connector/net/HttpGatewayOptions.hpp"

namespace connector::net {

namespace detail {
class GatewayCore;
}

class CONNECTOR_API HttpGateway {
 public:
  // Binds and listens on options.bindAddress:options.port; serves nothing until start().
  // Throws std::invalid_argument "HttpGateway needs a router" for a null router,
  // "HttpGateway needs at least one thread" for threads < 1, "HttpGateway needs at least
  // one I/O thread" for ioThreads < 1, "HttpGateway limits must be at least 1" for a
  // maxConnections, maxBodyBytes or maxInFlightBytes of 0, "HttpGateway time-outs must be
  // positive" for a time-out <= 0; and std::runtime_error "HttpGateway cannot listen on
  // HOST:PORT: <cause>" when the address cannot be bound (e.g. the port is taken).
  // With HTTPS or tokens (see HttpGatewayOptions) it also throws std::invalid_argument
  // "HttpGateway needs both tlsCertificateFile and tlsKeyFile" when only one is set, and
  // std::runtime_error naming the file when a file cannot be used: "HttpGateway cannot
  // read the TLS certificate file '<path>': <cause>" (missing, unreadable, a folder),
  // "HttpGateway cannot load the TLS certificate file '<path>': <cause>" (not PEM),
  // the same two for "TLS key file", "HttpGateway: the TLS key file '<key>' does not
  // match the certificate in '<certificate>'", and the texts of reloadTokens().
  explicit HttpGateway(std::shared_ptr<Router> router, HttpGatewayOptions options = {});

  // A gateway that forwards every POST /<address> to `target` (any context, e.g. a link
  // to another node) instead of serving a router: GET / lists no address, and a
  // std::invalid_argument from the target is 400 (no address table tells 404 apart).
  // Throws as the constructor, with "HttpGateway needs a context to forward to" for a
  // null target.
  static std::unique_ptr<HttpGateway> forwarding(std::shared_ptr<Context> target,
                                                 HttpGatewayOptions options = {});

  // Stops the gateway (see stop()). Never throws.
  ~HttpGateway();

  HttpGateway(const HttpGateway&) = delete;
  HttpGateway& operator=(const HttpGateway&) = delete;

  // Starts accepting connections. Does nothing when already serving. Throws
  // std::logic_error "HttpGateway cannot be started again after stop()" after stop().
  void start();

  // Drains and stops: stops accepting (new connections are refused), closes idle
  // connections at once, answers every request already read (marking those answers
  // Connection: close; /healthz answers 503 meanwhile), then closes whatever is still
  // open after drainTimeout and returns. Blocks until then: as long as the slowest
  // request in flight, at most about drainTimeout. A delivery still running then keeps
  // its thread until it returns. Does nothing when not serving. Never throws.
  void stop();

  // The port listened on (the chosen one when options.port was 0).
  std::uint16_t port() const noexcept { return boundPort; }

  // "http://HOST:PORT" of the bound address ("https://HOST:PORT" when serving HTTPS).
  std::string url() const;

  // Reads options.authTokensFile again and puts its tokens in force for the requests
  // whose header arrives from now on; returns how many tokens it holds. Throws
  // std::logic_error "HttpGateway has no tokens file" without one, and
  // std::runtime_error "HttpGateway cannot read the tokens file '<path>': <cause>",
  // "HttpGateway: line <n> of the tokens file '<path>' is not a bearer token" (the line
  // is not quoted) or "HttpGateway: the tokens file '<path>' holds no token"; the tokens
  // in force then stay. Blocks while it reads the file. Any thread, at any time.
  std::size_t reloadTokens();

  // Requests answered so far, whatever their status.
  std::uint64_t requestsServed() const noexcept;

  // The registry behind GET /metrics (options.metrics, or the gateway's own).
  std::shared_ptr<transport::MetricsRegistry> metrics() const;

  const HttpGatewayOptions& options() const noexcept { return gatewayOptions; }

 private:
  HttpGateway(std::shared_ptr<Router> router, std::shared_ptr<Context> target,
              HttpGatewayOptions options);

  HttpGatewayOptions gatewayOptions;
  std::uint16_t boundPort = 0;
  std::shared_ptr<detail::GatewayCore> core;

  std::mutex lifecycleMutex;
  enum class Phase { Ready, Serving, Stopped };
  Phase phase = Phase::Ready;  // guarded by lifecycleMutex
};

}  // namespace connector::net

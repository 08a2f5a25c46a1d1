// connector::net::HttpLink: a context that carries OpaqueMessages to another process over
// HTTP or HTTPS. deliver() POSTs the message's payload to <base URL>/<address> with the message's
// content type and answers with an OpaqueMessage holding the response body and the
// response's content type.
//
//   auto link = std::make_shared<connector::net::HttpLink>("http://127.0.0.1:8080");
//   clientNode->bind(connector::Address("shop/ReserveItem"),
//                    std::make_shared<connector::json::JsonSerializerServiceProvider>(serializer),
//                    link);   // the bridge's opaque requests now cross to the far gateway
//   // ... deliver typed requests to clientNode as usual
//
// Failures arrive through the returned future, never as exceptions from deliver():
// - a message that is not an OpaqueMessage (or a null one): std::invalid_argument
//   "HttpLink delivers only an OpaqueMessage, not <type>" ("... not a null message");
// - a refused or reset connection, a time-out, a malformed or cut response:
//   std::runtime_error "POST <url> failed: <cause>", e.g. "POST
//   http://127.0.0.1:8080/shop/ReserveItem failed: connection refused";
// - a status other than 2xx: std::runtime_error "POST <url> failed: HTTP <status>
//   <reason>" followed by ": <text>" when the body is {"error":"<text>"}, e.g. "POST ...
//   failed: HTTP 401 Unauthorized: Invalid bearer token";
// - over HTTPS, a server certificate that does not chain to a trusted authority or does
//   not name the URL's host: std::runtime_error "POST <url> failed: TLS certificate
//   verification failed: <why>" (<why> is OpenSSL's reason, e.g. "unable to get local
//   issuer certificate", or "the certificate does not name <host>"); any other failed
//   handshake: "POST <url> failed: TLS handshake failed: <cause>".
//
// HTTPS: an https:// URL makes every connection a TLS one (TLS 1.2 or 1.3, Poco's NetSSL
// over OpenSSL), trusting HttpLinkOptions::caFile or the system's store. A bearer token
// in HttpLinkOptions::bearerToken goes with every request.
//
// Connections: the link keeps up to maxIdleConnections keep-alive connections and reuses
// them; each delivery takes one (or opens a new one) for its whole request and response.
// A reused connection that the server had already closed (it fails before any byte of a
// response arrives) is retried once on a fresh connection, so a restarted server is
// reached again without an error.
//
// Blocking: deliver() runs the whole exchange on the calling thread and returns a future
// that is already resolved; no exchange outlives the call, and each one is bounded by
// the connect and read time-outs. Bytes: the request payload is written from the
// message's own buffer straight to the socket, and the response body is read into the
// answer's buffer, with no intermediate copies of its own.
//
// Thread-safety: deliver() may be called from any number of threads at once; the pool of
// idle connections is guarded by a mutex, and a connection is used by one thread at a
// time. Destroying the link closes its idle connections; it must not run concurrently
// with a deliver() on the same link (hold the link by std::shared_ptr, as the router does).
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/Address.hpp"
#include "connector/host/Context.hpp"
#include "connector/host/Message.hpp"
#include "connector/net/HttpLinkOptions.hpp"

namespace connector::net {

namespace detail {
class LinkSession;
class LinkTls;
}  // namespace detail

class CONNECTOR_API HttpLink : public Context {
 public:
  // `baseUrl` is "http://host[:port][/path]" (port 80 when omitted) or
  // "https://host[:port][/path]" (port 443); addresses are appended to its path. Opens
  // no connection yet.
  // Throws std::invalid_argument "HttpLink needs an http:// or https:// URL, not
  // '<url>'" for any other scheme, a URL without a host or one that does not parse,
  // "HttpLink time-outs must be positive" for a zero or negative time-out, "HttpLink
  // takes a CA file only with an https:// URL", and "HttpLink bearer token holds a
  // character a bearer token cannot hold" (the token is not quoted); std::runtime_error
  // "HttpLink cannot read the CA file '<path>': <cause>" or "HttpLink cannot load the CA
  // file '<path>': <cause>".
  explicit HttpLink(const std::string& baseUrl, HttpLinkOptions options = {});
  ~HttpLink() override;

  // POSTs the OpaqueMessage to <base URL>/<address> and resolves the returned future with
  // the answer (see the banner for the failures). Never throws; blocks the calling thread
  // for the exchange, at most about connect time-out + 2 x read time-out per attempt.
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                           Address&& address) override;

  // The URL that a delivery to `address` is posted to.
  std::string urlFor(const Address& address) const;

  // Idle keep-alive connections held for reuse right now.
  std::size_t idleConnections() const;

  const HttpLinkOptions& options() const noexcept { return linkOptions; }

 private:
  // An idle connection, or a new one when there is none or `fresh` asks for one (which
  // also closes all idle ones). `reused` tells which.
  std::unique_ptr<detail::LinkSession> takeSession(bool fresh, bool& reused);
  void giveBack(std::unique_ptr<detail::LinkSession> session);

  std::string host;
  unsigned short port = 80;
  std::string basePath;  // without a trailing '/'
  std::string origin;    // "http://host:port" or "https://host:port"
  HttpLinkOptions linkOptions;
  std::shared_ptr<const detail::LinkTls> tls;  // null over HTTP

  mutable std::mutex poolMutex;
  std::vector<std::unique_ptr<detail::LinkSession>> idle;  // guarded by poolMutex
};

}  // namespace connector::net

// detail::LinkTls: the client side of an HttpLink's HTTPS: a Poco NetSSL context that
// trusts a CA file (or the system's store), speaks TLS 1.2 or 1.3 with the same suites
// as the gateway, verifies the server's certificate chain and records why a chain did
// not verify, and checks that a certificate names the host. Private to connector/net.
//
//   LinkTls tls("/etc/ssl/private-ca.pem");     // "" for the system's store
//   LinkTls::clearVerifyFailure();
//   ... connect a SecureStreamSocket made on tls.context() ...
//   std::string why = LinkTls::verifyFailure(); // e.g. "self-signed certificate"
//
// The reason is kept per thread: a link's exchange, handshake included, runs on the
// thread that delivers. Poco's process-wide certificate handlers are not involved.
//
// Thread-safety: the context is shared by the link's connections on any thread.
#pragma once

#include <string>

#include <Poco/Net/Context.h>
#include <Poco/Net/SecureStreamSocket.h>

namespace connector::net::detail {

class LinkTls {
 public:
  // Throws std::runtime_error "HttpLink cannot read the CA file '<path>': <cause>" or
  // "HttpLink cannot load the CA file '<path>': <cause>".
  explicit LinkTls(const std::string& caFile);

  Poco::Net::Context::Ptr context() const { return tlsContext; }

  // True when the certificate `socket` received names `host`: an IP address must be one
  // of its IP entries, a name one of its DNS entries (wildcards as OpenSSL allows them;
  // its common name only when it has no DNS entry).
  static bool nameMatches(const Poco::Net::SecureStreamSocket& socket, const std::string& host);

  // Forgets the reason recorded on this thread.
  static void clearVerifyFailure() noexcept;
  // Why the last chain verification on this thread failed since clearVerifyFailure();
  // empty when none failed.
  static std::string verifyFailure();

 private:
  Poco::Net::Context::Ptr tlsContext;
};

}  // namespace connector::net::detail

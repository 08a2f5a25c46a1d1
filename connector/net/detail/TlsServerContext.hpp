// detail::makeTlsServerContext: the OpenSSL server context of an HTTPS gateway, made from
// a PEM certificate chain and a PEM private key. Private to connector/net.
//
//   std::unique_ptr<boost::asio::ssl::context> tls =
//       makeTlsServerContext("/etc/gateway/chain.pem", "/etc/gateway/key.pem");
//
// Settings: TLS 1.2 and 1.3 only; for TLS 1.2 the suites of kTls12Ciphers, the server's
// order preferred; no compression, no renegotiation. Sessions resume by stateless ticket
// (one per full handshake); there is no server-side session cache. An encrypted key is
// refused (no passphrase prompt ever blocks).
//
// Thread-safety: the context is read-only once made; sessions on any thread share it.
#pragma once

#include <memory>
#include <string>

#include <boost/asio/ssl/context.hpp>

#include "connector/net/detail/TlsSettings.hpp"

namespace connector::net::detail {

// Throws std::runtime_error naming the file: "HttpGateway cannot read the TLS
// certificate file '<path>': <cause>" (missing, unreadable, a directory), "HttpGateway
// cannot load the TLS certificate file '<path>': <cause>" (not a PEM certificate chain),
// the same two for "TLS key file", and "HttpGateway: the TLS key file '<key>' does not
// match the certificate in '<certificate>'".
std::unique_ptr<boost::asio::ssl::context> makeTlsServerContext(const std::string& certificateFile,
                                                                const std::string& keyFile);

}  // namespace connector::net::detail

// connector::net::HttpLinkOptions: the time-outs, connection reuse, trusted authorities
// and bearer token of an HttpLink.
//
//   connector::net::HttpLinkOptions options;
//   options.connectTimeout = std::chrono::milliseconds(500);
//   options.readTimeout = std::chrono::seconds(5);
//   options.caFile = "/etc/shop/ca.pem";          // https:// only
//   options.bearerToken = "a-long-random-token";
//   auto link = std::make_shared<connector::net::HttpLink>("https://gateway:8443", options);
//
// Thread-safety: a plain value, copied into the link at construction.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace connector::net {

struct HttpLinkOptions {
  // How long establishing a TCP connection may take.
  std::chrono::milliseconds connectTimeout{5000};
  // How long one send or one read on an established connection may block (the far
  // service's whole processing time counts against it while the link waits for the
  // response's first bytes).
  std::chrono::milliseconds readTimeout{30000};
  // Idle keep-alive connections kept for reuse; connections beyond it are closed when
  // their request is done. 0 disables reuse (one connection per request).
  std::size_t maxIdleConnections = 8;

  // For an https:// URL: a PEM file with the certificates of the authorities that may
  // sign the server's certificate. Empty (the default): the system's store. The server's
  // certificate must chain to one of them and name the URL's host; otherwise every
  // delivery fails with "POST <url> failed: TLS certificate verification failed: <why>".
  // Read once, at construction. Not allowed with an http:// URL.
  std::string caFile;
  // Sent as "Authorization: Bearer <token>" with every request; empty (the default):
  // no Authorization header. Letters, digits and "-._~+/", then any '='. Over an
  // http:// URL it crosses the network in clear text.
  std::string bearerToken;
};

}  // namespace connector::net

// connector::net::HttpLinkOptions: the time-outs and connection reuse of an HttpLink.
//
//   connector::net::HttpLinkOptions options;
//   options.connectTimeout = std::chrono::milliseconds(500);
//   options.readTimeout = std::chrono::seconds(5);
//   auto link = std::make_shared<connector::net::HttpLink>("http://127.0.0.1:8080", options);
//
// Thread-safety: a plain value, copied into the link at construction.
#pragma once

#include <chrono>
#include <cstddef>

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
};

}  // namespace connector::net

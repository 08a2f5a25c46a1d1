// connector::net::HttpGatewayOptions: where an HttpGateway listens and how much it takes.
//
//   connector::net::HttpGatewayOptions options;
//   options.port = 0;                       // any free port; HttpGateway::port() tells which
//   options.threads = 8;
//   options.maxBodyBytes = 1 << 20;         // 1 MiB
//   connector::net::HttpGateway gateway(router, options);
//
// Thread-safety: a plain value, copied into the gateway at construction.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace connector::net {

struct HttpGatewayOptions {
  // Address to listen on: loopback unless told otherwise ("0.0.0.0" for every interface).
  std::string bindAddress = "127.0.0.1";
  // Port to listen on; 0 picks a free one.
  std::uint16_t port = 0;
  // Worker threads. Each open connection occupies one while it is served or kept alive,
  // so this is also the number of connections served at once.
  int threads = 16;
  // Accepted connections waiting for a free worker; beyond it new ones are refused.
  int queueLength = 64;
  // Largest request body accepted; a larger one is answered 413.
  std::size_t maxBodyBytes = std::size_t{16} * 1024 * 1024;
  // How long an idle keep-alive connection is held open for its next request.
  std::chrono::milliseconds keepAliveTimeout{15000};
};

}  // namespace connector::net

// detail::LinkSession: one keep-alive HTTP connection of an HttpLink. Private to
// connector/net.
//
// A Poco HTTPClientSession that switches Nagle's algorithm off on every connection it
// opens (a request goes out as two writes, headers then body, which would otherwise wait
// for the delayed acknowledgement of the first), remembers whether it is connecting
// (to tell a connect failure from a later one), and writes and reads body bytes
// straight between the socket and the caller's memory.
//
// Thread-safety: used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <Poco/Net/HTTPClientSession.h>

#include "connector/net/HttpLinkOptions.hpp"

namespace connector::net::detail {

class LinkSession : public Poco::Net::HTTPClientSession {
 public:
  LinkSession(const std::string& host, unsigned short port, const HttpLinkOptions& options);

  // Writes the body after sendRequest(); throws the Poco network exceptions.
  void sendBody(const std::uint8_t* bytes, std::size_t size);

  // Reads up to `size` body bytes after receiveResponse(); 0 means end of stream.
  std::size_t readBody(std::uint8_t* bytes, std::size_t size);

  // True while a TCP connection is being established.
  bool connecting() const noexcept { return inConnect; }

 protected:
  void connect(const Poco::Net::SocketAddress& address) override;

 private:
  bool inConnect = false;
};

}  // namespace connector::net::detail

// detail::LinkSession: one keep-alive HTTP connection of an HttpLink. Private to
// connector/net.
//
// A Poco HTTPClientSession, over a TLS socket when the link speaks HTTPS, that switches Nagle's
// algorithm off on every connection it opens (a request goes out as two writes, headers then body,
// which would otherwise wait for the delayed acknowledgement of the first), remembers whether it is
// connecting (to tell a connect failure from a later one), and writes and reads body bytes straight
// between the socket and the caller's memory.
//
// Thread-safety: used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Timespan.h>

#include "connector/net/HttpLinkOptions.hpp"

namespace connector::net::detail {

class LinkTls;

class LinkSession : public Poco::Net::HTTPClientSession {
 public:
  // `tls`: the link's TLS settings for HTTPS, null for HTTP; it outlives the session.
  LinkSession(const std::string& host, unsigned short port, const HttpLinkOptions& options,
              const LinkTls* tls);

  // Writes the body after sendRequest(); throws the Poco network exceptions.
  void sendBody(const std::uint8_t* bytes, std::size_t size);

  // Reads up to `size` body bytes after receiveResponse(); 0 means end of stream.
  std::size_t readBody(std::uint8_t* bytes, std::size_t size);

  // True while a connection (TCP, and TLS over it) is being established, and after
  // establishing it failed.
  bool connecting() const noexcept { return inConnect; }

 protected:
  // Connects, and over TLS completes the handshake (Poco::Net::SSLException) and checks
  // that the server's certificate names the host (CertificateValidationException).
  void connect(const Poco::Net::SocketAddress& address) override;
  // Over TLS, a server that closes without close_notify ends the stream (0) instead of
  // failing the read.
  int read(char* buffer, std::streamsize length) override;

 private:
  // Completes the TLS handshake within the connect time-out and checks the host name.
  void handshake();

  const bool secure;
  const Poco::Timespan connectTimeout;
  const Poco::Timespan ioTimeout;  // of each send and each read
  bool inConnect = false;
};

}  // namespace connector::net::detail

#include "connector/net/detail/LinkSession.hpp"

#include <algorithm>
#include <limits>

#include <Poco/Net/SSLException.h>
#include <Poco/Net/SecureStreamSocket.h>
#include <Poco/Timespan.h>

#include "connector/net/detail/LinkTls.hpp"

namespace connector::net::detail {

namespace {

Poco::Timespan toTimespan(std::chrono::milliseconds ms) {
  return Poco::Timespan(static_cast<Poco::Timespan::TimeDiff>(ms.count()) * 1000);
}

Poco::Net::StreamSocket socketFor(const LinkTls* tls) {
  if (tls == nullptr) return Poco::Net::StreamSocket();
  return Poco::Net::SecureStreamSocket(tls->context());
}

}  // namespace

LinkSession::LinkSession(const std::string& host, unsigned short port,
                         const HttpLinkOptions& options, const LinkTls* tls)
    : Poco::Net::HTTPClientSession(socketFor(tls)),
      secure(tls != nullptr),
      connectTimeout(toTimespan(options.connectTimeout)),
      ioTimeout(toTimespan(options.readTimeout)) {
  setHost(host);
  setPort(port);
  setTimeout(connectTimeout, ioTimeout, ioTimeout);
  setKeepAlive(true);
}

void LinkSession::connect(const Poco::Net::SocketAddress& address) {
  // Stays set when connecting fails, so that the failure is told as one of connecting.
  inConnect = true;
  if (secure) {
    // The name sent for SNI.
    Poco::Net::SecureStreamSocket(socket()).setPeerHostName(getHost());
  }
  Poco::Net::HTTPClientSession::connect(address);
  if (secure) handshake();
  inConnect = false;
  socket().setNoDelay(true);
}

void LinkSession::handshake() {
  Poco::Net::SecureStreamSocket secureSocket(socket());
  // The handshake is part of connecting: it gets the connect time-out.
  secureSocket.setReceiveTimeout(connectTimeout);
  secureSocket.setSendTimeout(connectTimeout);
  secureSocket.completeHandshake();
  if (!LinkTls::nameMatches(secureSocket, getHost())) {
    close();
    throw Poco::Net::CertificateValidationException("the certificate does not name " + getHost());
  }
  secureSocket.setReceiveTimeout(ioTimeout);
  secureSocket.setSendTimeout(ioTimeout);
}

int LinkSession::read(char* buffer, std::streamsize length) {
  try {
    return Poco::Net::HTTPClientSession::read(buffer, length);
  } catch (const Poco::Net::SSLConnectionUnexpectedlyClosedException&) {
    return 0;
  }
}

void LinkSession::sendBody(const std::uint8_t* bytes, std::size_t size) {
  constexpr std::size_t kMaxChunk = std::numeric_limits<int>::max() / 2;
  while (size > 0) {
    const std::size_t chunk = std::min(size, kMaxChunk);
    // The blocking stream socket sends the whole chunk or throws.
    write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(chunk));
    bytes += chunk;
    size -= chunk;
  }
}

std::size_t LinkSession::readBody(std::uint8_t* bytes, std::size_t size) {
  constexpr std::size_t kMaxChunk = std::numeric_limits<int>::max() / 2;
  const int n =
      read(reinterpret_cast<char*>(bytes), static_cast<std::streamsize>(std::min(size, kMaxChunk)));
  return n > 0 ? static_cast<std::size_t>(n) : 0;
}

}  // namespace connector::net::detail

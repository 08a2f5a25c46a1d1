#include "connector/net/detail/LinkSession.hpp"

#include <algorithm>
#include <limits>

#include <Poco/Timespan.h>

namespace connector::net::detail {

namespace {

Poco::Timespan toTimespan(std::chrono::milliseconds ms) {
  return Poco::Timespan(static_cast<Poco::Timespan::TimeDiff>(ms.count()) * 1000);
}

}  // namespace

LinkSession::LinkSession(const std::string& host, unsigned short port,
                         const HttpLinkOptions& options)
    : Poco::Net::HTTPClientSession(host, port) {
  setTimeout(toTimespan(options.connectTimeout), toTimespan(options.readTimeout),
             toTimespan(options.readTimeout));
  setKeepAlive(true);
}

void LinkSession::connect(const Poco::Net::SocketAddress& address) {
  inConnect = true;
  try {
    Poco::Net::HTTPClientSession::connect(address);
  } catch (...) {
    inConnect = false;
    throw;
  }
  inConnect = false;
  socket().setNoDelay(true);
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

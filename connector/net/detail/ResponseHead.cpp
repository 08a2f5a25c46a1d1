#include "connector/net/detail/ResponseHead.hpp"

#include <charconv>
#include <ostream>  // boost/beast/http/status.hpp needs it complete

#include <boost/beast/http/status.hpp>

namespace connector::net::detail {

namespace {

void appendNumber(std::string& out, std::size_t value) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  out.append(digits, static_cast<std::size_t>(end - digits));
}

// A content type that could break the head (a service's own text) is not sent as is.
std::string_view safeContentType(std::string_view contentType) {
  for (const char c : contentType) {
    if ((static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f) {
      return "application/octet-stream";
    }
  }
  return contentType;
}

}  // namespace

void appendResponseHead(std::string& out, unsigned version, int status,
                        std::string_view contentType, std::size_t contentLength, bool keepAlive,
                        std::string_view extraFields) {
  const auto reason =
      boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(status));
  out.append(version == 10 ? "HTTP/1.0 " : "HTTP/1.1 ");
  appendNumber(out, static_cast<std::size_t>(status));
  out.push_back(' ');
  out.append(reason.data(), reason.size());
  out.append("\r\nServer: ");
  out.append(kServerName);
  out.append("\r\nContent-Type: ");
  out.append(safeContentType(contentType));
  out.append("\r\nContent-Length: ");
  appendNumber(out, contentLength);
  out.append("\r\n");
  out.append(extraFields);
  if (version == 10 && keepAlive) {
    out.append("Connection: keep-alive\r\n");
  } else if (version != 10 && !keepAlive) {
    out.append("Connection: close\r\n");
  }
  out.append("\r\n");
}

}  // namespace connector::net::detail

// detail::appendResponseHead: the status line and header fields of one of the gateway's
// answers, written straight into a buffer the connection reuses (no field container, no
// serializer). Private to connector/net.
//
//   std::string head;
//   appendResponseHead(head, 11, 200, "application/json", body.size, true, "");
//   // "HTTP/1.1 200 OK\r\nServer: connector-gateway\r\nContent-Type: application/json\r\n"
//   // "Content-Length: 101\r\n\r\n"
//
// A content type holding control characters (a line break would end the field early)
// is sent as application/octet-stream. Connection: an HTTP/1.1 answer that closes says "Connection:
// close"; an HTTP/1.0 one that keeps the connection says "Connection: keep-alive".
//
// Thread-safety: a plain function.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace connector::net::detail {

inline constexpr std::string_view kServerName = "connector-gateway";

// Appends the head to `out`. `version` is 10 or 11; `extraFields` holds whole field lines
// ("Allow: GET\r\n"), or nothing.
void appendResponseHead(std::string& out, unsigned version, int status,
                        std::string_view contentType, std::size_t contentLength, bool keepAlive,
                        std::string_view extraFields);

}  // namespace connector::net::detail

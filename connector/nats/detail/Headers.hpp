// detail::header and headerBytes: reading one header of a nats.c message, and the size a
// message's header block takes. Private to connector/nats.
//
//   std::string type = header(message, kContentTypeHeader);   // "" when absent
//   std::size_t extra = headerBytes({{kContentTypeHeader, "application/json"}});
//
// Thread-safety: a message's headers are read by one thread at a time (nats.c's rule).
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include <nats/nats.h>

namespace connector::nats::detail {

// The first value of header `key`, or empty when absent.
inline std::string header(natsMsg* message, const char* key) {
  const char* value = nullptr;
  if (natsMsgHeader_Get(message, key, &value) != NATS_OK || value == nullptr) return {};
  return value;
}

// Bytes of the header block "NATS/1.0\r\n<key>: <value>\r\n...\r\n" that carries these
// headers; the server's max_payload counts them with the payload.
inline std::size_t headerBytes(
    std::initializer_list<std::pair<std::string_view, std::string_view>> headers) {
  std::size_t bytes = std::string_view("NATS/1.0\r\n\r\n").size();
  for (const auto& [key, value] : headers) bytes += key.size() + 2 + value.size() + 2;
  return bytes;
}

}  // namespace connector::nats::detail

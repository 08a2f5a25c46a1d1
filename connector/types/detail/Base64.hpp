// Standard base64 with padding (RFC 4648 section 4), as the declared types write and
// read binary members.
//
//   std::string text;
//   appendBase64(text, bytes);           // "AAEC/w=="
//   decodeBase64("AAEC/w==", bytes);     // true
//   decodeBase64("AAEC/w=", bytes);      // false: the padding is missing
//
// Thread-safety: pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "connector/Export.hpp"

namespace connector::json::detail {

CONNECTOR_API void appendBase64(std::string& out, const std::vector<std::byte>& bytes);

// The bytes of text, only when text is what appendBase64 writes: whole groups of four,
// padding only at the end, and no bits set beyond the last byte.
CONNECTOR_API bool decodeBase64(std::string_view text, std::vector<std::byte>& bytes);

// The pattern (anchored) of exactly the texts decodeBase64 takes.
CONNECTOR_API const char* base64Pattern();

}  // namespace connector::json::detail

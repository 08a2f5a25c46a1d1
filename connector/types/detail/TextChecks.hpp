// Checks on the text of strings that the declared types share: whether bytes are UTF-8
// that the JSON parser reads back, and how many code points they hold.
//
//   validUtf8("caf\xc3\xa9");      // true
//   validUtf8("\xff");             // false: the writer refuses such a string
//   codePoints("caf\xc3\xa9");     // 4, as JSON Schema counts a string's length
//
// Thread-safety: pure functions.
#pragma once

#include <cstddef>
#include <string_view>

#include "connector/Export.hpp"

namespace connector::json::detail {

// Whether text is well-formed UTF-8: no overlong forms, no surrogates, nothing above
// U+10FFFF (what the parser accepts inside a JSON string).
CONNECTOR_API bool validUtf8(std::string_view text) noexcept;

// The number of code points in text (bytes that do not continue a sequence).
CONNECTOR_API std::size_t codePoints(std::string_view text) noexcept;

}  // namespace connector::json::detail

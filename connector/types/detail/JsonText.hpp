// The pieces of compact JSON text that the declared types' direct codec appends, each
// byte for byte as Poco's writer (Object::stringify with indent 0, step -1) writes the
// same value, so that the direct codec and the converters write identical text:
//
//   appendQuoted(out, "a\"b\n");   // "a\"b\n": '"', '\\' and bytes below 0x20 escaped
//                                  // (\b \f \n \r \t, \u0007 \u000B \u0000, else
//                                  // \u00XX in upper case); everything else as it is
//   appendNumber(out, 1e21);       // 1e+21: the shortest digits that read back, in
//   appendNumber(out, 0.001);      // 0.001  positional form for decimal exponents from
//   appendNumber(out, -0.0);       // 0      -15 to 14 (floats: -6 to 5), else with an
//   appendNumber(out, 1.5f);       // 1.5    exponent; zero of either sign is 0
//   appendInteger(out, -42);       // -42
//
// appendNumber requires a finite value (JSON has no text for infinities and NaN).
//
// Thread-safety: pure functions.
#pragma once

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "connector/Export.hpp"

namespace connector::json::detail {

// text as a JSON string, quotes included.
CONNECTOR_API void appendQuoted(std::string& out, std::string_view text);

// A finite double or float as Poco writes it.
CONNECTOR_API void appendNumber(std::string& out, double value);
CONNECTOR_API void appendNumber(std::string& out, float value);

template <typename I>
void appendInteger(std::string& out, I value) {
  char digits[24];
  const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
  out.append(digits, static_cast<std::size_t>(end.ptr - digits));
}

}  // namespace connector::json::detail

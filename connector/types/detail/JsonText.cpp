#include "connector/types/detail/JsonText.hpp"

#include <array>

namespace connector::json::detail {

namespace {

// The escape that Poco's writer uses for a byte of a string, or nullptr for a byte it
// writes as it is: the quote, the backslash and the control characters below 0x20.
struct EscapeTable {
  std::array<const char*, 256> escapes{};
  std::array<std::array<char, 7>, 32> controls{};

  EscapeTable() {
    const char* hex = "0123456789ABCDEF";
    for (int c = 0; c < 32; ++c) {
      auto& text = controls[static_cast<std::size_t>(c)];
      text = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 15], '\0'};
      escapes[static_cast<std::size_t>(c)] = text.data();
    }
    escapes['\b'] = "\\b";
    escapes['\f'] = "\\f";
    escapes['\n'] = "\\n";
    escapes['\r'] = "\\r";
    escapes['\t'] = "\\t";
    escapes['"'] = "\\\"";
    escapes['\\'] = "\\\\";
  }
};

const EscapeTable& escapeTable() {
  static const EscapeTable table;
  return table;
}

// Poco's shortest form (double-conversion's ToShortest with the flags UNIQUE_ZERO and
// EMIT_POSITIVE_EXPONENT_SIGN) of a number whose shortest digits and scientific
// exponent std::to_chars gave: positional when low <= exponent < high, else
// d[.ddd]e(+|-)x.
template <typename F>
void appendShortest(std::string& out, F value, int low, int high) {
  if (value == 0) {  // both zeros, as one
    out.push_back('0');
    return;
  }
  char text[40];
  const std::to_chars_result end =
      std::to_chars(text, text + sizeof text, value, std::chars_format::scientific);
  const char* p = text;
  if (*p == '-') {
    out.push_back('-');
    ++p;
  }
  char digits[24];
  int count = 0;
  for (; *p != 'e'; ++p) {
    if (*p != '.') digits[count++] = *p;
  }
  ++p;  // 'e', then a sign and at least two digits
  const bool negativeExponent = *p++ == '-';
  int exponent = 0;
  for (; p != end.ptr; ++p) exponent = exponent * 10 + (*p - '0');
  if (negativeExponent) exponent = -exponent;
  if (low <= exponent && exponent < high) {
    const int point = exponent + 1;  // digits before the decimal point
    if (point <= 0) {
      out.append("0.");
      out.append(static_cast<std::size_t>(-point), '0');
      out.append(digits, static_cast<std::size_t>(count));
    } else if (point >= count) {
      out.append(digits, static_cast<std::size_t>(count));
      out.append(static_cast<std::size_t>(point - count), '0');
    } else {
      out.append(digits, static_cast<std::size_t>(point));
      out.push_back('.');
      out.append(digits + point, static_cast<std::size_t>(count - point));
    }
    return;
  }
  out.push_back(digits[0]);
  if (count > 1) {
    out.push_back('.');
    out.append(digits + 1, static_cast<std::size_t>(count - 1));
  }
  out.push_back('e');
  out.push_back(exponent < 0 ? '-' : '+');
  appendInteger(out, exponent < 0 ? -exponent : exponent);
}

}  // namespace

void appendQuoted(std::string& out, std::string_view text) {
  const EscapeTable& table = escapeTable();
  out.push_back('"');
  const char* run = text.data();
  const char* const end = run + text.size();
  for (const char* p = run; p != end; ++p) {
    const char* escape = table.escapes[static_cast<unsigned char>(*p)];
    if (escape == nullptr) continue;
    out.append(run, static_cast<std::size_t>(p - run));
    out.append(escape);
    run = p + 1;
  }
  out.append(run, static_cast<std::size_t>(end - run));
  out.push_back('"');
}

void appendNumber(std::string& out, double value) {
  appendShortest(out, value, -15, 15);  // -digits10 and digits10 of double
}

void appendNumber(std::string& out, float value) {
  appendShortest(out, value, -6, 6);  // -digits10 and digits10 of float
}

}  // namespace connector::json::detail

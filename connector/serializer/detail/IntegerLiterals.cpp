#include "connector/serializer/detail/IntegerLiterals.hpp"

#include <cstddef>
#include <cstring>

#include <Poco/Exception.h>

namespace connector::json::detail {

namespace {

// Digits of a run that may be a misread literal; shorter runs are always read right.
constexpr std::size_t kShortestSuspect = 19;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Whether position `at` of a valid JSON text lies inside a string.
bool insideString(const std::string& text, std::size_t at) {
  bool inString = false;
  for (std::size_t i = 0; i < at; ++i) {
    if (text[i] == '\\' && inString) {
      ++i;
    } else if (text[i] == '"') {
      inString = !inString;
    }
  }
  return inString;
}

// The number token made of the digits text[start, end) when it is one of the five
// misread literals, else an empty string.
std::string misreadLiteral(const std::string& text, std::size_t start, std::size_t end) {
  const std::size_t length = end - start;
  const char* digits = text.data() + start;
  std::size_t tokenStart = start;
  if (length == 20 && std::memcmp(digits, "1844674407370955161", 19) == 0 && digits[19] >= '6') {
    // 2^64 to 2^64 + 3
  } else if (length == 19 && std::memcmp(digits, "9223372036854775809", 19) == 0 && start > 0 &&
             text[start - 1] == '-') {
    tokenStart = start - 1;  // -(2^63 + 1)
  } else {
    return {};
  }
  const char before = tokenStart > 0 ? text[tokenStart - 1] : ' ';
  const char after = end < text.size() ? text[end] : ' ';
  const auto partOfNumber = [](char c) {
    return c == '.' || c == 'e' || c == 'E' || c == '+' || c == '-';
  };
  if (partOfNumber(before) || partOfNumber(after) || insideString(text, tokenStart)) return {};
  return text.substr(tokenStart, end - tokenStart);
}

}  // namespace

void refuseMisreadIntegers(const std::string& text) {
  const std::size_t size = text.size();
  // Looks at every 19th byte: a run of 19 digits or more always covers one of them.
  std::size_t at = kShortestSuspect - 1;
  while (at < size) {
    if (!isDigit(text[at])) {
      at += kShortestSuspect;
      continue;
    }
    std::size_t start = at;
    while (start > 0 && isDigit(text[start - 1])) --start;
    std::size_t end = at + 1;
    while (end < size && isDigit(text[end])) ++end;
    if (end - start >= kShortestSuspect) {
      const std::string literal = misreadLiteral(text, start, end);
      if (!literal.empty()) throw Poco::SyntaxException("Not a valid unsigned integer: " + literal);
    }
    at = end + kShortestSuspect;
  }
}

RecordingStream::RecordingStream(std::istream& source) : buffer(source.rdbuf()), input(&buffer) {
  input.exceptions(source.exceptions());
}

RecordingStream::~RecordingStream() = default;

RecordingStream::Buffer::int_type RecordingStream::Buffer::underflow() {
  // Waits for (or fails with) the source's next bytes, then takes all it holds at once.
  if (traits_type::eq_int_type(source->sgetc(), traits_type::eof())) return traits_type::eof();
  const std::streamsize available = source->in_avail();
  const std::size_t before = recorded.size();
  recorded.resize(before + static_cast<std::size_t>(available));
  const std::streamsize taken = source->sgetn(&recorded[before], available);
  recorded.resize(before + static_cast<std::size_t>(taken));
  char* begin = &recorded[before];
  setg(begin, begin, begin + taken);
  return traits_type::to_int_type(*gptr());
}

}  // namespace connector::json::detail

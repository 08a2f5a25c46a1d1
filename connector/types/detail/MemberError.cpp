#include "connector/types/detail/MemberError.hpp"

#include <utility>

namespace connector::json::detail {

namespace {

// One reference token of a JSON Pointer: "~" becomes "~0" and "/" becomes "~1".
void appendEscaped(std::string& out, const std::string& token) {
  for (const char c : token) {
    if (c == '~') {
      out += "~0";
    } else if (c == '/') {
      out += "~1";
    } else {
      out += c;
    }
  }
}

}  // namespace

MemberError::MemberError(std::string tail) : tail(std::move(tail)) {}

void MemberError::within(const std::string& segment) { segments.push_back(segment); }

void MemberError::within(std::size_t index) { segments.push_back(std::to_string(index)); }

std::string MemberError::message() const {
  std::string text = "member \"";
  for (auto segment = segments.rbegin(); segment != segments.rend(); ++segment) {
    text += '/';
    appendEscaped(text, *segment);
  }
  text += '"';
  text += tail;
  return text;
}

const char* MemberError::what() const noexcept { return tail.c_str(); }

}  // namespace connector::json::detail

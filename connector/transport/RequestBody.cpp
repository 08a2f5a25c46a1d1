#include "connector/transport/RequestBody.hpp"

namespace connector::transport {

bool isJsonObjectText(std::string_view body) noexcept {
  for (const char c : body) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') continue;
    return c == '{';
  }
  return false;
}

}  // namespace connector::transport

#include "connector/serializer/detail/CheckedParseHandler.hpp"

#include <cstdint>
#include <limits>
#include <string>

#include <Poco/Exception.h>

namespace connector::json::detail {

namespace {

// 2^64 + value in decimal: the literal that wrapped around to value.
std::string wrappedLiteral(std::uint64_t value) {
  std::string digits = "18446744073709551616";
  std::uint64_t carry = value;
  for (auto digit = digits.rbegin(); digit != digits.rend() && carry > 0; ++digit) {
    const std::uint64_t sum = static_cast<std::uint64_t>(*digit - '0') + carry % 10;
    *digit = static_cast<char>('0' + sum % 10);
    carry = carry / 10 + sum / 10;
  }
  return carry > 0 ? std::to_string(carry) + digits : digits;
}

}  // namespace

void CheckedParseHandler::value(Poco::UInt64 value) {
  if (value <= static_cast<Poco::UInt64>(std::numeric_limits<Poco::Int64>::max())) {
    throw Poco::SyntaxException("Not a valid unsigned integer: " + wrappedLiteral(value));
  }
  Poco::JSON::ParseHandler::value(value);
}

}  // namespace connector::json::detail

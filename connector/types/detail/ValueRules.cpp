#include "connector/types/detail/ValueRules.hpp"

#include <cmath>
#include <limits>
#include <vector>

#include <Poco/JSON/Array.h>

#include "connector/types/detail/JsonText.hpp"
#include "connector/types/detail/MemberError.hpp"
#include "connector/types/detail/TextChecks.hpp"

namespace connector::json::detail {

namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

int sign(bool less, bool greater) { return less ? -1 : (greater ? 1 : 0); }

// -1, 0 or 1 as the integer is below, at or above the (not NaN) double.
int compareIntegerWithDouble(const IntegerValue& value, double d) {
  if (value.isNegative) {
    if (d >= kTwoTo63) return -1;
    if (d < -kTwoTo63) return 1;
    const double whole = std::trunc(d);
    const auto truncated = static_cast<std::int64_t>(whole);
    if (value.negative != truncated) return sign(value.negative < truncated, true);
    return sign(d - whole > 0, d - whole < 0);
  }
  if (d < 0) return 1;
  if (d >= kTwoTo64) return -1;
  const double whole = std::trunc(d);
  const auto truncated = static_cast<std::uint64_t>(whole);
  if (value.nonNegative != truncated) return sign(value.nonNegative < truncated, true);
  return sign(d - whole > 0, false);
}

int compareIntegers(const IntegerValue& a, const IntegerValue& b) {
  if (a.isNegative != b.isNegative) return a.isNegative ? -1 : 1;
  if (a.isNegative) return sign(a.negative<b.negative, a.negative> b.negative);
  return sign(a.nonNegative<b.nonNegative, a.nonNegative> b.nonNegative);
}

IntegerValue integerOf(std::int64_t n) {
  IntegerValue value;
  value.isNegative = n < 0;
  if (value.isNegative) {
    value.negative = n;
  } else {
    value.nonNegative = static_cast<std::uint64_t>(n);
  }
  return value;
}

IntegerValue unsignedOf(std::uint64_t n) {
  IntegerValue value;
  value.nonNegative = n;
  return value;
}

std::string textOf(const IntegerValue& value) {
  return value.isNegative ? std::to_string(value.negative) : std::to_string(value.nonNegative);
}

std::string textOf(double value) {
  std::string text;
  appendNumber(text, value);
  return text;
}

// The integer bound of a NumberBound: the smallest integer at or above it (up) or the
// largest at or below it (down); false when no 64-bit integer is on that side.
bool integerBound(const NumberBound& bound, bool up, IntegerValue& out) {
  switch (bound.kind) {
    case NumberBound::Kind::Signed:
      out = integerOf(bound.signedValue);
      return true;
    case NumberBound::Kind::Unsigned:
      out = unsignedOf(bound.unsignedValue);
      return true;
    case NumberBound::Kind::Floating:
      break;
  }
  const double rounded = up ? std::ceil(bound.floatingValue) : std::floor(bound.floatingValue);
  if (rounded < -kTwoTo63 || rounded >= kTwoTo64) return false;
  out = rounded < 0 ? integerOf(static_cast<std::int64_t>(rounded))
                    : unsignedOf(static_cast<std::uint64_t>(rounded));
  return true;
}

// The digits of a non-negative integer.
std::string digitsOf(std::uint64_t n) { return std::to_string(n); }

std::string digitClass(char low, char high) {
  if (low == high) return std::string(1, low);
  return std::string("[") + low + "-" + high + "]";
}

// A pattern for the digit strings of one length from low to high (low <= high).
std::string sameLength(const std::string& low, const std::string& high) {
  if (low == high) return low;
  const std::size_t rest = low.size() - 1;
  if (rest == 0) return digitClass(low[0], high[0]);
  const std::string lowRest = low.substr(1);
  const std::string highRest = high.substr(1);
  if (low[0] == high[0])
    return std::string(1, low[0]) + "(?:" + sameLength(lowRest, highRest) + ")";
  const std::string anyRest = rest == 1 ? "[0-9]" : "[0-9]{" + std::to_string(rest) + "}";
  const bool lowFull = lowRest.find_first_not_of('0') == std::string::npos;
  const bool highFull = highRest.find_first_not_of('9') == std::string::npos;
  std::vector<std::string> parts;
  char firstMiddle = static_cast<char>(low[0] + 1);
  char lastMiddle = static_cast<char>(high[0] - 1);
  if (lowFull) {
    firstMiddle = low[0];
  } else {
    parts.push_back(std::string(1, low[0]) + "(?:" + sameLength(lowRest, std::string(rest, '9')) +
                    ")");
  }
  if (highFull) lastMiddle = high[0];
  if (firstMiddle <= lastMiddle) parts.push_back(digitClass(firstMiddle, lastMiddle) + anyRest);
  if (!highFull) {
    parts.push_back(std::string(1, high[0]) + "(?:" + sameLength(std::string(rest, '0'), highRest) +
                    ")");
  }
  std::string out;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += '|';
    out += parts[i];
  }
  return out;
}

// A pattern for the decimal texts of [low, high] (low <= high), unanchored.
std::string unsignedRange(std::uint64_t low, std::uint64_t high) {
  const std::string highDigits = digitsOf(high);
  std::string out;
  for (std::size_t length = digitsOf(low).size(); length <= highDigits.size(); ++length) {
    std::string from =
        length == digitsOf(low).size() ? digitsOf(low) : "1" + std::string(length - 1, '0');
    if (length == 1 && length != digitsOf(low).size()) from = "0";
    const std::string to = length == highDigits.size() ? highDigits : std::string(length, '9');
    if (!out.empty()) out += '|';
    out += sameLength(from, to);
  }
  return out;
}

}  // namespace

int NumberBound::compare(const IntegerValue& value) const noexcept {
  switch (kind) {
    case Kind::Signed:
      return compareIntegers(value, integerOf(signedValue));
    case Kind::Unsigned:
      return compareIntegers(value, unsignedOf(unsignedValue));
    case Kind::Floating:
      break;
  }
  return compareIntegerWithDouble(value, floatingValue);
}

int NumberBound::compare(double value) const noexcept {
  switch (kind) {
    case Kind::Signed:
      return -compareIntegerWithDouble(integerOf(signedValue), value);
    case Kind::Unsigned:
      return -compareIntegerWithDouble(unsignedOf(unsignedValue), value);
    case Kind::Floating:
      break;
  }
  return sign(value<floatingValue, value> floatingValue);
}

std::string NumberBound::text() const {
  switch (kind) {
    case Kind::Signed:
      return std::to_string(signedValue);
    case Kind::Unsigned:
      return std::to_string(unsignedValue);
    case Kind::Floating:
      break;
  }
  return textOf(floatingValue);
}

Poco::Dynamic::Var NumberBound::var() const {
  switch (kind) {
    case Kind::Signed:
      return static_cast<Poco::Int64>(signedValue);
    case Kind::Unsigned:
      if (unsignedValue <= static_cast<std::uint64_t>(std::numeric_limits<Poco::Int64>::max())) {
        return static_cast<Poco::Int64>(unsignedValue);
      }
      return static_cast<Poco::UInt64>(unsignedValue);
    case Kind::Floating:
      break;
  }
  return floatingValue;
}

void ValueRules::checkInteger(const IntegerValue& value) const {
  if (minimum && minimum->compare(value) < 0) {
    throw MemberError(": " + textOf(value) + " is less than the minimum " + minimum->text());
  }
  if (maximum && maximum->compare(value) > 0) {
    throw MemberError(": " + textOf(value) + " is more than the maximum " + maximum->text());
  }
}

void ValueRules::checkNumber(double value) const {
  if (minimum && minimum->compare(value) < 0) {
    throw MemberError(": " + textOf(value) + " is less than the minimum " + minimum->text());
  }
  if (maximum && maximum->compare(value) > 0) {
    throw MemberError(": " + textOf(value) + " is more than the maximum " + maximum->text());
  }
}

void ValueRules::checkString(std::string_view value) const {
  if (minLength || maxLength) {
    const std::size_t length = codePoints(value);
    if (minLength && length < *minLength) {
      throw MemberError(": " + std::to_string(length) + " characters, fewer than " +
                        std::to_string(*minLength));
    }
    if (maxLength && length > *maxLength) {
      throw MemberError(": " + std::to_string(length) + " characters, more than " +
                        std::to_string(*maxLength));
    }
  }
  if (pattern && !std::regex_search(value.begin(), value.end(), *pattern)) {
    throw MemberError(": does not match \"" + patternText + "\"");
  }
}

void ValueRules::annotateNumber(Poco::JSON::Object& schema) const {
  if (minimum) schema.set("minimum", minimum->var());
  if (maximum) schema.set("maximum", maximum->var());
}

Poco::JSON::Object::Ptr ValueRules::integerSchema(std::int64_t typeMin,
                                                  std::uint64_t typeMax) const {
  const IntegerValue typeLow = integerOf(typeMin);
  const IntegerValue typeHigh = unsignedOf(typeMax);
  Poco::Dynamic::Var minimumVar = static_cast<Poco::Int64>(typeMin);
  Poco::Dynamic::Var maximumVar =
      NumberBound::of(typeMax).var();  // Int64 where it fits, as the parser reads it
  IntegerValue low = typeLow;
  IntegerValue high = typeHigh;
  bool empty = false;
  if (minimum && minimum->compare(typeLow) < 0) {  // tighter than the type's minimum
    minimumVar = minimum->var();
    empty = !integerBound(*minimum, true, low) || compareIntegers(low, typeHigh) > 0;
  }
  if (maximum && maximum->compare(typeHigh) > 0) {
    maximumVar = maximum->var();
    empty = empty || !integerBound(*maximum, false, high) || compareIntegers(high, typeLow) < 0;
  }
  empty = empty || compareIntegers(low, high) > 0;
  Poco::JSON::Object::Ptr schema = new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
  if (quoted) {
    Poco::JSON::Array::Ptr types = new Poco::JSON::Array;
    types->add(std::string("integer"));
    types->add(std::string("string"));
    schema->set("type", types);
    schema->set("pattern", empty ? std::string("^(?!)") : decimalRangePattern(low, high));
  } else {
    schema->set("type", std::string("integer"));
  }
  schema->set("minimum", minimumVar);
  schema->set("maximum", maximumVar);
  return schema;
}

void ValueRules::annotateString(Poco::JSON::Object& schema) const {
  if (minLength) schema.set("minLength", static_cast<Poco::UInt64>(*minLength));
  if (maxLength) schema.set("maxLength", static_cast<Poco::UInt64>(*maxLength));
  if (pattern) schema.set("pattern", patternText);
}

IntegerValue ValueRules::parseQuoted(std::string_view text) {
  const auto notAnInteger = [&] {
    throw MemberError(": \"" + std::string(text) + "\" is not an integer");
  };
  std::size_t at = 0;
  const bool negative = !text.empty() && text[0] == '-';
  if (negative) at = 1;
  if (at == text.size()) notAnInteger();
  if (text[at] == '0' && text.size() > at + 1) notAnInteger();  // a leading zero
  if (negative && text[at] == '0') notAnInteger();              // "-0"
  std::uint64_t magnitude = 0;
  bool tooLarge = false;
  for (std::size_t i = at; i < text.size(); ++i) {
    const char c = text[i];
    if (c < '0' || c > '9') notAnInteger();
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (magnitude > (std::numeric_limits<std::uint64_t>::max() - digit) / 10) tooLarge = true;
    if (!tooLarge) magnitude = magnitude * 10 + digit;
  }
  constexpr std::uint64_t kLargestNegative = std::uint64_t{1} << 63;
  if (tooLarge || (negative && magnitude > kLargestNegative)) {
    throw MemberError(": " + std::string(text) + " is out of range");
  }
  IntegerValue value;
  value.isNegative = negative;
  if (negative) {
    value.negative = magnitude == kLargestNegative ? std::numeric_limits<std::int64_t>::min()
                                                   : -static_cast<std::int64_t>(magnitude);
  } else {
    value.nonNegative = magnitude;
  }
  return value;
}

void ItemCounts::check(std::size_t count) const {
  if (minItems && count < *minItems) {
    throw MemberError(": " + std::to_string(count) + " items, fewer than " +
                      std::to_string(*minItems));
  }
  if (maxItems && count > *maxItems) {
    throw MemberError(": " + std::to_string(count) + " items, more than " +
                      std::to_string(*maxItems));
  }
}

void ItemCounts::annotate(Poco::JSON::Object& schema) const {
  if (minItems) schema.set("minItems", static_cast<Poco::UInt64>(*minItems));
  if (maxItems) schema.set("maxItems", static_cast<Poco::UInt64>(*maxItems));
}

std::string decimalRangePattern(const IntegerValue& min, const IntegerValue& max) {
  std::string out;
  if (min.isNegative) {
    // Magnitudes from |max| (or 1) up to |min|.
    const auto magnitude = [](std::int64_t n) { return static_cast<std::uint64_t>(-(n + 1)) + 1; };
    const std::uint64_t nearest = max.isNegative ? magnitude(max.negative) : 1;
    out += "-(?:" + unsignedRange(nearest, magnitude(min.negative)) + ")";
  }
  if (!max.isNegative) {
    if (!out.empty()) out += '|';
    out += unsignedRange(min.isNegative ? 0 : min.nonNegative, max.nonNegative);
  }
  return "^(?:" + out + ")$";
}

}  // namespace connector::json::detail

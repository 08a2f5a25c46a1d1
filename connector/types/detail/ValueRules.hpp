// connector::json::detail::ValueRules: the limits that json::Field puts on the innermost
// values of one member (bounds on numbers, lengths and a pattern on strings, integers
// quoted as strings), checked by the codecs of integers, floating point and strings
// after their own reading rules, and shown in their schemas; ItemCounts: the bounds on
// the number of items of a member's own array.
//
//   ValueRules rules;
//   rules.minimum = NumberBound::of(1);
//   rules.checkInteger(value);                 // MemberError ": 0 is less than the minimum 1"
//   rules.annotate(*schema);                   // "minimum":1
//
// Thread-safety: built while declaring; afterwards immutable and shared by the codecs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <type_traits>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include "connector/Export.hpp"
#include "connector/types/detail/ValueKinds.hpp"

namespace connector::json::detail {

// A bound given as any integer or floating-point value, kept exactly.
struct CONNECTOR_API NumberBound {
  enum class Kind { Signed, Unsigned, Floating };
  Kind kind = Kind::Signed;
  std::int64_t signedValue = 0;
  std::uint64_t unsignedValue = 0;
  double floatingValue = 0;

  template <typename N>
  static NumberBound of(N value) {
    static_assert(std::is_arithmetic_v<N> && !std::is_same_v<N, bool>,
                  "a bound is an integer or a floating-point value");
    NumberBound bound;
    if constexpr (std::is_floating_point_v<N>) {
      bound.kind = Kind::Floating;
      bound.floatingValue = static_cast<double>(value);
    } else if constexpr (std::is_signed_v<N>) {
      bound.kind = Kind::Signed;
      bound.signedValue = static_cast<std::int64_t>(value);
    } else {
      bound.kind = Kind::Unsigned;
      bound.unsignedValue = static_cast<std::uint64_t>(value);
    }
    return bound;
  }

  // -1, 0 or 1 as value is below, at or above the bound (exact, whatever the kinds).
  int compare(const IntegerValue& value) const noexcept;
  int compare(double value) const noexcept;
  // As the writer writes it: integers in decimal, floating point in its shortest form.
  std::string text() const;
  // As a JSON value of the schema.
  Poco::Dynamic::Var var() const;
};

class CONNECTOR_API ValueRules {
 public:
  bool quoted = false;  // integers written as strings of decimal digits
  std::optional<NumberBound> minimum;
  std::optional<NumberBound> maximum;
  std::optional<std::size_t> minLength;  // in code points
  std::optional<std::size_t> maxLength;
  std::optional<std::regex> pattern;  // ECMAScript, searched anywhere in the string
  std::string patternText;

  // Throw MemberError ": <value> is less than the minimum <min>" or
  // ": <value> is more than the maximum <max>".
  void checkInteger(const IntegerValue& value) const;
  void checkNumber(double value) const;
  // Throws MemberError ": <n> characters, fewer than <min>", ": <n> characters, more
  // than <max>" or ": does not match \"<regex>\"".
  void checkString(std::string_view value) const;

  // Adds the bounds to the schema of a number member.
  void annotateNumber(Poco::JSON::Object& schema) const;
  // The schema of an integer member whose type holds [typeMin, typeMax]: the tighter of
  // each bound, and for a quoted member {"type":["integer","string"]} with a pattern
  // that matches exactly the decimal strings within the bounds.
  Poco::JSON::Object::Ptr integerSchema(std::int64_t typeMin, std::uint64_t typeMax) const;
  // Adds the lengths and the pattern to the schema of a string member.
  void annotateString(Poco::JSON::Object& schema) const;

  // A quoted integer's text: its value, or a MemberError "\"<text>\" is not an integer"
  // (a JSON integer's digits without "-0", leading zeros or a sign "+") or
  // "<text> is out of range" (beyond 64 bits).
  static IntegerValue parseQuoted(std::string_view text);
};

// Bounds on the number of items of a member's own array (a vector or a set).
struct CONNECTOR_API ItemCounts {
  std::optional<std::size_t> minItems;
  std::optional<std::size_t> maxItems;

  // Throws MemberError ": <count> items, fewer than <min>" or ": <count> items, more
  // than <max>".
  void check(std::size_t count) const;
  void annotate(Poco::JSON::Object& schema) const;
};

// A regular expression that matches exactly the decimal texts of the integers in
// [min, max] (no leading zeros, no "-0"), anchored at both ends; min <= max.
CONNECTOR_API std::string decimalRangePattern(const IntegerValue& min, const IntegerValue& max);

}  // namespace connector::json::detail

// What kind of JSON value a Poco::Dynamic::Var holds, and the reading steps that the
// declared types' codecs share: integers with their exact value, and the member errors
// for a wrong kind, a value out of range and a value that cannot be written.
//
//   if (kindOf(value) != Kind::String) throwKindMismatch(Kind::String, value);
//   const IntegerValue n = integerValue(value);   // or a MemberError "expected an integer"
//
// Poco's parser hands integers over as Int64 (or UInt64 above the Int64 range), fractions
// and exponents as double, null as an empty Var, objects and arrays as shared pointers;
// objects built by hand may hold any other arithmetic type, or Object and Array values.
//
// Thread-safety: pure functions.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>

#include <Poco/Dynamic/Var.h>

#include "connector/Export.hpp"

namespace connector::json::detail {

enum class Kind { Null, Boolean, Integer, Number, String, Array, Object };

// The kind of JSON value held: empty is Null, bool is Boolean, integral types Integer,
// floating types Number, strings String, JSON arrays (and vectors of Var) Array, JSON
// objects Object. A null Object::Ptr or Array::Ptr is Null. Any other holder (a date,
// for instance) counts as String.
CONNECTOR_API Kind kindOf(const Poco::Dynamic::Var& value);

// "a boolean", "an integer", "a number", "a string", "an array", "an object", "null".
CONNECTOR_API const char* kindName(Kind kind);

// Throws MemberError ": expected <kind>, got <kind of value>".
[[noreturn]] CONNECTOR_API void throwKindMismatch(Kind expected, const Poco::Dynamic::Var& value);

// An integer as parsed: negative values in `negative`, the others in `nonNegative`.
struct IntegerValue {
  bool isNegative = false;
  std::int64_t negative = 0;
  std::uint64_t nonNegative = 0;
};

// The exact value of an integer Var of any integral type. Throws MemberError
// ": expected an integer, got <kind>" for any other kind (a double 1.0 included).
CONNECTOR_API IntegerValue integerValue(const Poco::Dynamic::Var& value);

// Throws MemberError ": <value> is out of range", the value in decimal as parsed.
[[noreturn]] CONNECTOR_API void throwOutOfRange(std::int64_t value);
[[noreturn]] CONNECTOR_API void throwOutOfRange(std::uint64_t value);
// The same for a number, written as the writer writes it (a float member given 1e39).
[[noreturn]] CONNECTOR_API void throwOutOfRange(double value);

// Throws MemberError ": the string is not valid UTF-8" (writing only: the reader would
// refuse the text).
[[noreturn]] CONNECTOR_API void throwNotUtf8();

// Throws MemberError ": <inf, -inf or nan> is not a finite number" (writing only: JSON
// has no such numbers).
[[noreturn]] CONNECTOR_API void throwNotFinite(double value);

// The string held by a String Var (a copy for other string-like holders). Throws
// MemberError ": expected a string, got <kind>" for other kinds.
CONNECTOR_API const std::string& stringValue(const Poco::Dynamic::Var& value,
                                             std::string& conversion);

// Whether an integer in [min, max] of an integral type I holds the value.
template <typename I>
bool fits(const IntegerValue& n) {
  if (n.isNegative) {
    if constexpr (std::is_signed_v<I>) {
      return n.negative >= static_cast<std::int64_t>(std::numeric_limits<I>::min());
    } else {
      return false;
    }
  }
  return n.nonNegative <= static_cast<std::uint64_t>(std::numeric_limits<I>::max());
}

}  // namespace connector::json::detail

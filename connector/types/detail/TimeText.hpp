// The text forms of times and durations that the declared types write and read: a time
// as an RFC 3339 date-time in UTC, a duration as seconds with an "s"; both counted here
// in nanoseconds (128 bits wide, so that every std::chrono duration of whole nanoseconds
// fits), with the fewest fraction digits of 0, 3, 6 or 9 that hold the value exactly.
//
//   appendTimePoint(out, 1795547778'000'000'000);  // 2026-11-23T19:16:18Z
//   appendDuration(out, 1'500'000'000);            // 1.500s
//   Nanoseconds n;
//   readTimePoint("2026-11-23T20:16:18.5+01:00", n) == TextReading::Read;
//   readDuration("1.5s", n) == TextReading::Read;  // n == 1'500'000'000
//
// Thread-safety: pure functions.
#pragma once

#include <string>
#include <string_view>

#include "connector/Export.hpp"

namespace connector::json::detail {

__extension__ using Nanoseconds = __int128;

enum class TextReading {
  Read,         // the value is set
  NotThisForm,  // the text is not of the form read
  OutOfRange,   // of the form, but more digits or a larger value than 128-bit nanoseconds
};

// The time nanoseconds after 1970-01-01T00:00:00Z (without quotes); false (nothing appended)
// when its year is outside 0000..9999.
CONNECTOR_API bool appendTimePoint(std::string& out, Nanoseconds nanoseconds);

// Any RFC 3339 date-time ("T" or "t", "Z", "z" or an offset, any number of fraction
// digits): the nanoseconds since 1970-01-01T00:00:00Z. A second of 60 is the first
// second of the next minute. Fraction digits past the ninth must be zeros
// (OutOfRange otherwise).
CONNECTOR_API TextReading readTimePoint(std::string_view text, Nanoseconds& nanoseconds);

// The duration as seconds (without quotes): 3s, 1.500s, -0.000001s.
CONNECTOR_API void appendDuration(std::string& out, Nanoseconds nanoseconds);

// "-"? digits ("." 1 to 9 digits)? "s": the nanoseconds it holds.
CONNECTOR_API TextReading readDuration(std::string_view text, Nanoseconds& nanoseconds);

// Throw MemberError ": \"<text>\" is not an RFC 3339 date-time", ": \"<text>\" is not
// a duration such as \"1.5s\"" and ": \"<text>\" is out of range".
[[noreturn]] CONNECTOR_API void throwNotTimePoint(std::string_view text);
[[noreturn]] CONNECTOR_API void throwNotDuration(std::string_view text);
[[noreturn]] CONNECTOR_API void throwTextOutOfRange(std::string_view text);

// Patterns (anchored) of the texts read, for the schemas; digits is the number of
// fraction digits the member's type holds (0 to 9): more must be zeros.
CONNECTOR_API std::string timePointPattern(int digits);
CONNECTOR_API std::string durationPattern(int digits);

}  // namespace connector::json::detail

// The codecs of times and durations: std::chrono::system_clock's time points as RFC 3339
// date-times in UTC ("2026-11-23T19:16:18Z"), std::chrono::durations as seconds with an
// "s" ("1.500s"); both with the fewest fraction digits of 0, 3, 6 or 9 that hold the
// value exactly (see TimeText.hpp). Both read only what the member's type holds exactly:
// anything finer or larger is refused as out of range.
//
//   TimePointCodec<std::chrono::nanoseconds> codec;
//   codec.write(std::chrono::system_clock::time_point{});   // "1970-01-01T00:00:00Z"
//
// A type counts whole nanoseconds or coarser units with an integer count (the text has at
// most nine fraction digits).
//
// Thread-safety: as every codec (immutable once built).
#pragma once

#include <chrono>
#include <limits>
#include <ratio>
#include <string>
#include <type_traits>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include "connector/serializer/detail/DirectReader.hpp"
#include "connector/types/detail/Codecs.hpp"
#include "connector/types/detail/SchemaParts.hpp"
#include "connector/types/detail/TimeText.hpp"
#include "connector/types/detail/ValueKinds.hpp"

namespace connector::json::detail {

// What one tick of a duration of period Period is in nanoseconds, and the fraction
// digits it holds.
template <typename Rep, typename Period>
struct TickOf {
  static_assert(std::is_integral_v<Rep> && !std::is_same_v<Rep, bool>,
                "a duration member counts its ticks in an integer type");
  using InNanoseconds = std::ratio_divide<Period, std::nano>;
  static_assert(InNanoseconds::den == 1,
                "a duration member counts whole nanoseconds or coarser units");
  static constexpr long long kNanoseconds = InNanoseconds::num;

  static constexpr int digits() {
    int digits = 9;
    for (long long tick = kNanoseconds; tick % 10 == 0 && digits > 0; tick /= 10) --digits;
    return digits;
  }

  static Nanoseconds toNanoseconds(Rep ticks) {
    return static_cast<Nanoseconds>(ticks) * kNanoseconds;
  }
  // False when n is not a whole number of ticks that Rep holds.
  static bool fromNanoseconds(Nanoseconds n, Rep& ticks) {
    if (n % kNanoseconds != 0) return false;
    const Nanoseconds count = n / kNanoseconds;
    if (count < static_cast<Nanoseconds>(std::numeric_limits<Rep>::min()) ||
        count > static_cast<Nanoseconds>(std::numeric_limits<Rep>::max())) {
      return false;
    }
    ticks = static_cast<Rep>(count);
    return true;
  }
};

template <typename Duration>
struct TimePointCodec {
  using Value = std::chrono::time_point<std::chrono::system_clock, Duration>;
  using Tick = TickOf<typename Duration::rep, typename Duration::period>;
  static constexpr bool optional = false;

  Var write(const Value& value) const {
    std::string text;
    append(value, text);
    return text;
  }
  void read(const Var& json, Value& out) const {
    std::string conversion;
    take(stringValue(json, conversion), out);
  }
  SchemaPtr schema() const {
    SchemaPtr schema = typeSchema("string");
    schema->set("format", std::string("date-time"));
    schema->set("pattern", timePointPattern(Tick::digits()));
    return schema;
  }
  void writeText(const Value& value, std::string& out) const {
    out.push_back('"');
    append(value, out);
    out.push_back('"');
  }
  void readDirect(DirectReader& in, Value& out) const { take(in.readString(), out); }

 private:
  static void append(const Value& value, std::string& out) {
    const typename Duration::rep ticks = value.time_since_epoch().count();
    if (!appendTimePoint(out, Tick::toNanoseconds(ticks))) {
      if constexpr (std::is_signed_v<typename Duration::rep>) {
        throwOutOfRange(static_cast<std::int64_t>(ticks));
      } else {
        throwOutOfRange(static_cast<std::uint64_t>(ticks));
      }
    }
  }
  static void take(std::string_view text, Value& out) {
    Nanoseconds n = 0;
    const TextReading reading = readTimePoint(text, n);
    if (reading == TextReading::NotThisForm) throwNotTimePoint(text);
    typename Duration::rep ticks{};
    if (reading == TextReading::OutOfRange || !Tick::fromNanoseconds(n, ticks)) {
      throwTextOutOfRange(text);
    }
    out = Value(Duration(ticks));
  }
};

template <typename Rep, typename Period>
struct DurationCodec {
  using Value = std::chrono::duration<Rep, Period>;
  using Tick = TickOf<Rep, Period>;
  static constexpr bool optional = false;

  Var write(const Value& value) const {
    std::string text;
    appendDuration(text, Tick::toNanoseconds(value.count()));
    return text;
  }
  void read(const Var& json, Value& out) const {
    std::string conversion;
    take(stringValue(json, conversion), out);
  }
  SchemaPtr schema() const {
    SchemaPtr schema = typeSchema("string");
    schema->set("pattern", durationPattern(Tick::digits()));
    return schema;
  }
  void writeText(const Value& value, std::string& out) const {
    out.push_back('"');
    appendDuration(out, Tick::toNanoseconds(value.count()));
    out.push_back('"');
  }
  void readDirect(DirectReader& in, Value& out) const { take(in.readString(), out); }

 private:
  static void take(std::string_view text, Value& out) {
    Nanoseconds n = 0;
    const TextReading reading = readDuration(text, n);
    if (reading == TextReading::NotThisForm) throwNotDuration(text);
    Rep ticks{};
    if (reading == TextReading::OutOfRange || !Tick::fromNanoseconds(n, ticks)) {
      throwTextOutOfRange(text);
    }
    out = Value(ticks);
  }
};

}  // namespace connector::json::detail

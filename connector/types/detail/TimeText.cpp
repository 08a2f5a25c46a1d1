#include "connector/types/detail/TimeText.hpp"

#include <cstdint>
#include <string>

#include "connector/types/detail/MemberError.hpp"

namespace connector::json::detail {

namespace {

constexpr std::int64_t kNanosPerSecond = 1'000'000'000;
constexpr std::int64_t kSecondsPerDay = 86'400;
__extension__ using Magnitude = unsigned __int128;

// Days since 1970-01-01 of a proleptic Gregorian date.
std::int64_t daysFromCivil(std::int64_t year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

void civilFromDays(std::int64_t days, std::int64_t& year, int& month, int& day) {
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const std::int64_t dayOfEra = days - era * 146097;
  const std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shifted = (5 * dayOfYear + 2) / 153;
  day = static_cast<int>(dayOfYear - (153 * shifted + 2) / 5 + 1);
  month = static_cast<int>(shifted < 10 ? shifted + 3 : shifted - 9);
  year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
}

bool leapYear(std::int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int daysInMonth(std::int64_t year, int month) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && leapYear(year) ? 29 : kDays[month - 1];
}

void appendDigits(std::string& out, std::int64_t value, int width) {
  char digits[24];
  for (int i = width - 1; i >= 0; --i) {
    digits[i] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
  out.append(digits, static_cast<std::size_t>(width));
}

// ".ddd", ".dddddd" or ".ddddddddd": the fewest that hold the fraction; nothing for 0.
void appendFraction(std::string& out, std::int64_t nanos) {
  if (nanos == 0) return;
  out.push_back('.');
  if (nanos % 1'000'000 == 0) {
    appendDigits(out, nanos / 1'000'000, 3);
  } else if (nanos % 1'000 == 0) {
    appendDigits(out, nanos / 1'000, 6);
  } else {
    appendDigits(out, nanos, 9);
  }
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// count digits at text[at...] as a number; false when they are not all digits.
bool number(std::string_view text, std::size_t at, std::size_t count, int& out) {
  if (at + count > text.size()) return false;
  out = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (!isDigit(text[i])) return false;
    out = out * 10 + (text[i] - '0');
  }
  return true;
}

// Fraction digits from text[at] on: the nanoseconds they hold; `at` moves past them.
// OutOfRange when a digit past the ninth is not zero; NotThisForm without digits.
TextReading fraction(std::string_view text, std::size_t& at, std::int64_t& nanos,
                     std::size_t maxDigits) {
  const std::size_t first = at;
  nanos = 0;
  bool inexact = false;
  while (at < text.size() && isDigit(text[at])) {
    const std::size_t position = at - first;
    if (position < 9) {
      nanos = nanos * 10 + (text[at] - '0');
    } else if (text[at] != '0') {
      inexact = true;
    }
    ++at;
  }
  const std::size_t count = at - first;
  if (count == 0 || count > maxDigits) return TextReading::NotThisForm;
  for (std::size_t i = count; i < 9; ++i) nanos *= 10;
  return inexact ? TextReading::OutOfRange : TextReading::Read;
}

std::string fractionPattern(int digits, bool anyCount) {
  if (digits <= 0) return anyCount ? "(?:\\.0+)?" : "(?:\\.0{1,9})?";
  const std::string held = digits == 1 ? "[0-9]" : "[0-9]{1," + std::to_string(digits) + "}";
  if (anyCount) return "(?:\\." + held + "0*)?";
  if (digits >= 9) return "(?:\\." + held + ")?";
  return "(?:\\." + held + "0{0," + std::to_string(9 - digits) + "})?";
}

}  // namespace

bool appendTimePoint(std::string& out, Nanoseconds nanoseconds) {
  Nanoseconds seconds = nanoseconds / kNanosPerSecond;
  Nanoseconds nanos = nanoseconds % kNanosPerSecond;
  if (nanos < 0) {
    nanos += kNanosPerSecond;
    --seconds;
  }
  Nanoseconds days = seconds / kSecondsPerDay;
  Nanoseconds secondOfDay = seconds % kSecondsPerDay;
  if (secondOfDay < 0) {
    secondOfDay += kSecondsPerDay;
    --days;
  }
  constexpr std::int64_t kFirstDay = -719528;  // 0000-01-01
  constexpr std::int64_t kLastDay = 2932896;   // 9999-12-31
  if (days < kFirstDay || days > kLastDay) return false;
  std::int64_t year = 0;
  int month = 0;
  int day = 0;
  civilFromDays(static_cast<std::int64_t>(days), year, month, day);
  const auto second = static_cast<std::int64_t>(secondOfDay);
  appendDigits(out, year, 4);
  out.push_back('-');
  appendDigits(out, month, 2);
  out.push_back('-');
  appendDigits(out, day, 2);
  out.push_back('T');
  appendDigits(out, second / 3600, 2);
  out.push_back(':');
  appendDigits(out, second / 60 % 60, 2);
  out.push_back(':');
  appendDigits(out, second % 60, 2);
  appendFraction(out, static_cast<std::int64_t>(nanos));
  out.push_back('Z');
  return true;
}

TextReading readTimePoint(std::string_view text, Nanoseconds& nanoseconds) {
  // YYYY-MM-DDTHH:MM:SS[.f...](Z|+HH:MM|-HH:MM)
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (!number(text, 0, 4, year) || text.size() < 19 || text[4] != '-' ||
      !number(text, 5, 2, month) || text[7] != '-' || !number(text, 8, 2, day) ||
      (text[10] != 'T' && text[10] != 't') || !number(text, 11, 2, hour) || text[13] != ':' ||
      !number(text, 14, 2, minute) || text[16] != ':' || !number(text, 17, 2, second)) {
    return TextReading::NotThisForm;
  }
  if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) || hour > 23 ||
      minute > 59 || second > 60) {
    return TextReading::NotThisForm;
  }
  std::size_t at = 19;
  std::int64_t nanos = 0;
  TextReading reading = TextReading::Read;
  if (at < text.size() && text[at] == '.') {
    ++at;
    reading = fraction(text, at, nanos, static_cast<std::size_t>(-1));
    if (reading == TextReading::NotThisForm) return reading;
  }
  if (at >= text.size()) return TextReading::NotThisForm;
  std::int64_t offset = 0;  // seconds east of UTC
  if (text[at] == 'Z' || text[at] == 'z') {
    ++at;
  } else if (text[at] == '+' || text[at] == '-') {
    int offsetHours = 0;
    int offsetMinutes = 0;
    if (!number(text, at + 1, 2, offsetHours) || at + 3 >= text.size() || text[at + 3] != ':' ||
        !number(text, at + 4, 2, offsetMinutes) || offsetHours > 23 || offsetMinutes > 59) {
      return TextReading::NotThisForm;
    }
    offset = static_cast<std::int64_t>(offsetHours * 60 + offsetMinutes) * 60;
    if (text[at] == '-') offset = -offset;
    at += 6;
  } else {
    return TextReading::NotThisForm;
  }
  if (at != text.size()) return TextReading::NotThisForm;
  if (reading == TextReading::OutOfRange) return reading;
  const std::int64_t seconds = daysFromCivil(year, month, day) * kSecondsPerDay +
                               std::int64_t{hour} * 3600 + std::int64_t{minute} * 60 + second -
                               offset;
  nanoseconds = static_cast<Nanoseconds>(seconds) * kNanosPerSecond + nanos;
  return TextReading::Read;
}

void appendDuration(std::string& out, Nanoseconds nanoseconds) {
  if (nanoseconds < 0) out.push_back('-');
  // The magnitude, without negating the most negative value.
  const Magnitude magnitude =
      static_cast<Magnitude>(nanoseconds < 0 ? -(nanoseconds + 1) : nanoseconds) +
      (nanoseconds < 0 ? 1 : 0);
  Magnitude seconds = magnitude / kNanosPerSecond;
  const auto nanos = static_cast<std::int64_t>(magnitude % kNanosPerSecond);
  char digits[48];
  int count = 0;
  do {
    digits[count++] = static_cast<char>('0' + static_cast<int>(seconds % 10));
    seconds /= 10;
  } while (seconds != 0);
  while (count > 0) out.push_back(digits[--count]);
  appendFraction(out, nanos);
  out.push_back('s');
}

TextReading readDuration(std::string_view text, Nanoseconds& nanoseconds) {
  std::size_t at = 0;
  const bool negative = !text.empty() && text[0] == '-';
  if (negative) at = 1;
  const std::size_t first = at;
  Nanoseconds seconds = 0;
  bool tooLarge = false;
  while (at < text.size() && isDigit(text[at])) {
    // Up to 10^28 seconds, so that the nanoseconds fit in 128 bits.
    if (seconds >= Nanoseconds{1'000'000'000'000'000'000} * 10'000'000'000) tooLarge = true;
    if (!tooLarge) seconds = seconds * 10 + (text[at] - '0');
    ++at;
  }
  if (at == first) return TextReading::NotThisForm;
  std::int64_t nanos = 0;
  if (at < text.size() && text[at] == '.') {
    ++at;
    if (fraction(text, at, nanos, 9) != TextReading::Read) return TextReading::NotThisForm;
  }
  if (at + 1 != text.size() || text[at] != 's') return TextReading::NotThisForm;
  if (tooLarge) return TextReading::OutOfRange;
  nanoseconds = seconds * kNanosPerSecond + nanos;
  if (negative) nanoseconds = -nanoseconds;
  return TextReading::Read;
}

void throwNotTimePoint(std::string_view text) {
  throw MemberError(": \"" + std::string(text) + "\" is not an RFC 3339 date-time");
}

void throwNotDuration(std::string_view text) {
  throw MemberError(": \"" + std::string(text) + "\" is not a duration such as \"1.5s\"");
}

void throwTextOutOfRange(std::string_view text) {
  throw MemberError(": \"" + std::string(text) + "\" is out of range");
}

std::string timePointPattern(int digits) {
  const std::string leapYear =
      "(?:[0-9]{2}(?:0[48]|[2468][048]|[13579][26])|(?:[02468][048]|[13579][26])00)";
  const std::string monthDay =
      "(?:(?:0[13578]|1[02])-(?:0[1-9]|[12][0-9]|3[01])|(?:0[469]|11)-(?:0[1-9]|[12][0-9]|30)|"
      "02-(?:0[1-9]|1[0-9]|2[0-8]))";
  return "^(?:[0-9]{4}-" + monthDay + "|" + leapYear +
         "-02-29)[Tt](?:[01][0-9]|2[0-3]):[0-5][0-9]:(?:[0-5][0-9]|60)" +
         fractionPattern(digits, true) + "(?:[Zz]|[+-](?:[01][0-9]|2[0-3]):[0-5][0-9])$";
}

std::string durationPattern(int digits) {
  return "^-?[0-9]+" + fractionPattern(digits, false) + "s$";
}

}  // namespace connector::json::detail

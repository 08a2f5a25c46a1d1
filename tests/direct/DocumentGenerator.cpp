#include "direct/DocumentGenerator.hpp"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <regex>
#include <typeinfo>
#include <vector>

#include <Poco/JSON/Array.h>

namespace connector::testing {

namespace {

// Numbers at the edges of what the two parsers read, as they may appear in a document.
const char* const kNumberEdges[] = {"0",
                                    "-0",
                                    "0.0",
                                    "-0.0",
                                    "1",
                                    "-1",
                                    "0.1",
                                    "-0.1",
                                    "1e21",
                                    "1E21",
                                    "1e+21",
                                    "1e-7",
                                    "1.5e-7",
                                    "1e308",
                                    "-1e308",
                                    "1.7976931348623157e308",
                                    "5e-324",
                                    "-5e-324",
                                    "4.9e-324",
                                    "2.2250738585072014e-308",
                                    "2.2250738585072011e-308",
                                    "1e-320",
                                    "9007199254740993",
                                    "9007199254740992",
                                    "-9007199254740993",
                                    "9223372036854775807",
                                    "-9223372036854775808",
                                    "18446744073709551615",
                                    "9223372036854775808",
                                    "0.30000000000000004",
                                    "123456.789e3",
                                    "3.4028234663852886e38",
                                    "3.4028235677973366e38",
                                    "3.5e38",
                                    "-3.5e38",
                                    "1.401298464e-45",
                                    "1e-46",
                                    "100",
                                    "1e2",
                                    "1E+2",
                                    "12345678901234567890e-5",
                                    "0.000001",
                                    "1e15",
                                    "1e16",
                                    "123456789012345.6",
                                    "1234567890123456.7",
                                    "4.35",
                                    "2.5",
                                    "0.5e1",
                                    "1e0",
                                    "0.1000000000000000055511151231257827021181583404541015625"};

// Numbers that the parsers refuse or might read differently.
const char* const kBadNumbers[] = {
    "1e400",
    "-1e400",
    "1e309",
    "123456789012345678901234",
    "18446744073709551616",
    "18446744073709551619",
    "-9223372036854775809",
    "-18446744073709551616",
    "1.",
    ".5",
    "01",
    "-01",
    "1e",
    "1e+",
    "+1",
    "0x10",
    "NaN",
    "Infinity",
    "-Infinity",
    "1.5x",
    "--1",
    "1ee2",
    "2e308",
    "1"
    "00000000000000000000000000000000000000000000000000000000000000000000000"
    "00000000000000000000000000000000000000000000000000000000000000000000000"
    "00000000000000000000000000000000000000000000000000000000000000000000000"
    "00000000000000000000000000000000000000000000000000000000000000000000000"
    "00000000000000000000000000000000000000000000.0"};

// Strings the parsers refuse, quotes included.
const char* const kBadStrings[] = {"\"\xff\"",     "\"\xc3\x28\"",   "\"\xed\xa0\x80\"",
                                   "\"\\ud800\"",  "\"\\udc00x\"",   "\"\\ud800\\u0041\"",
                                   "\"\\x41\"",    "\"\x01\"",       "\"a\tb\"",
                                   "\"\\u12\"",    "\"\\u12G4\"",    "\"\xf4\x90\x80\x80\"",
                                   "\"\xc0\xaf\"", "\"unterminated", "'single'"};

// Strings that are nearly a time, a duration, base64 or a quoted integer, quotes included.
const char* const kNearlyTexts[] = {"\"2026-02-30T00:00:00Z\"",
                                    "\"2026-11-23 19:16:18Z\"",
                                    "\"2026-11-23T19:16:18\"",
                                    "\"2026-11-23T24:00:00Z\"",
                                    "\"2026-11-23T19:16:18.Z\"",
                                    "\"2026-11-23T19:16:18+1:00\"",
                                    "\"9999-12-31T23:59:59Z\"",
                                    "\"1600-02-29T00:00:00Z\"",
                                    "\"2024-02-29T23:59:60Z\"",
                                    "\"2026-11-23T19:16:18.1234567891Z\"",
                                    "\"1.5\"",
                                    "\"1.2345678901s\"",
                                    "\"1e3s\"",
                                    "\".5s\"",
                                    "\"99999999999999999999s\"",
                                    "\"9223372037s\"",
                                    "\"-0s\"",
                                    "\"1.0001s\"",
                                    "\"AAE\"",
                                    "\"A===\"",
                                    "\"AB=C\"",
                                    "\"AB==\"",
                                    "\"AR==\"",
                                    "\"Zm9v!\"",
                                    "\"01\"",
                                    "\"-0\"",
                                    "\"+1\"",
                                    "\"1e3\"",
                                    "\"99999999999999999999\"",
                                    "\"-9223372036854775809\"",
                                    "\"18446744073709551615\""};

// Pieces of text: plain, escaped, non-ASCII (two-, three- and four-byte UTF-8).
const char* const kTextPieces[] = {"LAMP-01",
                                   "a",
                                   "",
                                   " ",
                                   "\\\"",
                                   "\\\\",
                                   "\\/",
                                   "\\b\\f\\n\\r\\t",
                                   "\\u0000",
                                   "\\u001f",
                                   "\\u00e9",
                                   "\\u20AC",
                                   "\\ud83d\\ude00",
                                   "é",
                                   "€",
                                   "😀",
                                   "日本語",
                                   "~/",
                                   "type",
                                   "\x7f",
                                   "\\u007f",
                                   "\\uFFFF",
                                   "\xef\xbf\xbf",
                                   "\\uD834\\uDD1E"};

const char* const kKeys[] = {"extra", "type", "",         "é",     "~/x", "a\\u0062",
                             "items", "sku",  "quantity", "x\\ny", "id"};

std::string kindLiteral(std::uint64_t which) {
  switch (which % 7) {
    case 0:
      return "null";
    case 1:
      return "true";
    case 2:
      return "false";
    case 3:
      return "42";
    case 4:
      return "\"text\"";
    case 5:
      return "[1,\"x\"]";
    default:
      return "{\"k\":null}";
  }
}

}  // namespace

std::string DocumentGenerator::document(const Poco::JSON::Object& schema, double mutateRate) {
  mutate = mutateRate;
  std::string out;
  if (chance(0.1)) space(out);
  object(schema, out, 1);
  if (chance(0.1)) space(out);
  if (mutate > 0 && chance(mutate)) {
    static const char* const kTrailing[] = {" x", "{}", ",", "]", "}", " null", "\n\t "};
    out += kTrailing[below(std::size(kTrailing))];
  }
  return out;
}

std::string DocumentGenerator::damaged(const std::string& text) {
  std::string out = text;
  if (out.empty()) return "{";
  const std::size_t at = below(out.size());
  switch (below(6)) {
    case 0:  // cut short
      out.resize(at);
      break;
    case 1:  // a byte dropped
      out.erase(at, 1);
      break;
    case 2:  // a byte changed
      out[at] = static_cast<char>(below(256));
      break;
    case 3:  // a byte inserted
      out.insert(at, 1, static_cast<char>(below(256)));
      break;
    case 4: {  // a piece repeated
      const std::size_t length = std::min<std::size_t>(below(16) + 1, out.size() - at);
      out.insert(at, out.substr(at, length));
      break;
    }
    default:  // a structural character swapped for another
      static const char kStructural[] = "{}[],:\" ";
      out[at] = kStructural[below(sizeof kStructural - 1)];
      break;
  }
  return out;
}

std::string DocumentGenerator::anyValue(int depth) {
  const std::uint64_t kind = below(depth > 0 ? 7 : 5);
  switch (kind) {
    case 0:
      return "null";
    case 1:
      return chance(0.5) ? "true" : "false";
    case 2:
      return number();
    case 3:
    case 4:
      return "\"" + text() + "\"";
    case 5: {
      std::string out = "[";
      const std::uint64_t count = below(4);
      for (std::uint64_t i = 0; i < count; ++i) {
        if (i > 0) out += ',';
        out += anyValue(depth - 1);
      }
      return out + "]";
    }
    default: {
      std::string out = "{";
      const std::uint64_t count = below(4);
      for (std::uint64_t i = 0; i < count; ++i) {
        if (i > 0) out += ',';
        out += "\"" + key() + "\":" + anyValue(depth - 1);
      }
      return out + "}";
    }
  }
}

void DocumentGenerator::space(std::string& out) {
  static const char kSpaces[] = " \t\n\r";
  const std::uint64_t count = below(3) + 1;
  for (std::uint64_t i = 0; i < count; ++i) out += kSpaces[below(4)];
}

void DocumentGenerator::value(const Poco::JSON::Object& schema, std::string& out, int depth) {
  if (mutate > 0 && chance(mutate)) {
    mutation(schema, out, depth);
    return;
  }
  if (chance(0.05)) space(out);
  if (schema.has("const")) {
    out += "\"" + schema.getValue<std::string>("const") + "\"";
  } else if (schema.has("enum")) {
    const auto names = schema.getArray("enum");
    out +=
        "\"" + names->getElement<std::string>(static_cast<unsigned>(below(names->size()))) + "\"";
  } else if (schema.has("anyOf")) {
    const auto choices = schema.getArray("anyOf");
    if (chance(0.25)) {
      out += "null";
    } else {
      value(*choices->getObject(0), out, depth);
    }
  } else if (schema.has("oneOf")) {  // a tagged union: one alternative's object
    const auto choices = schema.getArray("oneOf");
    object(*choices->getObject(static_cast<unsigned>(below(choices->size()))), out, depth + 1);
  } else if (schema.get("type").isArray()) {  // a quoted integer: ["integer","string"]
    std::string digits = integer(schema);
    if (digits == "-0") digits = "0";
    out += chance(0.5) ? "\"" + digits + "\"" : digits;
  } else {
    const std::string type = schema.getValue<std::string>("type");
    if (type == "boolean") {
      out += chance(0.5) ? "true" : "false";
    } else if (type == "integer") {
      out += integer(schema);
    } else if (type == "number") {
      out += boundedNumber(schema);
    } else if (type == "string") {
      out += "\"" + string(schema) + "\"";
    } else if (type == "array") {
      out += '[';
      std::uint64_t count = depth > 6 ? 0 : below(5);
      const bool unique = schema.has("uniqueItems");
      if (unique) count = std::min<std::uint64_t>(count, 1);  // items equal once read are rare
      if (schema.has("minItems")) {
        count = std::max(count, schema.getValue<std::uint64_t>("minItems"));
      }
      if (schema.has("maxItems")) {
        count = std::min(count, schema.getValue<std::uint64_t>("maxItems"));
      }
      std::string last;
      for (std::uint64_t i = 0; i < count; ++i) {
        if (i > 0) out += ',';
        last.clear();
        value(*schema.getObject("items"), last, depth + 1);
        out += last;
      }
      if (unique && count > 0 && mutate > 0 && chance(mutate * 4)) out += "," + last;  // repeated
      out += ']';
    } else {
      object(schema, out, depth + 1);
    }
  }
  if (chance(0.05)) space(out);
}

std::string DocumentGenerator::boundedNumber(const Poco::JSON::Object& schema) {
  const char* lowBound = schema.has("minimum") ? "minimum" : "exclusiveMinimum";
  const char* highBound = schema.has("maximum") ? "maximum" : "exclusiveMaximum";
  if (!schema.has(lowBound) && !schema.has(highBound)) return number();
  const double low = schema.has(lowBound) ? schema.get(lowBound).convert<double>()
                                          : -std::numeric_limits<double>::max();
  const double high = schema.has(highBound) ? schema.get(highBound).convert<double>()
                                            : std::numeric_limits<double>::max();
  for (int tries = 0; tries < 20; ++tries) {
    const std::string text = number();
    const double value = std::strtod(text.c_str(), nullptr);
    // Literals the parsers might read otherwise stay clear of the bounds.
    if (value >= low && value <= high && !(value == low || value == high)) return text;
  }
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.17g", low / 2 + high / 2);
  return buffer;
}

namespace {

// Strings without escapes for members with lengths or a pattern.
const char* const kPlainTexts[] = {"LAMP-01", "ABC-123",     "X-9",       "a",      "ab",
                                   "abc",     "hello world", "é",         "日本語", "😀x",
                                   "",        "lamp-01",     "0123456789"};

std::string twoDigits(std::uint64_t n) {
  char buffer[4];
  std::snprintf(buffer, sizeof buffer, "%02u", static_cast<unsigned>(n % 100));
  return buffer;
}

}  // namespace

std::string DocumentGenerator::string(const Poco::JSON::Object& schema) {
  if (schema.has("format")) return dateTime();
  if (schema.has("contentEncoding")) return base64();
  const std::string pattern = schema.has("pattern") ? schema.getValue<std::string>("pattern") : "";
  const bool duration = pattern.rfind("^-?[0-9]+", 0) == 0;
  if (!pattern.empty() || schema.has("minLength") || schema.has("maxLength")) {
    const std::regex expression(pattern.empty() ? std::string("") : pattern);
    const std::size_t shortest =
        schema.has("minLength") ? schema.getValue<std::size_t>("minLength") : 0;
    const std::size_t longest = schema.has("maxLength") ? schema.getValue<std::size_t>("maxLength")
                                                        : std::numeric_limits<std::size_t>::max();
    for (int tries = 0; tries < 50; ++tries) {
      std::string candidate;
      if (duration) {
        candidate = durationText();
      } else if (chance(0.7)) {
        candidate = kPlainTexts[below(std::size(kPlainTexts))];
      } else {
        const std::uint64_t length = below(12);
        for (std::uint64_t i = 0; i < length; ++i) {
          candidate += "ABCXYZabcxyz0189-"[below(17)];
        }
      }
      std::size_t points = 0;
      for (const char c : candidate) points += (static_cast<unsigned char>(c) & 0xc0) != 0x80;
      if (points < shortest || points > longest) continue;
      if (!pattern.empty() && !std::regex_search(candidate, expression)) continue;
      return candidate;
    }
    return duration ? "0s" : "LAMP-01";
  }
  return text();
}

std::string DocumentGenerator::dateTime() {
  // Within the years a nanosecond clock holds, in any of the forms RFC 3339 allows.
  const std::uint64_t year = 1700 + below(550);
  const std::uint64_t month = 1 + below(12);
  const std::uint64_t day = 1 + below(28);
  std::string out = std::to_string(year) + "-" + twoDigits(month) + "-" + twoDigits(day) +
                    (chance(0.9) ? "T" : "t") + twoDigits(below(24)) + ":" + twoDigits(below(60)) +
                    ":" + twoDigits(below(60));
  if (chance(0.5)) {
    out += '.';
    const std::uint64_t digits = 1 + below(9);
    for (std::uint64_t i = 0; i < digits; ++i) out += static_cast<char>('0' + below(10));
    if (chance(0.2)) out += "000";  // zeros past the ninth digit
  }
  switch (below(4)) {
    case 0:
      out += "Z";
      break;
    case 1:
      out += "z";
      break;
    default:
      out += (chance(0.5) ? "+" : "-") + twoDigits(below(24)) + ":" + twoDigits(below(60));
      break;
  }
  return out;
}

std::string DocumentGenerator::durationText() {
  std::string out = chance(0.3) ? "-" : "";
  out += std::to_string(below(chance(0.5) ? 100 : 1000000000));
  if (chance(0.6)) {
    out += '.';
    const std::uint64_t digits = 1 + below(9);
    for (std::uint64_t i = 0; i < digits; ++i) {
      out += static_cast<char>('0' + (chance(0.3) ? 0 : below(10)));
    }
  }
  return out + "s";
}

std::string DocumentGenerator::base64() {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::uint64_t bytes = below(20);
  std::string out;
  std::uint32_t group = 0;
  for (std::uint64_t i = 0; i < bytes; ++i) {
    group = group << 8 | static_cast<std::uint32_t>(below(256));
    if (i % 3 == 2) {
      for (int shift = 18; shift >= 0; shift -= 6) out += kAlphabet[(group >> shift) & 63];
      group = 0;
    }
  }
  if (bytes % 3 == 1) {
    group <<= 16;
    out += kAlphabet[(group >> 18) & 63];
    out += kAlphabet[(group >> 12) & 63];
    out += "==";
  } else if (bytes % 3 == 2) {
    group <<= 8;
    out += kAlphabet[(group >> 18) & 63];
    out += kAlphabet[(group >> 12) & 63];
    out += kAlphabet[(group >> 6) & 63];
    out += '=';
  }
  return out;
}

void DocumentGenerator::object(const Poco::JSON::Object& schema, std::string& out, int depth) {
  struct Member {
    std::string key;
    const Poco::JSON::Object* schema = nullptr;  // nullptr: any value
  };
  std::vector<Member> members;
  const bool closed =
      schema.has("additionalProperties") && schema.get("additionalProperties").isBoolean();
  std::string first;  // a member holding a const (a tag), written first most of the time
  if (schema.has("properties")) {
    const auto properties = schema.getObject("properties");
    std::vector<std::string> required;
    if (schema.has("required")) {
      const auto list = schema.getArray("required");
      for (unsigned i = 0; i < list->size(); ++i)
        required.push_back(list->getElement<std::string>(i));
    }
    // A member and its alias: at most one of the two (exactly one where one is required).
    std::vector<std::pair<std::string, std::string>> pairs;
    std::vector<bool> needed;
    if (schema.has("allOf")) {
      const auto constraints = schema.getArray("allOf");
      for (unsigned i = 0; i < constraints->size(); ++i) {
        const auto constraint = constraints->getObject(i);
        if (!constraint->has("not")) continue;
        const auto both = constraint->getObject("not")->getArray("required");
        pairs.emplace_back(both->getElement<std::string>(0), both->getElement<std::string>(1));
        needed.push_back(false);
      }
      for (unsigned i = 0; i < constraints->size(); ++i) {
        const auto constraint = constraints->getObject(i);
        if (!constraint->has("anyOf")) continue;
        const auto name = constraint->getArray("anyOf")
                              ->getObject(0)
                              ->getArray("required")
                              ->getElement<std::string>(0);
        for (std::size_t j = 0; j < pairs.size(); ++j) {
          if (pairs[j].first == name) needed[j] = true;
        }
      }
    }
    std::vector<std::string> chosen;  // of the pairs, the names written
    for (std::size_t j = 0; j < pairs.size(); ++j) {
      const bool both = mutate > 0 && chance(mutate * 4);  // "given twice, also as"
      if (both) {
        chosen.push_back(pairs[j].first);
        chosen.push_back(pairs[j].second);
      } else if (needed[j] || chance(0.7)) {
        chosen.push_back(chance(0.5) ? pairs[j].first : pairs[j].second);
      }
    }
    const auto inPair = [&](const std::string& name) {
      for (const auto& pair : pairs) {
        if (pair.first == name || pair.second == name) return true;
      }
      return false;
    };
    for (const auto& [name, property] : *properties) {
      const auto* propertySchema = property.extract<Poco::JSON::Object::Ptr>().get();
      if (inPair(name)) {
        if (std::find(chosen.begin(), chosen.end(), name) == chosen.end()) continue;
        members.push_back({name, propertySchema});
        continue;
      }
      const bool isRequired = std::find(required.begin(), required.end(), name) != required.end();
      if (!isRequired && chance(0.3)) continue;
      if (isRequired && mutate > 0 && chance(mutate)) continue;  // a required member missing
      if (propertySchema->has("const") && chance(0.97)) {
        first = name;
        continue;
      }
      members.push_back({name, propertySchema});
    }
    if (!closed && chance(0.15)) {
      const std::uint64_t extra = below(3) + 1;
      for (std::uint64_t i = 0; i < extra; ++i) {
        std::string name = key();
        // Only a mutation gives a declared member twice; "a\u0062" is "ab" unescaped.
        if (properties->has(name) || name == "a\\u0062") name += "_extra";
        members.push_back({name, nullptr});
      }
    }
  } else if (schema.has("additionalProperties") && !closed) {  // a string-keyed map
    const auto values = schema.getObject("additionalProperties");
    const std::uint64_t count = depth > 6 ? 0 : below(5);
    std::vector<std::string> keys;
    for (std::uint64_t i = 0; i < count; ++i) {
      std::string name = chance(0.5) ? key() + std::to_string(i) : text() + std::to_string(i);
      if (std::find(keys.begin(), keys.end(), name) != keys.end()) continue;
      keys.push_back(name);
      members.push_back({name, values.get()});
    }
  }
  std::shuffle(members.begin(), members.end(), random);
  if (!first.empty()) {
    members.insert(members.begin(),
                   {first, schema.getObject("properties")->getObject(first).get()});
  }
  out += '{';
  bool firstMember = true;
  for (const auto& member : members) {
    if (!firstMember) out += ',';
    firstMember = false;
    if (chance(0.05)) space(out);
    out += "\"" + member.key + "\":";
    if (member.schema != nullptr) {
      value(*member.schema, out, depth);
    } else {
      out += anyValue(3);
    }
  }
  if (mutate > 0 && !members.empty() && chance(mutate * 4)) {  // a member given twice
    const Member& again = members[below(members.size())];
    out += ",\"" + again.key + "\":";
    if (again.schema != nullptr) {
      value(*again.schema, out, depth);
    } else {
      out += anyValue(2);
    }
  }
  if (mutate > 0 && chance(mutate * 2)) {  // an unknown member, of any kind
    out += firstMember ? "" : ",";
    out += "\"unknown\":" + anyValue(3);
  }
  out += '}';
}

void DocumentGenerator::mutation(const Poco::JSON::Object& schema, std::string& out, int depth) {
  switch (below(9)) {
    case 0:  // a value of another kind
      out += kindLiteral(below(7));
      break;
    case 1:
      out += kBadNumbers[below(std::size(kBadNumbers))];
      break;
    case 2:
      out += chance(0.5) ? kBadStrings[below(std::size(kBadStrings))]
                         : kNearlyTexts[below(std::size(kNearlyTexts))];
      break;
    case 3: {  // nested past, at or just below the parser's limit
      static const int kLevels[] = {127 - 4, 128 - 4, 129 - 4, 128, 129, 200};
      const int levels = std::max(1, kLevels[below(std::size(kLevels))] - depth);
      const bool arrays = chance(0.5);
      for (int i = 0; i < levels; ++i) out += arrays ? "[" : "{\"a\":";
      out += "1";
      for (int i = 0; i < levels; ++i) out += arrays ? "]" : "}";
      break;
    }
    case 4:  // an integer one past its limits (or a bound of the kind given)
      if (schema.has("minimum") && schema.has("maximum") && schema.has("type") &&
          !(schema.get("type").isString() && schema.getValue<std::string>("type") == "number") &&
          schema.get("minimum").isInteger() && schema.get("maximum").isInteger()) {
        const auto min = schema.get("minimum").convert<std::int64_t>();
        const auto max = schema.get("maximum").convert<std::uint64_t>();
        if (chance(0.5) && min > std::numeric_limits<std::int64_t>::min()) {
          out += std::to_string(min - 1);
        } else if (max < std::numeric_limits<std::uint64_t>::max()) {
          out += std::to_string(max + 1);
        } else {
          out += "18446744073709551616";
        }
      } else {
        out += number();
      }
      break;
    case 5: {  // bad literals
      static const char* const kLiterals[] = {"tru", "nul", "falsey", "True", "NULL", "undefined"};
      out += kLiterals[below(std::size(kLiterals))];
      break;
    }
    case 6:  // whatever any value is
      out += anyValue(2);
      break;
    case 7:  // a string in place of anything, and anything in place of a string
      out += chance(0.5) ? "\"" + text() + "\"" : number();
      break;
    default:  // nothing at all where a value belongs
      break;
  }
}

std::string DocumentGenerator::integer(const Poco::JSON::Object& schema) {
  const Poco::Dynamic::Var low = schema.get("minimum");
  const Poco::Dynamic::Var high = schema.get("maximum");
  const auto min = low.type() == typeid(double)
                       ? static_cast<std::int64_t>(std::ceil(low.extract<double>()))
                       : low.convert<std::int64_t>();
  const auto max = high.type() == typeid(double)
                       ? static_cast<std::uint64_t>(std::floor(high.extract<double>()))
                       : high.convert<std::uint64_t>();
  char buffer[32];
  switch (below(6)) {
    case 0:
      std::snprintf(buffer, sizeof buffer, "%" PRId64, min);
      return buffer;
    case 1:
      std::snprintf(buffer, sizeof buffer, "%" PRIu64, max);
      return buffer;
    case 2:
      if (min <= 0 && max > 0) return chance(0.5) ? "0" : "-0";
      std::snprintf(buffer, sizeof buffer, "%" PRId64, min);
      return buffer;
    default: {
      // Uniform over the bits of the range, so that every magnitude turns up.
      const int bits = static_cast<int>(below(64)) + 1;
      std::uint64_t n = random() >> (64 - bits);
      if (min < 0 && chance(0.5)) {
        const std::uint64_t magnitude = static_cast<std::uint64_t>(-(min + 1)) + 1;
        n = n % magnitude + 1;
        std::snprintf(buffer, sizeof buffer, "-%" PRIu64, n);
      } else {
        n = max == std::numeric_limits<std::uint64_t>::max() ? n : n % (max + 1);
        std::snprintf(buffer, sizeof buffer, "%" PRIu64, n);
      }
      return buffer;
    }
  }
}

std::string DocumentGenerator::number() {
  char buffer[64];
  switch (below(6)) {
    case 0:
    case 1:
      return kNumberEdges[below(std::size(kNumberEdges))];
    case 2: {  // any finite double, in full
      double value = 0;
      do {
        const std::uint64_t bits = random();
        std::memcpy(&value, &bits, sizeof value);
      } while (!std::isfinite(value));
      std::snprintf(buffer, sizeof buffer, chance(0.5) ? "%.17g" : "%.16e", value);
      return buffer;
    }
    case 3: {  // a short decimal
      std::snprintf(buffer, sizeof buffer, "%.*f", static_cast<int>(below(6)),
                    std::uniform_real_distribution<double>(-1e6, 1e6)(random));
      return buffer;
    }
    case 4: {  // a float's worth of digits
      std::snprintf(
          buffer, sizeof buffer, "%.9g",
          static_cast<double>(std::uniform_real_distribution<float>(-1e30F, 1e30F)(random)));
      return buffer;
    }
    default:
      std::snprintf(buffer, sizeof buffer, "%" PRId64,
                    static_cast<std::int64_t>(random()) >> below(64));
      return buffer;
  }
}

std::string DocumentGenerator::text() {
  std::string out;
  const std::uint64_t pieces = below(4);
  for (std::uint64_t i = 0; i < pieces; ++i) out += kTextPieces[below(std::size(kTextPieces))];
  return out;
}

std::string DocumentGenerator::key() { return kKeys[below(std::size(kKeys))]; }

}  // namespace connector::testing

// The codecs of the declared types: for each member type, how a value becomes a
// Poco::Dynamic::Var for a JSON object, how a JSON value is read back into it with the
// reading rules, its JSON Schema, and the same two conversions straight between the
// value and JSON text (the direct codec). A codec is a small copyable value; containers
// hold the codec of their element.
//
//   detail::PlainCodec<std::vector<std::optional<int>>> codec;  // deduced from the type
//   Poco::Dynamic::Var json = codec.write(values);              // [1,null,3]
//   codec.read(json, values);                                   // throws MemberError
//   codec.writeText(values, text);                              // appends [1,null,3]
//   codec.readDirect(reader, values);                           // throws DirectDecline
//
// Every codec has: `using Value`, `static constexpr bool optional` (absence allowed),
// `Var write(const Value&) const` (throws MemberError), `void read(const Var&, Value&)
// const` (throws MemberError), `Poco::JSON::Object::Ptr schema() const`,
// `void writeText(const Value&, std::string&) const` (the text Poco's writer makes of
// write()'s result; throws MemberError where write() does) and `void readDirect(
// DirectReader&, Value&) const` (what read() makes of the value Poco's parser reads from
// the same text, or DirectDecline wherever read() would fail or might differ).
//
// Thread-safety: codecs are immutable once built; any number of threads may use one.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "connector/serializer/detail/DirectReader.hpp"
#include "connector/types/detail/JsonText.hpp"
#include "connector/types/detail/MemberError.hpp"
#include "connector/types/detail/SchemaParts.hpp"
#include "connector/types/detail/TextChecks.hpp"
#include "connector/types/detail/ValueKinds.hpp"
#include "connector/types/detail/ValueRules.hpp"

namespace connector::json::detail {

using Var = Poco::Dynamic::Var;
using SchemaPtr = Poco::JSON::Object::Ptr;

template <typename T>
inline constexpr bool isIntegerMember =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char> &&
    !std::is_same_v<T, wchar_t> && !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t>;

struct BoolCodec {
  using Value = bool;
  static constexpr bool optional = false;

  Var write(bool value) const { return value; }
  void read(const Var& json, bool& out) const {
    if (json.isEmpty() || json.type() != typeid(bool)) throwKindMismatch(Kind::Boolean, json);
    out = json.extract<bool>();
  }
  SchemaPtr schema() const { return typeSchema("boolean"); }
  void writeText(bool value, std::string& out) const { out.append(value ? "true" : "false"); }
  void readDirect(DirectReader& in, bool& out) const { out = in.readBool(); }
};

// Every integral type of 8 to 64 bits; written as Int64, or UInt64 above its range, the
// two types Poco's parser reads integers into. With rules: bounds, and quoted integers
// (written as strings of decimal digits, read from those or from JSON integers).
template <typename I>
struct IntegerCodec {
  using Value = I;
  static constexpr bool optional = false;
  std::shared_ptr<const ValueRules> rules{};

  Var write(I value) const {
    if (rules && rules->quoted) return digits(value);
    if constexpr (std::is_signed_v<I>) {
      return static_cast<Poco::Int64>(value);
    } else {
      if (static_cast<std::uint64_t>(value) >
          static_cast<std::uint64_t>(std::numeric_limits<Poco::Int64>::max())) {
        return static_cast<Poco::UInt64>(value);
      }
      return static_cast<Poco::Int64>(value);
    }
  }
  void read(const Var& json, I& out) const {
    if (!rules && !json.isEmpty() && json.type() == typeid(Poco::Int64)) {  // what the parser made
      const Poco::Int64 n = json.extract<Poco::Int64>();
      if (n >= static_cast<Poco::Int64>(std::numeric_limits<I>::min()) &&
          (n < 0 || static_cast<std::uint64_t>(n) <=
                        static_cast<std::uint64_t>(std::numeric_limits<I>::max()))) {
        out = static_cast<I>(n);
        return;
      }
      throwOutOfRange(static_cast<std::int64_t>(n));
    }
    IntegerValue n;
    if (rules && rules->quoted && kindOf(json) == Kind::String) {
      std::string conversion;
      n = ValueRules::parseQuoted(stringValue(json, conversion));
    } else {
      n = integerValue(json);
    }
    take(n, out);
  }
  SchemaPtr schema() const {
    const auto min = static_cast<std::int64_t>(std::numeric_limits<I>::min());
    const auto max = static_cast<std::uint64_t>(std::numeric_limits<I>::max());
    return rules ? rules->integerSchema(min, max) : integerSchema(min, max);
  }
  void writeText(I value, std::string& out) const {
    const bool quoted = rules && rules->quoted;
    if (quoted) out.push_back('"');
    if constexpr (std::is_signed_v<I>) {
      appendInteger(out, static_cast<std::int64_t>(value));
    } else {
      appendInteger(out, static_cast<std::uint64_t>(value));
    }
    if (quoted) out.push_back('"');
  }
  void readDirect(DirectReader& in, I& out) const {
    if (rules) {
      IntegerValue n;
      if (rules->quoted && in.peek() == DirectKind::String) {
        n = ValueRules::parseQuoted(in.readString());  // a MemberError declines too
      } else {
        const DirectInteger read = in.readInteger();
        n.isNegative = read.isNegative;
        n.negative = read.negative;
        n.nonNegative = read.nonNegative;
      }
      take(n, out);
      return;
    }
    const DirectInteger n = in.readInteger();
    if (n.isNegative) {
      if constexpr (std::is_signed_v<I>) {
        if (n.negative >= static_cast<std::int64_t>(std::numeric_limits<I>::min())) {
          out = static_cast<I>(n.negative);
          return;
        }
      }
    } else if (n.nonNegative <= static_cast<std::uint64_t>(std::numeric_limits<I>::max())) {
      out = static_cast<I>(n.nonNegative);
      return;
    }
    decline();
  }

 private:
  static std::string digits(I value) {
    std::string text;
    if constexpr (std::is_signed_v<I>) {
      appendInteger(text, static_cast<std::int64_t>(value));
    } else {
      appendInteger(text, static_cast<std::uint64_t>(value));
    }
    return text;
  }
  // Checks the range and the rules, then sets out.
  void take(const IntegerValue& n, I& out) const {
    if (!fits<I>(n)) {
      if (n.isNegative) throwOutOfRange(n.negative);
      throwOutOfRange(n.nonNegative);
    }
    if (rules) rules->checkInteger(n);
    out = n.isNegative ? static_cast<I>(n.negative) : static_cast<I>(n.nonNegative);
  }
};

// The magnitude from which a double rounds to an infinity as a float: 2^128 - 2^103,
// half a unit past the largest float.
inline constexpr double kFloatOverflow = 3.4028235677973366e38;

// float and double: any JSON number; a float member refuses a number that would round to
// an infinity (from kFloatOverflow on). Infinities and NaN are refused when writing, as JSON has no
// text for them. With rules: bounds, compared with the number as the parser read it.
template <typename F>
struct FloatingCodec {
  using Value = F;
  static constexpr bool optional = false;
  std::shared_ptr<const ValueRules> rules{};

  Var write(F value) const {
    if (!std::isfinite(value)) throwNotFinite(static_cast<double>(value));
    return value;
  }
  void read(const Var& json, F& out) const {
    double number = 0;
    if (!json.isEmpty() && json.type() == typeid(double)) {
      number = json.extract<double>();
    } else {
      const Kind kind = kindOf(json);
      if (kind == Kind::Integer) {
        const IntegerValue n = integerValue(json);
        number =
            n.isNegative ? static_cast<double>(n.negative) : static_cast<double>(n.nonNegative);
      } else if (kind == Kind::Number) {
        number = json.convert<double>();
      } else {
        throwKindMismatch(Kind::Number, json);
      }
    }
    take(number, out);
  }
  SchemaPtr schema() const {
    SchemaPtr schema = typeSchema("number");
    if constexpr (std::is_same_v<F, float>) {
      schema->set("exclusiveMinimum", -kFloatOverflow);
      schema->set("exclusiveMaximum", kFloatOverflow);
    }
    if (rules) rules->annotateNumber(*schema);
    return schema;
  }
  void writeText(F value, std::string& out) const {
    if (!std::isfinite(value)) throwNotFinite(static_cast<double>(value));
    appendNumber(out, value);
  }
  void readDirect(DirectReader& in, F& out) const { take(in.readNumber(), out); }

 private:
  void take(double number, F& out) const {
    if constexpr (std::is_same_v<F, float>) {
      if (std::fabs(number) >= kFloatOverflow) throwOutOfRange(number);
    }
    if (rules) rules->checkNumber(number);
    out = static_cast<F>(number);
  }
};

// std::string: only from a string. Bytes that are not UTF-8 are refused when writing,
// so that nothing is written that the reader would refuse. With rules: lengths in code
// points and a pattern.
struct StringCodec {
  using Value = std::string;
  static constexpr bool optional = false;
  std::shared_ptr<const ValueRules> rules{};

  Var write(const std::string& value) const {
    if (!validUtf8(value)) throwNotUtf8();
    return value;
  }
  void read(const Var& json, std::string& out) const {
    if (!json.isEmpty() && json.type() == typeid(std::string)) {
      const std::string& given = json.extract<std::string>();
      if (rules) rules->checkString(given);
      out = given;
      return;
    }
    std::string conversion;
    const std::string& given = stringValue(json, conversion);
    if (rules) rules->checkString(given);
    out = given;
  }
  SchemaPtr schema() const {
    SchemaPtr schema = typeSchema("string");
    if (rules) rules->annotateString(*schema);
    return schema;
  }
  void writeText(const std::string& value, std::string& out) const {
    if (!validUtf8(value)) throwNotUtf8();
    appendQuoted(out, value);
  }
  void readDirect(DirectReader& in, std::string& out) const {
    const std::string_view given = in.readString();
    if (rules) rules->checkString(given);
    out.assign(given);
  }
};

// std::optional<T>: absent (as a member) or null (anywhere) is std::nullopt. An empty
// optional is left out as a member and written as null inside arrays and maps.
template <typename Inner>
struct OptionalCodec {
  using Value = std::optional<typename Inner::Value>;
  static constexpr bool optional = true;
  Inner inner;

  Var write(const Value& value) const { return value ? inner.write(*value) : Var(); }
  void read(const Var& json, Value& out) const {
    if (json.isEmpty()) {
      out.reset();
      return;
    }
    if (!out) out.emplace();
    inner.read(json, *out);
  }
  SchemaPtr schema() const { return nullableSchema(inner.schema()); }
  void writeText(const Value& value, std::string& out) const {
    if (value) {
      inner.writeText(*value, out);
    } else {
      out.append("null");
    }
  }
  void readDirect(DirectReader& in, Value& out) const {
    if (in.takeNull()) {
      out.reset();
      return;
    }
    if (!out) out.emplace();
    inner.readDirect(in, *out);
  }
};

// The elements of a JSON array (or of a vector of Var in an object built by hand), or
// nothing when json holds no array.
struct ArrayView {
  const Var* first = nullptr;
  const Var* last = nullptr;
};
CONNECTOR_API bool arrayView(const Var& json, ArrayView& view);

// The JSON object json holds, or nullptr.
CONNECTOR_API const Poco::JSON::Object* objectOf(const Var& json);

// The items of a vector, set or array as a JSON array, each through `inner`; a failing
// item's error is given its index.
template <typename Inner, typename Items>
Var writeItems(const Inner& inner, const Items& values) {
  Poco::JSON::Array::Ptr array = new Poco::JSON::Array;
  std::size_t index = 0;
  for (const auto& value : values) {
    try {
      array->add(inner.write(value));
    } catch (MemberError& e) {
      e.within(index);
      throw;
    }
    ++index;
  }
  return array;
}

// The same items appended to `out` as compact JSON text.
template <typename Inner, typename Items>
void writeItemsText(const Inner& inner, const Items& values, std::string& out) {
  out.push_back('[');
  bool first = true;
  for (const auto& value : values) {
    if (!first) out.push_back(',');
    first = false;
    inner.writeText(value, out);
  }
  out.push_back(']');
}

template <typename Inner>
struct VectorCodec {
  using Value = std::vector<typename Inner::Value>;
  static constexpr bool optional = false;
  Inner inner;
  std::shared_ptr<const ItemCounts> counts{};  // the member's own array only

  Var write(const Value& values) const { return writeItems(inner, values); }
  void read(const Var& json, Value& out) const {
    ArrayView view;
    if (!arrayView(json, view)) throwKindMismatch(Kind::Array, json);
    if (counts) counts->check(static_cast<std::size_t>(view.last - view.first));
    out.clear();
    out.reserve(static_cast<std::size_t>(view.last - view.first));
    std::size_t index = 0;
    for (const Var* element = view.first; element != view.last; ++element, ++index) {
      try {
        if constexpr (std::is_same_v<typename Inner::Value, bool>) {
          bool value = false;  // std::vector<bool> hands out proxies, not references
          inner.read(*element, value);
          out.push_back(value);
        } else {
          inner.read(*element, out.emplace_back());
        }
      } catch (MemberError& e) {
        e.within(index);
        throw;
      }
    }
  }
  SchemaPtr schema() const {
    SchemaPtr schema = arraySchema(inner.schema());
    if (counts) counts->annotate(*schema);
    return schema;
  }
  void writeText(const Value& values, std::string& out) const {
    writeItemsText(inner, values, out);
  }
  void readDirect(DirectReader& in, Value& out) const {
    in.enterArray();
    out.clear();
    while (in.nextItem()) {
      if constexpr (std::is_same_v<typename Inner::Value, bool>) {
        bool value = false;
        inner.readDirect(in, value);
        out.push_back(value);
      } else {
        inner.readDirect(in, out.emplace_back());
      }
    }
    if (counts) counts->check(out.size());
  }
};

template <typename Inner>
struct MapCodec {
  using Value = std::map<std::string, typename Inner::Value>;
  static constexpr bool optional = false;
  Inner inner;

  Var write(const Value& values) const {
    Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
    for (const auto& [key, value] : values) {
      try {
        if (!validUtf8(key)) throwNotUtf8();
        object->set(key, inner.write(value));
      } catch (MemberError& e) {
        e.within(key);
        throw;
      }
    }
    return object;
  }
  void read(const Var& json, Value& out) const {
    const Poco::JSON::Object* object = objectOf(json);
    if (object == nullptr) throwKindMismatch(Kind::Object, json);
    out.clear();
    // Both maps are ordered by the same comparison, so every insertion goes at the end.
    for (const auto& [key, value] : *object) {
      try {
        auto entry = out.emplace_hint(out.end(), key, typename Inner::Value{});
        inner.read(value, entry->second);
      } catch (MemberError& e) {
        e.within(key);
        throw;
      }
    }
  }
  SchemaPtr schema() const { return mapSchema(inner.schema()); }
  void writeText(const Value& values, std::string& out) const {
    out.push_back('{');
    bool first = true;
    // std::map's order is Poco's object order: both compare keys bytewise.
    for (const auto& [key, value] : values) {
      if (!first) out.push_back(',');
      first = false;
      if (!validUtf8(key)) throwNotUtf8();
      appendQuoted(out, key);
      out.push_back(':');
      inner.writeText(value, out);
    }
    out.push_back('}');
  }
  void readDirect(DirectReader& in, Value& out) const {
    in.enterObject();
    out.clear();
    std::string_view key;
    while (in.nextMember(key)) {
      auto [entry, added] = out.try_emplace(std::string(key));
      if (!added) decline();  // a repeated key: Poco keeps the last one
      inner.readDirect(in, entry->second);
    }
  }
};

}  // namespace connector::json::detail

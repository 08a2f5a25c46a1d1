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
#include "connector/types/detail/ValueKinds.hpp"

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
// two types Poco's parser reads integers into.
template <typename I>
struct IntegerCodec {
  using Value = I;
  static constexpr bool optional = false;

  Var write(I value) const {
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
    if (!json.isEmpty() && json.type() == typeid(Poco::Int64)) {  // what the parser made
      const Poco::Int64 n = json.extract<Poco::Int64>();
      if (n >= static_cast<Poco::Int64>(std::numeric_limits<I>::min()) &&
          (n < 0 || static_cast<std::uint64_t>(n) <=
                        static_cast<std::uint64_t>(std::numeric_limits<I>::max()))) {
        out = static_cast<I>(n);
        return;
      }
      throwOutOfRange(static_cast<std::int64_t>(n));
    }
    const IntegerValue n = integerValue(json);
    if (!fits<I>(n)) {
      if (n.isNegative) throwOutOfRange(n.negative);
      throwOutOfRange(n.nonNegative);
    }
    out = n.isNegative ? static_cast<I>(n.negative) : static_cast<I>(n.nonNegative);
  }
  SchemaPtr schema() const {
    return integerSchema(static_cast<std::int64_t>(std::numeric_limits<I>::min()),
                         static_cast<std::uint64_t>(std::numeric_limits<I>::max()));
  }
  void writeText(I value, std::string& out) const {
    if constexpr (std::is_signed_v<I>) {
      appendInteger(out, static_cast<std::int64_t>(value));
    } else {
      appendInteger(out, static_cast<std::uint64_t>(value));
    }
  }
  void readDirect(DirectReader& in, I& out) const {
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
};

// float and double: any JSON number. A number beyond float's range reads as an infinity
// of its sign; infinities and NaN are refused when writing, as JSON has no text for them.
template <typename F>
struct FloatingCodec {
  using Value = F;
  static constexpr bool optional = false;

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
    if constexpr (std::is_same_v<F, float>) {
      if (std::fabs(number) > static_cast<double>(std::numeric_limits<float>::max()) &&
          std::isfinite(number)) {
        out = number < 0 ? -std::numeric_limits<float>::infinity()
                         : std::numeric_limits<float>::infinity();
        return;
      }
    }
    out = static_cast<F>(number);
  }
  SchemaPtr schema() const { return typeSchema("number"); }
  void writeText(F value, std::string& out) const {
    if (!std::isfinite(value)) throwNotFinite(static_cast<double>(value));
    appendNumber(out, value);
  }
  void readDirect(DirectReader& in, F& out) const {
    const double number = in.readNumber();
    if constexpr (std::is_same_v<F, float>) {
      if (std::fabs(number) > static_cast<double>(std::numeric_limits<float>::max())) {
        out = number < 0 ? -std::numeric_limits<float>::infinity()
                         : std::numeric_limits<float>::infinity();
        return;
      }
    }
    out = static_cast<F>(number);
  }
};

struct StringCodec {
  using Value = std::string;
  static constexpr bool optional = false;

  Var write(const std::string& value) const { return value; }
  void read(const Var& json, std::string& out) const {
    if (!json.isEmpty() && json.type() == typeid(std::string)) {
      out = json.extract<std::string>();
      return;
    }
    std::string conversion;
    out = stringValue(json, conversion);
  }
  SchemaPtr schema() const { return typeSchema("string"); }
  void writeText(const std::string& value, std::string& out) const { appendQuoted(out, value); }
  void readDirect(DirectReader& in, std::string& out) const { out.assign(in.readString()); }
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

template <typename Inner>
struct VectorCodec {
  using Value = std::vector<typename Inner::Value>;
  static constexpr bool optional = false;
  Inner inner;

  Var write(const Value& values) const {
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
  void read(const Var& json, Value& out) const {
    ArrayView view;
    if (!arrayView(json, view)) throwKindMismatch(Kind::Array, json);
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
  SchemaPtr schema() const { return arraySchema(inner.schema()); }
  void writeText(const Value& values, std::string& out) const {
    out.push_back('[');
    bool first = true;
    for (const auto& value : values) {
      if (!first) out.push_back(',');
      first = false;
      inner.writeText(value, out);
    }
    out.push_back(']');
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

// The codec of a member type that needs no description (bool, integers, floating point,
// std::string, and optionals, vectors and string-keyed maps of these).
template <typename M>
inline constexpr bool unsupportedMember = false;

template <typename M, typename = void>
struct PlainCodecOf {
  static_assert(unsupportedMember<M>,
                "this member type needs its json::Struct or json::Enum as third argument of "
                "field(), or is not a supported member type");
};
template <>
struct PlainCodecOf<bool> {
  using type = BoolCodec;
};
template <typename M>
struct PlainCodecOf<M, std::enable_if_t<isIntegerMember<M>>> {
  using type = IntegerCodec<M>;
};
template <typename M>
struct PlainCodecOf<M, std::enable_if_t<std::is_same_v<M, float> || std::is_same_v<M, double>>> {
  using type = FloatingCodec<M>;
};
template <>
struct PlainCodecOf<std::string> {
  using type = StringCodec;
};
template <typename M>
struct PlainCodecOf<std::optional<M>> {
  using type = OptionalCodec<typename PlainCodecOf<M>::type>;
};
template <typename M>
struct PlainCodecOf<std::vector<M>> {
  using type = VectorCodec<typename PlainCodecOf<M>::type>;
};
template <typename M>
struct PlainCodecOf<std::map<std::string, M>> {
  using type = MapCodec<typename PlainCodecOf<M>::type>;
};

template <typename M>
using PlainCodec = typename PlainCodecOf<M>::type;

}  // namespace connector::json::detail

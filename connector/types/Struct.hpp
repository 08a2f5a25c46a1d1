// connector::json::Struct<T>: a plain struct described once, member by member, so that
// it can be a member (alone, or inside optionals, vectors and maps) of a declared message
// type (json::MessageType), or be converted on its own.
//
//   struct Item { std::string sku; int quantity = 0; };
//   const auto item = json::Struct<Item>().field("sku", &Item::sku)
//                                         .field("quantity", &Item::quantity);
//   order.field("items", &Order::items, item);           // std::vector<Item> member
//   Poco::JSON::Object::Ptr json = item.toJson(Item{"LAMP-01", 2});
//   Item back = item.fromJson(*json);
//
// Member types: bool; every signed and unsigned integer type of 8 to 64 bits; float and
// double; std::string; std::chrono::system_clock::time_point; std::chrono::duration;
// std::vector<std::byte>; an enum described by json::Enum; a struct described by
// json::Struct; a std::variant described by json::Variant; std::vector<X>,
// std::optional<X>, std::set<X>, std::array<X, N>, std::map<std::string, X> and
// std::unordered_map<std::string, X> of any of these, nested to any depth. The
// describing Struct, Enum or Variant is the third argument of field() whenever the
// member's innermost type needs one; a json::Field of options may follow as the last
// argument (see Field.hpp). T must be default-constructible.
//
// Writing: members in declaration order; an empty optional member is left out (inside
// vectors and maps it is null); enums as their names, maps as objects (keys sorted
// bytewise), vectors, sets and arrays as arrays; time points as RFC 3339 date-times in
// UTC ("2026-11-23T19:16:18Z"), durations as seconds ("1.500s"), both with 0, 3, 6 or 9
// fraction digits, the fewest that hold the value; bytes as base64 with padding.
// Reading: a non-optional member must be present; null only for optionals (absent and
// null both give std::nullopt); bool only from true/false; an integer type only from a
// JSON integer in its range (1.0 and 1e2 are refused); float and double from any number;
// std::string only from a string; vectors from arrays; structs and maps from objects; an
// enum only from one of its names; a member that is not declared only when
// rejectUnknownMembers() was called. The declared members are checked in declaration
// order, then the undeclared ones; the first failure is reported, as one of
//   member "<path>" is missing
//   member "<path>": expected <kind>, got <kind>
//   member "<path>": <value> is out of range          (an integer, or a float member's
//                                                     number beyond float's range)
//   member "<path>": "<name>" is not one of "low", "normal", "high"
//   member "<path>" is not expected
//   member "<path>": "<text>" is not an RFC 3339 date-time      (any offset, T/t, Z/z)
//   member "<path>": "<text>" is not a duration such as "1.5s"  (0 to 9 fraction digits)
//   member "<path>": "<text>" is out of range          (a time or duration the member's
//                                                     type cannot hold exactly)
//   member "<path>": not base64
//   member "<path>/<index>": duplicate item           (a set; index: the later one)
//   member "<path>": expected <N> items, got <count>  (a std::array)
// and those of the options (Field.hpp) and variants (Variant.hpp).
// <path> is the member's JSON Pointer (RFC 6901: "~" as "~0", "/" as "~1"), e.g.
// /items/1/quantity; <kind> is one of a boolean, an integer, a number, a string, an
// array, an object, null.
//
// Writing refuses what JSON cannot hold or the reader would refuse: a std::string (or map
// key) that is not UTF-8 (`member "<path>": the string is not valid UTF-8`), an enum value
// without a name, a float that is not finite.
//
// Thread-safety: declare (field, rejectUnknownMembers, keepUnknownMembers) on one thread;
// afterwards the const operations may run on any number of threads at once. A copy (or a field()
// that takes this Struct as its description) keeps the members declared so far: members added later
// do not reach it.
#pragma once

#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>

#include "connector/types/Enum.hpp"
#include "connector/types/Field.hpp"
#include "connector/types/UnknownMembers.hpp"
#include "connector/types/detail/CodecOf.hpp"
#include "connector/types/detail/Codecs.hpp"
#include "connector/types/detail/DescribedCodecs.hpp"
#include "connector/types/detail/MemberError.hpp"
#include "connector/types/detail/ObjectDescription.hpp"

namespace connector::json {

template <typename T>
class Struct {
  static_assert(std::is_class_v<T>, "json::Struct describes a class type");
  static_assert(std::is_default_constructible_v<T>, "a described struct is default-constructible");

 public:
  using Type = T;

  // Declares the member `member` (of T or of a base of T) under the JSON name `name`,
  // for member types that need no description; options: see Field.hpp. Throws
  // std::invalid_argument "member \"<name>\" is declared twice" (also for an alias) and
  // `member "<name>": <option> does not apply to its type`.
  template <typename M, typename C>
  Struct& field(std::string name, M C::*member) {
    return add<M, C>(std::move(name), member, detail::PlainCodec<M>{}, nullptr);
  }
  template <typename M, typename C>
  Struct& field(std::string name, M C::*member, const Field& options) {
    return add<M, C>(std::move(name), member, detail::PlainCodec<M>{}, &options);
  }

  // The same for a member whose innermost type is the enum, struct or tagged union that
  // `described` (a json::Enum, json::Struct or json::Variant) describes.
  template <typename M, typename C, typename D,
            typename = std::enable_if_t<!std::is_same_v<D, Field>>>
  Struct& field(std::string name, M C::*member, const D& described) {
    return add<M, C>(std::move(name), member, detail::DescribedCodecOf<M, D>::make(described),
                     nullptr);
  }
  template <typename M, typename C, typename D>
  Struct& field(std::string name, M C::*member, const D& described, const Field& options) {
    return add<M, C>(std::move(name), member, detail::DescribedCodecOf<M, D>::make(described),
                     &options);
  }

  // Makes a member that is not declared an error when reading (ignored by default), and
  // puts "additionalProperties": false in the schema. Throws std::invalid_argument
  // "unknown members are either kept or refused, not both" after keepUnknownMembers.
  Struct& rejectUnknownMembers() {
    members.rejectUnknownMembers();
    return *this;
  }

  // Keeps the members that are not declared in `into` when reading (sorted by name, each
  // value as compact JSON text) and writes them after the declared ones (see
  // UnknownMembers.hpp). Writing a kept member whose name is declared throws
  // std::invalid_argument `member "<path>" is declared and also kept as unknown`; one
  // whose text is not one JSON value `member "<path>": the kept text is not JSON`.
  // Throws std::invalid_argument "unknown members are either kept or refused, not both"
  // after rejectUnknownMembers.
  template <typename C>
  Struct& keepUnknownMembers(UnknownMembers C::*into) {
    members.keepUnknownMembers(into);
    return *this;
  }

  // value as a new JSON object. Throws std::invalid_argument with
  // `member "<path>": <number> is not one of ...` (an enum value without a name),
  // `member "<path>": inf is not a finite number` (also -inf, nan), `member "<path>": the
  // string is not valid UTF-8`, a variant's or kept members' writing errors.
  Poco::JSON::Object::Ptr toJson(const T& value) const {
    try {
      return members.write(value, nullptr);
    } catch (const detail::MemberError& e) {
      throw std::invalid_argument(e.message());
    }
  }

  // A new T read from object. Throws Poco::DataFormatException whose message() is one
  // of the texts above, with paths from this object.
  T fromJson(const Poco::JSON::Object& object) const {
    T value{};
    try {
      members.read(object, value, nullptr);
    } catch (const detail::MemberError& e) {
      throw Poco::DataFormatException(e.message());
    }
    return value;
  }

  // JSON Schema (draft 2020-12) of the JSON object of a T.
  Poco::JSON::Object::Ptr schema() const {
    detail::ObjectSchemaOptions options;
    options.withDraft = true;
    return members.schema(options);
  }

  // The declared members (what the codecs of struct members hold).
  const detail::ObjectDescription<T>& description() const noexcept { return members; }

 private:
  template <typename M, typename C, typename Codec>
  Struct& add(std::string name, M C::*member, Codec codec, const Field* options) {
    static_assert(std::is_base_of_v<C, T>, "the member belongs to another class");
    members.template add<C>(std::move(name), member, std::move(codec), options);
    return *this;
  }

  detail::ObjectDescription<T> members;
};

}  // namespace connector::json

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
// double; std::string; an enum described by json::Enum; a struct described by
// json::Struct; std::vector<X>, std::optional<X> and std::map<std::string, X> of any of
// these, nested to any depth. The describing Struct or Enum is the third argument of
// field() whenever the member's innermost type needs one. T must be default-constructible.
//
// Writing: members in declaration order; an empty optional member is left out (inside
// vectors and maps it is null); enums as their names, maps as objects, vectors as arrays.
// Reading: a non-optional member must be present; null only for optionals (absent and
// null both give std::nullopt); bool only from true/false; an integer type only from a
// JSON integer in its range (1.0 and 1e2 are refused); float and double from any number;
// std::string only from a string; vectors from arrays; structs and maps from objects; an
// enum only from one of its names; a member that is not declared only when
// rejectUnknownMembers() was called. The declared members are checked in declaration
// order, then the undeclared ones; the first failure is reported, as one of
//   member "<path>" is missing
//   member "<path>": expected <kind>, got <kind>
//   member "<path>": <value> is out of range          (<value>: the integer in decimal)
//   member "<path>": "<name>" is not one of "low", "normal", "high"
//   member "<path>" is not expected
// <path> is the member's JSON Pointer (RFC 6901: "~" as "~0", "/" as "~1"), e.g.
// /items/1/quantity; <kind> is one of a boolean, an integer, a number, a string, an
// array, an object, null.
//
// Thread-safety: declare (field, rejectUnknownMembers) on one thread; afterwards the
// const operations may run on any number of threads at once. A copy (or a field() that
// takes this Struct as its description) keeps the members declared so far: members added
// later do not reach it.
#pragma once

#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>

#include "connector/types/Enum.hpp"
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
  // for member types that need no description. Throws std::invalid_argument
  // "member \"<name>\" is declared twice".
  template <typename M, typename C>
  Struct& field(std::string name, M C::*member) {
    static_assert(std::is_base_of_v<C, T>, "the member belongs to another class");
    members.template add<C>(std::move(name), member, detail::PlainCodec<M>{});
    return *this;
  }

  // The same for a member whose innermost type is the enum or struct that `described`
  // (a json::Enum or json::Struct) describes.
  template <typename M, typename C, typename D>
  Struct& field(std::string name, M C::*member, const D& described) {
    static_assert(std::is_base_of_v<C, T>, "the member belongs to another class");
    members.template add<C>(std::move(name), member,
                            detail::DescribedCodecOf<M, D>::make(described));
    return *this;
  }

  // Makes a member that is not declared an error when reading (ignored by default), and
  // puts "additionalProperties": false in the schema.
  Struct& rejectUnknownMembers() noexcept {
    members.rejectUnknownMembers();
    return *this;
  }

  // value as a new JSON object. Throws std::invalid_argument with
  // `member "<path>": <number> is not one of ...` (an enum value without a name) or
  // `member "<path>": inf is not a finite number` (also -inf, nan).
  Poco::JSON::Object::Ptr toJson(const T& value) const {
    try {
      return members.write(value);
    } catch (const detail::MemberError& e) {
      throw std::invalid_argument(e.message());
    }
  }

  // A new T read from object. Throws Poco::DataFormatException whose message() is one
  // of the texts above, with paths from this object.
  T fromJson(const Poco::JSON::Object& object) const {
    T value{};
    try {
      members.read(object, value, false);
    } catch (const detail::MemberError& e) {
      throw Poco::DataFormatException(e.message());
    }
    return value;
  }

  // JSON Schema (draft 2020-12) of the JSON object of a T.
  Poco::JSON::Object::Ptr schema() const { return members.schema(nullptr, true); }

  // The declared members (what the codecs of struct members hold).
  const detail::ObjectDescription<T>& description() const noexcept { return members; }

 private:
  detail::ObjectDescription<T> members;
};

}  // namespace connector::json

// connector::json::Variant<V>: a tagged union, a std::variant whose alternatives are
// described structs, told apart in JSON by a tag member.
//
//   struct Circle { double radius = 0; };
//   struct Square { double side = 0; };
//   using Shape = std::variant<Circle, Square>;
//   const auto shape = json::Variant<Shape>("kind")
//       .alternative("circle", json::Struct<Circle>().field("radius", &Circle::radius))
//       .alternative("square", json::Struct<Square>().field("side", &Square::side));
//   order.field("shape", &Order::shape, shape);   // {"kind":"circle","radius":2}
//
// Writing: the tag member first, then the alternative's members. Writing a value whose
// alternative was never described throws std::invalid_argument `member "<path>":
// alternative <index> of the variant has no tag`.
// Reading: the tag chooses the alternative, whose rules then apply; the tag is never an
// unknown member. The errors:
//   member "<path>/kind" is missing
//   member "<path>/kind": expected a string, got <kind>
//   member "<path>/kind": "<tag>" is not one of "circle", "square"   (declaration order)
// (and `member "<path>": expected an object, got <kind>` for anything but an object).
// Schema: {"oneOf":[...]} of the alternatives' object schemas, each requiring the tag
// with its "const".
//
// A json::Variant is the third argument of field() for a member whose innermost type is
// V, alone or in optionals, vectors, sets, arrays and maps, like a json::Struct.
//
// Thread-safety: declare on one thread; afterwards const operations from any number of
// threads. A copy (or a field() given this Variant) keeps the alternatives described so
// far.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include <Poco/JSON/Object.h>

#include "connector/types/Struct.hpp"
#include "connector/types/detail/DescribedCodecs.hpp"
#include "connector/types/detail/SchemaParts.hpp"
#include "connector/types/detail/VariantCodec.hpp"

namespace connector::json {

namespace detail {
template <typename A, typename V>
struct AlternativeIndex;
template <typename A, typename... Types>
struct AlternativeIndex<A, std::variant<Types...>> {
  static constexpr std::size_t count = (0 + ... + (std::is_same_v<A, Types> ? 1 : 0));
  static_assert(count == 1, "the described struct is not exactly one alternative of the variant");
  static constexpr std::size_t value() {
    constexpr bool matches[] = {std::is_same_v<A, Types>...};
    std::size_t i = 0;
    while (!matches[i]) ++i;
    return i;
  }
};
}  // namespace detail

template <typename V>
class Variant {
 public:
  using Type = V;

  // A variant whose alternatives are told apart by the member tagName.
  explicit Variant(std::string tagName) : alternatives(std::move(tagName)) {}

  // Describes the alternative A of V, written and read with the tag `tag`. Throws
  // std::invalid_argument "variant tag \"<tag>\" is given twice", "alternative <index> of
  // the variant is described twice" and "alternative \"<tag>\" declares a member named
  // like the tag \"<name>\"".
  template <typename A>
  Variant& alternative(std::string tag, const Struct<A>& described) {
    alternatives.template add<detail::AlternativeIndex<A, V>::value()>(std::move(tag),
                                                                       described.description());
    return *this;
  }

  const std::string& tag() const noexcept { return alternatives.tag(); }

  // JSON Schema (draft 2020-12) of a value: {"$schema":...,"oneOf":[...]}.
  Poco::JSON::Object::Ptr schema() const {
    Poco::JSON::Object::Ptr schema = new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
    schema->set("$schema", std::string(detail::kSchemaDraft));
    schema->set("oneOf", alternatives.schema()->get("oneOf"));
    return schema;
  }

  // The alternatives described so far (what the codecs of variant members hold).
  std::shared_ptr<const detail::VariantAlternatives<V>> description() const {
    return std::make_shared<const detail::VariantAlternatives<V>>(alternatives);
  }

 private:
  detail::VariantAlternatives<V> alternatives;
};

namespace detail {
template <typename V>
struct LeafCodecOf<Variant<V>> {
  using type = VariantCodec<V>;
  static type make(const Variant<V>& described) { return type{described.description()}; }
};
}  // namespace detail

}  // namespace connector::json

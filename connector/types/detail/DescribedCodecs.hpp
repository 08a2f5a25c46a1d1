// The codecs of members whose innermost type has a description: an enum (json::Enum), a
// struct (json::Struct) or a tagged union (json::Variant), alone or inside optionals,
// vectors, sets, arrays and string-keyed maps to any depth; and the deduction of such a
// codec from the member type and the description.
//
//   auto codec = DescribedCodecOf<std::vector<Item>, Struct<Item>>::make(item);
//   // VectorCodec<StructCodec<Item>>
//
// Thread-safety: as the codecs (immutable once built).
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include "connector/Export.hpp"
#include "connector/types/Enum.hpp"
#include "connector/types/detail/CodecOf.hpp"
#include "connector/types/detail/Codecs.hpp"
#include "connector/types/detail/ContainerCodecs.hpp"
#include "connector/types/detail/ObjectDescription.hpp"

namespace connector::json {
template <typename T>
class Struct;
}  // namespace connector::json

namespace connector::json::detail {

// Throws MemberError ": <given> is not one of \"<name>\", \"<name>\", ...".
[[noreturn]] CONNECTOR_API void throwNotOneOf(const std::string& given,
                                              const std::vector<std::string>& names);

template <typename E>
struct EnumCodec {
  using Value = E;
  static constexpr bool optional = false;
  Enum<E> names;

  Var write(E value) const {
    const std::string* name = names.nameOf(value);
    if (name == nullptr) throwNotOneOf(std::to_string(Enum<E>::number(value)), names.names());
    return *name;
  }
  void read(const Var& json, E& out) const {
    std::string conversion;
    const std::string& given = stringValue(json, conversion);
    const std::optional<E> value = names.valueOf(given);
    if (!value) throwNotOneOf("\"" + given + "\"", names.names());
    out = *value;
  }
  SchemaPtr schema() const { return enumSchema(names.names()); }
  void writeText(E value, std::string& out) const {
    const std::string* name = names.nameOf(value);
    if (name == nullptr) throwNotOneOf(std::to_string(Enum<E>::number(value)), names.names());
    appendQuoted(out, *name);
  }
  void readDirect(DirectReader& in, E& out) const {
    const std::optional<E> value = names.valueOf(in.readString());
    if (!value) decline();
    out = *value;
  }
};

template <typename U>
struct StructCodec {
  using Value = U;
  static constexpr bool optional = false;
  ObjectDescription<U> description;

  explicit StructCodec(const Struct<U>& declared) : description(declared.description()) {}

  Var write(const U& value) const { return description.write(value, nullptr); }
  void read(const Var& json, U& out) const {
    const Poco::JSON::Object* object = objectOf(json);
    if (object == nullptr) throwKindMismatch(Kind::Object, json);
    description.read(*object, out, nullptr);
  }
  SchemaPtr schema() const { return description.schema(ObjectSchemaOptions{}); }
  void writeText(const U& value, std::string& out) const { description.writeText(value, out); }
  void readDirect(DirectReader& in, U& out) const {
    in.enterObject();
    description.readDirect(in, out, nullptr);
  }
};

template <typename D>
struct LeafCodecOf;
template <typename E>
struct LeafCodecOf<Enum<E>> {
  using type = EnumCodec<E>;
  static type make(const Enum<E>& names) { return type{names}; }
};
template <typename U>
struct LeafCodecOf<Struct<U>> {
  using type = StructCodec<U>;
  static type make(const Struct<U>& declared) { return type(declared); }
};

// The codec of member type M whose innermost type is described by D.
template <typename M, typename D>
struct DescribedCodecOf {
  static_assert(std::is_same_v<M, typename D::Type>,
                "the description given to field() is not one of the member's innermost type");
  using type = typename LeafCodecOf<D>::type;
  static type make(const D& description) { return LeafCodecOf<D>::make(description); }
};
template <typename M, typename D>
struct DescribedCodecOf<std::optional<M>, D> {
  using type = OptionalCodec<typename DescribedCodecOf<M, D>::type>;
  static type make(const D& description) { return type{DescribedCodecOf<M, D>::make(description)}; }
};
template <typename M, typename D>
struct DescribedCodecOf<std::vector<M>, D> {
  using type = VectorCodec<typename DescribedCodecOf<M, D>::type>;
  static type make(const D& description) { return type{DescribedCodecOf<M, D>::make(description)}; }
};
template <typename M, typename D>
struct DescribedCodecOf<std::set<M>, D> {
  using type = SetCodec<typename DescribedCodecOf<M, D>::type>;
  static type make(const D& description) { return type{DescribedCodecOf<M, D>::make(description)}; }
};
template <typename M, std::size_t N, typename D>
struct DescribedCodecOf<std::array<M, N>, D> {
  using type = FixedArrayCodec<typename DescribedCodecOf<M, D>::type, N>;
  static type make(const D& description) { return type{DescribedCodecOf<M, D>::make(description)}; }
};
template <typename M, typename D>
struct DescribedCodecOf<std::unordered_map<std::string, M>, D> {
  using type = UnorderedMapCodec<typename DescribedCodecOf<M, D>::type>;
  static type make(const D& description) { return type{DescribedCodecOf<M, D>::make(description)}; }
};
template <typename M, typename D>
struct DescribedCodecOf<std::map<std::string, M>, D> {
  using type = MapCodec<typename DescribedCodecOf<M, D>::type>;
  static type make(const D& description) { return type{DescribedCodecOf<M, D>::make(description)}; }
};

}  // namespace connector::json::detail

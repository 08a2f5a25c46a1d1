// The codecs of std::set, std::array and std::unordered_map members (of any member kind,
// nested to any depth), beside the vector, optional and map codecs of Codecs.hpp:
//
//   SetCodec<IntegerCodec<int>>             std::set<int>: an array in the set's order;
//                                           a repeated item is refused when reading
//   FixedArrayCodec<StringCodec, 3>         std::array<std::string, 3>: exactly 3 items
//   UnorderedMapCodec<FloatingCodec<double>> std::unordered_map<std::string, double>: an
//                                           object, keys written sorted bytewise
//
// Thread-safety: as every codec (immutable once built).
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "connector/types/detail/Codecs.hpp"

namespace connector::json::detail {

// Throws MemberError ": duplicate item" and ": expected <n> items, got <count>".
[[noreturn]] CONNECTOR_API void throwDuplicateItem();
[[noreturn]] CONNECTOR_API void throwItemCount(std::size_t expected, std::size_t count);

template <typename Inner>
struct SetCodec {
  using Value = std::set<typename Inner::Value>;
  static constexpr bool optional = false;
  Inner inner;
  std::shared_ptr<const ItemCounts> counts{};  // the member's own array only

  Var write(const Value& values) const { return writeItems(inner, values); }
  void read(const Var& json, Value& out) const {
    ArrayView view;
    if (!arrayView(json, view)) throwKindMismatch(Kind::Array, json);
    if (counts) counts->check(static_cast<std::size_t>(view.last - view.first));
    out.clear();
    std::size_t index = 0;
    for (const Var* element = view.first; element != view.last; ++element, ++index) {
      try {
        typename Inner::Value item{};
        inner.read(*element, item);
        if (!out.insert(std::move(item)).second) throwDuplicateItem();
      } catch (MemberError& e) {
        e.within(index);
        throw;
      }
    }
  }
  SchemaPtr schema() const {
    SchemaPtr schema = arraySchema(inner.schema());
    schema->set("uniqueItems", true);
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
      typename Inner::Value item{};
      inner.readDirect(in, item);
      if (!out.insert(std::move(item)).second) decline();  // "duplicate item"
    }
    if (counts) counts->check(out.size());
  }
};

template <typename Inner, std::size_t N>
struct FixedArrayCodec {
  using Value = std::array<typename Inner::Value, N>;
  static constexpr bool optional = false;
  Inner inner;

  Var write(const Value& values) const { return writeItems(inner, values); }
  void read(const Var& json, Value& out) const {
    ArrayView view;
    if (!arrayView(json, view)) throwKindMismatch(Kind::Array, json);
    const auto count = static_cast<std::size_t>(view.last - view.first);
    if (count != N) throwItemCount(N, count);
    for (std::size_t index = 0; index < N; ++index) {
      try {
        inner.read(view.first[index], out[index]);
      } catch (MemberError& e) {
        e.within(index);
        throw;
      }
    }
  }
  SchemaPtr schema() const {
    SchemaPtr schema = arraySchema(inner.schema());
    schema->set("minItems", static_cast<Poco::UInt64>(N));
    schema->set("maxItems", static_cast<Poco::UInt64>(N));
    return schema;
  }
  void writeText(const Value& values, std::string& out) const {
    writeItemsText(inner, values, out);
  }
  void readDirect(DirectReader& in, Value& out) const {
    in.enterArray();
    std::size_t count = 0;
    while (in.nextItem()) {
      if (count == N) decline();  // "expected N items"
      inner.readDirect(in, out[count++]);
    }
    if (count != N) decline();
  }
};

template <typename Inner>
struct UnorderedMapCodec {
  using Value = std::unordered_map<std::string, typename Inner::Value>;
  using Entry = typename Value::value_type;
  static constexpr bool optional = false;
  Inner inner;

  // Written in the order of the keys sorted bytewise (as Poco's objects keep them), so
  // that neither the text nor the first failure depends on hashing.
  Var write(const Value& values) const {
    Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
    for (const Entry* entry : sorted(values)) {
      try {
        if (!validUtf8(entry->first)) throwNotUtf8();
        object->set(entry->first, inner.write(entry->second));
      } catch (MemberError& e) {
        e.within(entry->first);
        throw;
      }
    }
    return object;
  }
  void read(const Var& json, Value& out) const {
    const Poco::JSON::Object* object = objectOf(json);
    if (object == nullptr) throwKindMismatch(Kind::Object, json);
    out.clear();
    out.reserve(object->size());
    for (const auto& [key, value] : *object) {
      try {
        inner.read(value, out[key]);
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
    for (const Entry* entry : sorted(values)) {
      if (!first) out.push_back(',');
      first = false;
      if (!validUtf8(entry->first)) throwNotUtf8();
      appendQuoted(out, entry->first);
      out.push_back(':');
      inner.writeText(entry->second, out);
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

 private:
  static std::vector<const Entry*> sorted(const Value& values) {
    std::vector<const Entry*> entries;
    entries.reserve(values.size());
    for (const auto& entry : values) entries.push_back(&entry);
    std::sort(entries.begin(), entries.end(),
              [](const Entry* a, const Entry* b) { return a->first < b->first; });
    return entries;
  }
};

}  // namespace connector::json::detail

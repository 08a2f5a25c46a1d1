// connector::json::detail::ObjectDescription<T>: the declared members of a struct or
// message type T, and the things done with them: write a T as a JSON object, read a JSON
// object into a T, describe T as JSON Schema, and the direct codec's two: write a T
// straight as JSON text, read one straight from a DirectReader. json::Struct and
// json::MessageType build one; the codec of a struct member holds a copy.
//
//   ObjectDescription<Item> items;
//   items.add<Item>("sku", &Item::sku, PlainCodec<std::string>{});
//   Poco::JSON::Object::Ptr json = items.write(item);
//   items.read(*json, item, false);   // throws MemberError
//   items.writeText(item, text);      // the text Poco's writer makes of write(item)
//
// Reading checks the declared members in declaration order, then (when unknown members
// are refused) the members that were not declared; the first failure is thrown. The
// direct reading meets the members in the order of the text and declines (DirectDecline)
// wherever reading would fail, and on a member given twice; a description that names one
// C++ member twice reads in declaration order only, so readsInAnyOrder() tells the
// direct codec to leave its reading to the converters.
//
// Thread-safety: built on one thread; once built, write, read and schema may run on any
// number of threads at once (fields are immutable and shared between copies).
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include "connector/serializer/detail/DirectReader.hpp"
#include "connector/types/detail/JsonText.hpp"
#include "connector/types/detail/MemberError.hpp"
#include "connector/types/detail/MemberIndex.hpp"
#include "connector/types/detail/SchemaParts.hpp"

namespace connector::json::detail {

// Whether a codec reads the same value whatever the order of the members in the text:
// true unless it holds (at any depth) a description that names one member twice.
template <typename Codec, typename = void>
struct HoldsDescription : std::false_type {};
template <typename Codec>
struct HoldsDescription<Codec, std::void_t<decltype(std::declval<const Codec&>().description)>>
    : std::true_type {};
template <typename Codec, typename = void>
struct HoldsInner : std::false_type {};
template <typename Codec>
struct HoldsInner<Codec, std::void_t<decltype(std::declval<const Codec&>().inner)>>
    : std::true_type {};

template <typename Codec>
bool readsInAnyOrder(const Codec& codec) {
  if constexpr (HoldsDescription<Codec>::value) {
    return codec.description.readsInAnyOrder();
  } else if constexpr (HoldsInner<Codec>::value) {
    return readsInAnyOrder(codec.inner);
  } else {
    return true;
  }
}

// One declared member of T, whatever its type.
template <typename T>
class Field {
 public:
  Field() = default;
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;
  virtual ~Field() = default;

  // Sets the member in out; an empty optional is left out. Throws MemberError.
  virtual void write(const T& value, Poco::JSON::Object& out) const = 0;
  // Reads json (nullptr: the member is absent) into the member of out. Throws MemberError.
  virtual void read(const Poco::Dynamic::Var* json, T& out) const = 0;
  virtual MemberSchema describe() const = 0;

  // Appends the member as "name":value (after a comma unless first) unless it is an
  // empty optional. Throws MemberError.
  virtual void writeText(const T& value, std::string& out, bool& first) const = 0;
  // Reads the reader's current value into the member. Throws DirectDecline.
  virtual void readDirect(DirectReader& in, T& out) const = 0;
  // The member is absent from the text: an optional is reset, anything else declines.
  virtual void readAbsent(T& out) const = 0;
  // Where the member lies in probe: its offset in bytes, its size.
  virtual std::pair<std::size_t, std::size_t> span(const T& probe) const = 0;
  // Whether the member's own value reads the same whatever the order of members.
  virtual bool readsInAnyOrder() const = 0;
};

// The member `member` (of T or of its base C) under `name`, converted by Codec.
template <typename T, typename C, typename Codec>
class MemberField final : public Field<T> {
 public:
  using Member = typename Codec::Value;

  MemberField(std::string name, Member C::*member, Codec codec)
      : name(std::move(name)), member(member), codec(std::move(codec)) {
    appendQuoted(quotedName, this->name);
    quotedName.push_back(':');
  }

  void write(const T& value, Poco::JSON::Object& out) const override {
    const Member& held = value.*member;
    if constexpr (Codec::optional) {
      if (!held) return;
    }
    try {
      out.set(name, codec.write(held));
    } catch (MemberError& e) {
      e.within(name);
      throw;
    }
  }

  void read(const Poco::Dynamic::Var* json, T& out) const override {
    Member& held = out.*member;
    try {
      if (json == nullptr) {
        if constexpr (Codec::optional) {
          held.reset();
          return;
        } else {
          throw MemberError(" is missing");
        }
      }
      codec.read(*json, held);
    } catch (MemberError& e) {
      e.within(name);
      throw;
    }
  }

  MemberSchema describe() const override { return {name, codec.schema(), !Codec::optional}; }

  void writeText(const T& value, std::string& out, bool& first) const override {
    const Member& held = value.*member;
    if constexpr (Codec::optional) {
      if (!held) return;
    }
    if (!first) out.push_back(',');
    first = false;
    out.append(quotedName);
    codec.writeText(held, out);
  }

  void readDirect(DirectReader& in, T& out) const override { codec.readDirect(in, out.*member); }

  void readAbsent(T& out) const override {
    if constexpr (Codec::optional) {
      (out.*member).reset();
    } else {
      decline();  // "is missing"
    }
  }

  std::pair<std::size_t, std::size_t> span(const T& probe) const override {
    const auto* base = reinterpret_cast<const char*>(&probe);
    const auto* at = reinterpret_cast<const char*>(&(probe.*member));
    return {static_cast<std::size_t>(at - base), sizeof(Member)};
  }

  bool readsInAnyOrder() const override { return detail::readsInAnyOrder(codec); }

 private:
  std::string name;
  std::string quotedName;  // "name": as the writer writes it
  Member C::*member;
  Codec codec;
};

template <typename T>
class ObjectDescription {
 public:
  // Declares a member. Throws std::invalid_argument "member \"<name>\" is declared twice".
  template <typename C, typename Codec>
  void add(std::string name, typename Codec::Value C::*member, Codec codec) {
    index.add(name);
    fields.push_back(std::make_shared<const MemberField<T, C, Codec>>(std::move(name), member,
                                                                      std::move(codec)));
  }

  void rejectUnknownMembers() noexcept { reject = true; }

  // A new JSON object with the members in declaration order. Throws MemberError.
  Poco::JSON::Object::Ptr write(const T& value) const {
    Poco::JSON::Object::Ptr object = new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
    for (const auto& field : fields) field->write(value, *object);
    return object;
  }

  // Reads object into out. topLevel: the member "type" is never unknown. Throws MemberError.
  void read(const Poco::JSON::Object& object, T& out, bool topLevel) const {
    constexpr std::size_t kInlineSlots = 16;
    const Poco::Dynamic::Var* inlineSlots[kInlineSlots];
    std::vector<const Poco::Dynamic::Var*> manySlots;
    const Poco::Dynamic::Var** slots = inlineSlots;
    if (fields.size() > kInlineSlots) {
      manySlots.resize(fields.size());
      slots = manySlots.data();
    }
    const std::string* unknown = index.locate(object, slots, topLevel);
    for (std::size_t i = 0; i < fields.size(); ++i) fields[i]->read(slots[i], out);
    if (reject && unknown != nullptr) {
      MemberError error(" is not expected");
      error.within(*unknown);
      throw error;
    }
  }

  // Appends the object as compact text: the members in declaration order, then the
  // member "type" holding *typeName when typeName is not null. Throws MemberError.
  void writeText(const T& value, std::string& out, const std::string* typeName = nullptr) const {
    out.push_back('{');
    bool first = true;
    for (const auto& field : fields) field->writeText(value, out, first);
    if (typeName != nullptr) {
      if (!first) out.push_back(',');
      out.append("\"type\":");
      appendQuoted(out, *typeName);
    }
    out.push_back('}');
  }

  // Reads the members of the object the reader has just entered into out, in the order
  // of the text. topLevel: the member "type" is never unknown. Throws DirectDecline.
  void readDirect(DirectReader& in, T& out, bool topLevel) const {
    constexpr std::size_t kInlineFlags = 64;
    bool inlineSeen[kInlineFlags] = {};
    std::unique_ptr<bool[]> manySeen;
    bool* seen = inlineSeen;
    if (fields.size() > kInlineFlags) {
      manySeen = std::make_unique<bool[]>(fields.size());
      seen = manySeen.get();
    }
    std::size_t expected = 0;
    std::string_view key;
    while (in.nextMember(key)) {
      const std::size_t i = index.find(key, expected);
      if (i == MemberIndex::kNotDeclared) {
        if (reject && !(topLevel && key == "type")) decline();  // "is not expected"
        in.skipValue();
        continue;
      }
      if (seen[i]) decline();  // given twice: the converter path takes the last one
      seen[i] = true;
      expected = i + 1;
      fields[i]->readDirect(in, out);
    }
    for (std::size_t i = 0; i < fields.size(); ++i) {
      if (!seen[i]) fields[i]->readAbsent(out);
    }
  }

  // False when two declared members share storage in a T (one C++ member under two
  // names, say), at this level or in a described struct member: reading then depends
  // on the order of the members.
  bool readsInAnyOrder() const {
    const T probe{};
    std::vector<std::pair<std::size_t, std::size_t>> spans;
    spans.reserve(fields.size());
    for (const auto& field : fields) {
      if (!field->readsInAnyOrder()) return false;
      spans.push_back(field->span(probe));
    }
    std::sort(spans.begin(), spans.end());
    for (std::size_t i = 1; i < spans.size(); ++i) {
      if (spans[i].first < spans[i - 1].first + spans[i - 1].second) return false;
    }
    return true;
  }

  // The object schema; see detail::objectSchema for typeName and withDraft.
  Poco::JSON::Object::Ptr schema(const std::string* typeName, bool withDraft) const {
    std::vector<MemberSchema> members;
    members.reserve(fields.size());
    for (const auto& field : fields) members.push_back(field->describe());
    return objectSchema(members, typeName, reject, withDraft);
  }

 private:
  std::vector<std::shared_ptr<const Field<T>>> fields;  // in declaration order
  MemberIndex index;
  bool reject = false;
};

}  // namespace connector::json::detail

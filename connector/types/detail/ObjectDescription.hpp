// connector::json::detail::ObjectDescription<T>: the declared members of a struct or
// message type T, and the things done with them: write a T as a JSON object, read a JSON
// object into a T, describe T as JSON Schema, and the direct codec's two: write a T
// straight as JSON text, read one straight from a DirectReader. json::Struct,
// json::MessageType and the alternatives of json::Variant build one; the codec of a
// struct member holds a copy.
//
//   ObjectDescription<Item> items;
//   items.add<Item>("sku", &Item::sku, PlainCodec<std::string>{}, nullptr);
//   Poco::JSON::Object::Ptr json = items.write(item, nullptr);
//   items.read(*json, item, nullptr);   // throws MemberError
//   items.writeText(item, text);        // the text Poco's writer makes of write(item)
//
// Reading checks the declared members in declaration order, then (when unknown members
// are refused) the members that were not declared; the first failure is thrown. Kept
// unknown members (keepUnknownMembers) are gathered sorted by name. One member name may
// be ignored throughout (never unknown, never kept): "type" of a message type, the tag
// of a variant's alternative. The direct reading meets the members in the order of the
// text and declines (DirectDecline) wherever reading would fail, and on a member given
// twice; a description that names one C++ member twice reads in declaration order only,
// so readsInAnyOrder() tells the direct codec to leave its reading to the converters.
//
// Thread-safety: built on one thread; once built, write, read and schema may run on any
// number of threads at once (members are immutable and shared between copies).
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include "connector/serializer/detail/DirectReader.hpp"
#include "connector/types/Field.hpp"
#include "connector/types/UnknownMembers.hpp"
#include "connector/types/detail/JsonText.hpp"
#include "connector/types/detail/KeptMembers.hpp"
#include "connector/types/detail/MemberError.hpp"
#include "connector/types/detail/MemberIndex.hpp"
#include "connector/types/detail/MemberOptions.hpp"
#include "connector/types/detail/SchemaParts.hpp"
#include "connector/types/detail/TextChecks.hpp"
#include "connector/types/detail/ValueKinds.hpp"

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
template <typename Codec, typename = void>
struct TellsOrder : std::false_type {};
template <typename Codec>
struct TellsOrder<Codec, std::void_t<decltype(std::declval<const Codec&>().readsInAnyOrder())>>
    : std::true_type {};

template <typename Codec>
bool readsInAnyOrder(const Codec& codec) {
  if constexpr (TellsOrder<Codec>::value) {
    return codec.readsInAnyOrder();
  } else if constexpr (HoldsDescription<Codec>::value) {
    return codec.description.readsInAnyOrder();
  } else if constexpr (HoldsInner<Codec>::value) {
    return readsInAnyOrder(codec.inner);
  } else {
    return true;
  }
}

// The name of the member a message type's name is written in.
inline const std::string& typeMemberName() {
  static const std::string name = "type";
  return name;
}

// One declared member of T, whatever its type.
template <typename T>
class DeclaredMember {
 public:
  DeclaredMember() = default;
  DeclaredMember(const DeclaredMember&) = delete;
  DeclaredMember& operator=(const DeclaredMember&) = delete;
  virtual ~DeclaredMember() = default;

  // Sets the member in out; an empty optional is left out. Throws MemberError.
  virtual void write(const T& value, Poco::JSON::Object& out) const = 0;
  // Reads json (under the member's own name) or aliased (under its alias) into the member
  // of out; both nullptr: the member is absent. Throws MemberError.
  virtual void read(const Poco::Dynamic::Var* json, const Poco::Dynamic::Var* aliased,
                    T& out) const = 0;
  virtual MemberSchema describe() const = 0;

  // Appends the member as "name":value (after a comma unless first) unless it is an
  // empty optional. Throws MemberError.
  virtual void writeText(const T& value, std::string& out, bool& first) const = 0;
  // Reads the reader's current value into the member. Throws DirectDecline.
  virtual void readDirect(DirectReader& in, T& out) const = 0;
  // The member is absent from the text: it takes its default, an optional is reset,
  // anything else declines.
  virtual void readAbsent(T& out) const = 0;
  // Where the member lies in probe: its offset in bytes, its size.
  virtual std::pair<std::size_t, std::size_t> span(const T& probe) const = 0;
  // Whether the member's own value reads the same whatever the order of members.
  virtual bool readsInAnyOrder() const = 0;
};

// The member `member` (of T or of its base C) under `name`, converted by Codec.
template <typename T, typename C, typename Codec>
class MemberField final : public DeclaredMember<T> {
 public:
  using Member = typename Codec::Value;

  MemberField(std::string name, Member C::*member, Codec codec, const Field* options)
      : name(std::move(name)), member(member), codec(std::move(codec)) {
    appendQuoted(quotedName, this->name);
    quotedName.push_back(':');
    if (options == nullptr) return;
    alias = options->aliasOf();
    if (options->isDefaultedMember()) {
      const T probe{};
      defaultValue.emplace(probe.*member);
      try {
        if constexpr (Codec::optional) {
          defaultJson = *defaultValue ? this->codec.write(*defaultValue) : Poco::Dynamic::Var();
        } else {
          defaultJson = this->codec.write(*defaultValue);
        }
      } catch (MemberError& e) {
        e.within(this->name);
        throw std::invalid_argument(e.message() + " (the member's default value)");
      }
    }
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

  void read(const Poco::Dynamic::Var* json, const Poco::Dynamic::Var* aliased,
            T& out) const override {
    Member& held = out.*member;
    try {
      if (json != nullptr && aliased != nullptr) {
        throw MemberError(" is given twice, also as \"" + *alias + "\"");
      }
      const Poco::Dynamic::Var* given = json != nullptr ? json : aliased;
      if (given == nullptr) {
        if (defaultValue) {
          held = *defaultValue;
          return;
        }
        if constexpr (Codec::optional) {
          held.reset();
          return;
        } else {
          throw MemberError(" is missing");
        }
      }
      codec.read(*given, held);
    } catch (MemberError& e) {
      e.within(name);
      throw;
    }
  }

  MemberSchema describe() const override {
    MemberSchema schema{name, codec.schema(), !Codec::optional && !defaultValue, alias};
    if (defaultValue) schema.schema->set("default", defaultJson);
    return schema;
  }

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
    if (defaultValue) {
      out.*member = *defaultValue;
      return;
    }
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
  std::optional<std::string> alias;
  std::optional<Member> defaultValue;  // defaulted(): what absence reads as
  Poco::Dynamic::Var defaultJson;      // and as the schema's "default"
};

// Where a T keeps its unknown members.
template <typename T>
class KeptMembers {
 public:
  KeptMembers() = default;
  KeptMembers(const KeptMembers&) = delete;
  KeptMembers& operator=(const KeptMembers&) = delete;
  virtual ~KeptMembers() = default;
  virtual UnknownMembers& of(T& value) const = 0;
  virtual const UnknownMembers& of(const T& value) const = 0;
};

template <typename T, typename C>
class KeptMembersAt final : public KeptMembers<T> {
 public:
  explicit KeptMembersAt(UnknownMembers C::*into) : into(into) {}
  UnknownMembers& of(T& value) const override { return value.*into; }
  const UnknownMembers& of(const T& value) const override { return value.*into; }

 private:
  UnknownMembers C::*into;
};

template <typename T>
class ObjectDescription {
 public:
  // Declares a member with its options (nullptr: none). Throws std::invalid_argument
  // "member \"<name>\" is declared twice" (also for an alias), and the option errors of
  // applyOptions.
  template <typename C, typename Codec>
  void add(std::string name, typename Codec::Value C::*member, Codec codec, const Field* options) {
    if (options != nullptr) applyOptions(codec, *options, name);
    std::size_t aliasSlot = kNoAlias;
    const std::size_t slot = index.add(name);
    if (options != nullptr && options->aliasOf()) aliasSlot = index.add(*options->aliasOf());
    fieldOfName.resize(index.size());
    fieldOfName[slot] = fields.size();
    if (aliasSlot != kNoAlias) fieldOfName[aliasSlot] = fields.size();
    slots.push_back({slot, aliasSlot});
    fields.push_back(std::make_shared<const MemberField<T, C, Codec>>(std::move(name), member,
                                                                      std::move(codec), options));
  }

  // Throws std::invalid_argument "unknown members are either kept or refused, not both".
  void rejectUnknownMembers() {
    if (kept != nullptr) throw std::invalid_argument(kKeptOrRefused);
    reject = true;
  }

  template <typename C>
  void keepUnknownMembers(UnknownMembers C::*into) {
    static_assert(std::is_base_of_v<C, T>, "the member belongs to another class");
    if (reject) throw std::invalid_argument(kKeptOrRefused);
    kept = std::make_shared<const KeptMembersAt<T, C>>(into);
  }

  // Whether name is declared (as a member's name or alias).
  bool declares(std::string_view name) const noexcept { return index.has(name); }

  // A new JSON object with the members in declaration order, then the kept ones.
  // reserved: a name no kept member may have (the one the caller writes). Throws
  // MemberError.
  Poco::JSON::Object::Ptr write(const T& value, const std::string* reserved) const {
    Poco::JSON::Object::Ptr object = new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
    writeInto(value, *object, reserved);
    return object;
  }

  void writeInto(const T& value, Poco::JSON::Object& object, const std::string* reserved) const {
    for (const auto& field : fields) field->write(value, object);
    if (kept == nullptr) return;
    for (const auto& [name, text] : kept->of(value)) {
      try {
        checkKeptName(name, reserved);
        object.set(name, keptValue(text));
      } catch (MemberError& e) {
        e.within(name);
        throw;
      }
    }
  }

  // Reads object into out. ignored: a member never unknown (nullptr: none). Throws
  // MemberError.
  void read(const Poco::JSON::Object& object, T& out, const std::string* ignored) const {
    constexpr std::size_t kInlineSlots = 16;
    const Poco::Dynamic::Var* inlineSlots[kInlineSlots];
    std::vector<const Poco::Dynamic::Var*> manySlots;
    const Poco::Dynamic::Var** found = inlineSlots;
    if (index.size() > kInlineSlots) {
      manySlots.resize(index.size());
      found = manySlots.data();
    }
    std::vector<const Poco::JSON::Object::ValueType*> unknownMembers;
    const std::string* unknown =
        index.locate(object, found, ignored, kept != nullptr ? &unknownMembers : nullptr);
    for (std::size_t i = 0; i < fields.size(); ++i) {
      const Slots& at = slots[i];
      fields[i]->read(found[at.name], at.alias == kNoAlias ? nullptr : found[at.alias], out);
    }
    if (reject && unknown != nullptr) {
      MemberError error(" is not expected");
      error.within(*unknown);
      throw error;
    }
    if (kept != nullptr) {
      UnknownMembers& into = kept->of(out);
      into.clear();
      into.reserve(unknownMembers.size());
      // In the object's order, which is sorted by name.
      for (const auto* member : unknownMembers) {
        into.emplace_back(member->first, keptText(member->second));
      }
    }
  }

  // Appends the object as compact text: the members in declaration order, the kept
  // ones, then the member "type" holding *typeName when typeName is not null. Throws
  // MemberError (or DirectDecline).
  void writeText(const T& value, std::string& out, const std::string* typeName = nullptr) const {
    out.push_back('{');
    bool first = true;
    writeMembers(value, out, first, typeName != nullptr ? &typeMemberName() : nullptr);
    if (typeName != nullptr) {
      if (!first) out.push_back(',');
      out.append("\"type\":");
      appendQuoted(out, *typeName);
    }
    out.push_back('}');
  }

  // Appends the members (each after a comma unless first) without the braces.
  void writeMembers(const T& value, std::string& out, bool& first,
                    const std::string* reserved) const {
    for (const auto& field : fields) field->writeText(value, out, first);
    if (kept == nullptr || kept->of(value).empty()) return;
    const UnknownMembers& members = kept->of(value);
    if (members.size() > 1) {  // a name kept twice: Poco's object keeps one of them
      std::vector<std::string_view> names;
      names.reserve(members.size());
      for (const auto& member : members) names.emplace_back(member.first);
      std::sort(names.begin(), names.end());
      if (std::adjacent_find(names.begin(), names.end()) != names.end()) decline();
    }
    for (const auto& [name, text] : members) {
      checkKeptName(name, reserved);
      if (!first) out.push_back(',');
      first = false;
      appendQuoted(out, name);
      out.push_back(':');
      appendKeptText(out, text);
    }
  }

  // Reads the members of the object the reader has just entered into out, in the order
  // of the text. ignored: a member never unknown (nullptr: none); when ignoredTaken, it
  // was read already, and a second one declines. Throws DirectDecline.
  void readDirect(DirectReader& in, T& out, const std::string* ignored,
                  bool ignoredTaken = false) const {
    constexpr std::size_t kInlineFlags = 64;
    bool inlineSeen[kInlineFlags] = {};
    std::unique_ptr<bool[]> manySeen;
    bool* seen = inlineSeen;
    if (fields.size() > kInlineFlags) {
      manySeen = std::make_unique<bool[]>(fields.size());
      seen = manySeen.get();
    }
    UnknownMembers* into = kept != nullptr ? &kept->of(out) : nullptr;
    if (into != nullptr) into->clear();
    std::size_t expected = 0;
    std::string_view key;
    while (in.nextMember(key)) {
      const std::size_t name = index.find(key, expected);
      if (name == MemberIndex::kNotDeclared) {
        if (ignored != nullptr && key == *ignored) {
          if (ignoredTaken) decline();  // given twice: Poco keeps the last one
          in.skipValue();
          continue;
        }
        if (reject) decline();  // "is not expected"
        if (into != nullptr) {
          into->emplace_back(std::string(key), std::string());
          appendKeptValue(in, into->back().second);
        } else {
          in.skipValue();
        }
        continue;
      }
      const std::size_t i = fieldOfName[name];
      if (seen[i]) decline();  // given twice (or under both names)
      seen[i] = true;
      expected = name + 1;
      fields[i]->readDirect(in, out);
    }
    for (std::size_t i = 0; i < fields.size(); ++i) {
      if (!seen[i]) fields[i]->readAbsent(out);
    }
    if (into != nullptr && into->size() > 1) {
      std::sort(into->begin(), into->end(),
                [](const auto& a, const auto& b) { return a.first < b.first; });
      const auto repeated =
          std::adjacent_find(into->begin(), into->end(),
                             [](const auto& a, const auto& b) { return a.first == b.first; });
      if (repeated != into->end()) decline();  // Poco keeps the last one
    }
  }

  // False when two declared members share storage in a T (one C++ member under two
  // names, say), at this level or in a described struct member: reading then depends
  // on the order of the members.
  bool readsInAnyOrder() const {
    const T probe{};
    std::vector<std::pair<std::size_t, std::size_t>> spans;
    spans.reserve(fields.size() + 1);
    for (const auto& field : fields) {
      if (!field->readsInAnyOrder()) return false;
      spans.push_back(field->span(probe));
    }
    if (kept != nullptr) {
      const auto* base = reinterpret_cast<const char*>(&probe);
      const auto* at = reinterpret_cast<const char*>(&kept->of(probe));
      spans.emplace_back(static_cast<std::size_t>(at - base), sizeof(UnknownMembers));
    }
    std::sort(spans.begin(), spans.end());
    for (std::size_t i = 1; i < spans.size(); ++i) {
      if (spans[i].first < spans[i - 1].first + spans[i - 1].second) return false;
    }
    return true;
  }

  // The object schema; see detail::objectSchema (rejectUnknown comes from here).
  Poco::JSON::Object::Ptr schema(ObjectSchemaOptions options) const {
    std::vector<MemberSchema> members;
    members.reserve(fields.size());
    for (const auto& field : fields) members.push_back(field->describe());
    options.rejectUnknown = reject;
    return objectSchema(members, options);
  }

 private:
  static constexpr std::size_t kNoAlias = static_cast<std::size_t>(-1);
  static constexpr const char* kKeptOrRefused =
      "unknown members are either kept or refused, not both";

  // The numbers (in index) of a member's name and alias.
  struct Slots {
    std::size_t name;
    std::size_t alias;
  };

  void checkKeptName(const std::string& name, const std::string* reserved) const {
    if (index.has(name) || (reserved != nullptr && name == *reserved)) throwDeclaredAndKept();
    if (!validUtf8(name)) throwNotUtf8();
  }

  std::vector<std::shared_ptr<const DeclaredMember<T>>> fields;  // in declaration order
  std::vector<Slots> slots;                                      // slots[i]: of fields[i]
  std::vector<std::size_t> fieldOfName;                          // the field of each name in index
  MemberIndex index;
  bool reject = false;
  std::shared_ptr<const KeptMembers<T>> kept;  // nullptr: unknown members are not kept
};

}  // namespace connector::json::detail

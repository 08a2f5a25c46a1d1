// connector::json::detail::ObjectDescription<T>: the declared members of a struct or
// message type T, and the three things done with them: write a T as a JSON object, read
// a JSON object into a T, describe T as JSON Schema. json::Struct and json::MessageType
// build one; the codec of a struct member holds a copy.
//
//   ObjectDescription<Item> items;
//   items.add<Item>("sku", &Item::sku, PlainCodec<std::string>{});
//   Poco::JSON::Object::Ptr json = items.write(item);
//   items.read(*json, item, false);   // throws MemberError
//
// Reading checks the declared members in declaration order, then (when unknown members
// are refused) the members that were not declared; the first failure is thrown.
//
// Thread-safety: built on one thread; once built, write, read and schema may run on any
// number of threads at once (fields are immutable and shared between copies).
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include "connector/types/detail/MemberError.hpp"
#include "connector/types/detail/MemberIndex.hpp"
#include "connector/types/detail/SchemaParts.hpp"

namespace connector::json::detail {

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
};

// The member `member` (of T or of its base C) under `name`, converted by Codec.
template <typename T, typename C, typename Codec>
class MemberField final : public Field<T> {
 public:
  using Member = typename Codec::Value;

  MemberField(std::string name, Member C::*member, Codec codec)
      : name(std::move(name)), member(member), codec(std::move(codec)) {}

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

 private:
  std::string name;
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

// The pieces of JSON Schema (draft 2020-12) that the declared types put together: one
// schema object per member kind, and the object schema of a struct or message type.
//
//   auto quantity = integerSchema(INT32_MIN, INT32_MAX);
//   // {"type":"integer","minimum":-2147483648,"maximum":2147483647}
//   auto note = nullableSchema(typeSchema("string"));
//   // {"anyOf":[{"type":"string"},{"type":"null"}]}
//
// Every object is created with its members in insertion order, so schemas read in the
// order of their declaration.
//
// Thread-safety: pure functions; each call returns new objects.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <Poco/JSON/Object.h>

#include "connector/Export.hpp"

namespace connector::json::detail {

// The "$schema" of every schema written here.
inline constexpr const char* kSchemaDraft = "https://json-schema.org/draft/2020-12/schema";

// {"type":"<jsonType>"}
CONNECTOR_API Poco::JSON::Object::Ptr typeSchema(const char* jsonType);

// {"type":"integer","minimum":min,"maximum":max}
CONNECTOR_API Poco::JSON::Object::Ptr integerSchema(std::int64_t min, std::uint64_t max);

// {"anyOf":[inner,{"type":"null"}]}
CONNECTOR_API Poco::JSON::Object::Ptr nullableSchema(const Poco::JSON::Object::Ptr& inner);

// {"type":"array","items":items}
CONNECTOR_API Poco::JSON::Object::Ptr arraySchema(const Poco::JSON::Object::Ptr& items);

// {"type":"object","additionalProperties":values}
CONNECTOR_API Poco::JSON::Object::Ptr mapSchema(const Poco::JSON::Object::Ptr& values);

// {"enum":["<name>",...]}
CONNECTOR_API Poco::JSON::Object::Ptr enumSchema(const std::vector<std::string>& names);

// One declared member of an object schema.
struct MemberSchema {
  std::string name;
  Poco::JSON::Object::Ptr schema;
  bool required = true;
  std::optional<std::string> alias;  // a second name the member is read under
};

// What an object schema says beside its members.
struct ObjectSchemaOptions {
  const std::string* title = nullptr;
  // A member holding exactly *constValue, first and required ("type" of a message type,
  // the tag of a variant's alternative).
  const std::string* constName = nullptr;
  const std::string* constValue = nullptr;
  bool rejectUnknown = false;
  bool withDraft = false;
};

// {"$schema":...,"title":<title>,"type":"object","properties":{...},"required":[...],
//  "allOf":[...],"additionalProperties":false}: "$schema" only withDraft; "title" and the
// const member only when given; "required" only when some member is; "allOf" only when a
// member has an alias: then each name is a property, a required member needs one of
// them ({"anyOf":[{"required":[name]},{"required":[alias]}]}) and none may have both
// ({"not":{"required":[name,alias]}}); "additionalProperties" only rejectUnknown.
CONNECTOR_API Poco::JSON::Object::Ptr objectSchema(const std::vector<MemberSchema>& members,
                                                   const ObjectSchemaOptions& options);

}  // namespace connector::json::detail

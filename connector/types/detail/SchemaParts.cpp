#include "connector/types/detail/SchemaParts.hpp"

#include <limits>

#include <Poco/JSON/Array.h>

namespace connector::json::detail {

namespace {

Poco::JSON::Object::Ptr newOrdered() {
  return new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
}

}  // namespace

Poco::JSON::Object::Ptr typeSchema(const char* jsonType) {
  Poco::JSON::Object::Ptr schema = newOrdered();
  schema->set("type", std::string(jsonType));
  return schema;
}

Poco::JSON::Object::Ptr integerSchema(std::int64_t min, std::uint64_t max) {
  Poco::JSON::Object::Ptr schema = typeSchema("integer");
  schema->set("minimum", min);
  // Written as the parser would read it back: Int64 where it fits.
  if (max <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    schema->set("maximum", static_cast<std::int64_t>(max));
  } else {
    schema->set("maximum", max);
  }
  return schema;
}

Poco::JSON::Object::Ptr nullableSchema(const Poco::JSON::Object::Ptr& inner) {
  Poco::JSON::Array::Ptr choices = new Poco::JSON::Array;
  choices->add(inner);
  choices->add(typeSchema("null"));
  Poco::JSON::Object::Ptr schema = newOrdered();
  schema->set("anyOf", choices);
  return schema;
}

Poco::JSON::Object::Ptr arraySchema(const Poco::JSON::Object::Ptr& items) {
  Poco::JSON::Object::Ptr schema = typeSchema("array");
  schema->set("items", items);
  return schema;
}

Poco::JSON::Object::Ptr mapSchema(const Poco::JSON::Object::Ptr& values) {
  Poco::JSON::Object::Ptr schema = typeSchema("object");
  schema->set("additionalProperties", values);
  return schema;
}

Poco::JSON::Object::Ptr enumSchema(const std::vector<std::string>& names) {
  Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
  for (const auto& name : names) list->add(name);
  Poco::JSON::Object::Ptr schema = newOrdered();
  schema->set("enum", list);
  return schema;
}

namespace {

Poco::JSON::Object::Ptr requiring(const std::vector<std::string>& names) {
  Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
  for (const auto& name : names) list->add(name);
  Poco::JSON::Object::Ptr schema = newOrdered();
  schema->set("required", list);
  return schema;
}

}  // namespace

Poco::JSON::Object::Ptr objectSchema(const std::vector<MemberSchema>& members,
                                     const ObjectSchemaOptions& options) {
  Poco::JSON::Object::Ptr schema = newOrdered();
  if (options.withDraft) schema->set("$schema", std::string(kSchemaDraft));
  if (options.title != nullptr) schema->set("title", *options.title);
  schema->set("type", std::string("object"));
  Poco::JSON::Object::Ptr properties = newOrdered();
  Poco::JSON::Array::Ptr required = new Poco::JSON::Array;
  Poco::JSON::Array::Ptr constraints = new Poco::JSON::Array;
  if (options.constName != nullptr) {
    Poco::JSON::Object::Ptr constant = newOrdered();
    constant->set("const", *options.constValue);
    properties->set(*options.constName, constant);
    required->add(*options.constName);
  }
  for (const MemberSchema& member : members) {
    properties->set(member.name, member.schema);
    if (!member.alias) {
      if (member.required) required->add(member.name);
      continue;
    }
    properties->set(*member.alias, member.schema);
    if (member.required) {
      Poco::JSON::Array::Ptr either = new Poco::JSON::Array;
      either->add(requiring({member.name}));
      either->add(requiring({*member.alias}));
      Poco::JSON::Object::Ptr oneOfTwo = newOrdered();
      oneOfTwo->set("anyOf", either);
      constraints->add(oneOfTwo);
    }
    Poco::JSON::Object::Ptr notBoth = newOrdered();
    notBoth->set("not", requiring({member.name, *member.alias}));
    constraints->add(notBoth);
  }
  schema->set("properties", properties);
  if (required->size() > 0) schema->set("required", required);
  if (constraints->size() > 0) schema->set("allOf", constraints);
  if (options.rejectUnknown) schema->set("additionalProperties", false);
  return schema;
}

}  // namespace connector::json::detail

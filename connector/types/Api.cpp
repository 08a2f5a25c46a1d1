#include "connector/types/Api.hpp"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

namespace connector::json {

namespace {

constexpr const char* kMediaType = "application/json";
constexpr const char* kErrorSchema = "Error";
constexpr const char* kBearerScheme = "bearer";

// The error answers of the HTTP gateway: status, component name, description.
struct ErrorAnswer {
  const char* status;
  const char* name;
  const char* description;
};
constexpr ErrorAnswer kErrorAnswers[] = {
    {"400", "BadRequest",
     "The request body is not a JSON object, is not of the operation's request type, or "
     "the service refused it"},
    {"401", "Unauthorized",
     "No bearer token, or not one the gateway accepts (the answer carries "
     "WWW-Authenticate: Bearer)"},
    {"404", "NotFound", "No service is bound at the address"},
    {"413", "PayloadTooLarge", "The request body is larger than the gateway accepts"},
    {"415", "UnsupportedMediaType",
     "The request's Content-Type is neither application/json nor application/<x>+json"},
    {"503", "ServiceUnavailable", "The gateway is busy or draining, or the service is not running"},
    {"504", "GatewayTimeout", "The service did not answer in time"},
    {"500", "InternalServerError", "The service failed"},
};

bool pathCharacter(char c) {
  const auto u = static_cast<unsigned char>(c);
  return std::isalnum(u) != 0 || std::strchr("-._~!$&'()*+,;=:@/", c) != nullptr;
}

// A character as an error text shows it: itself, or "\x1f" for a control character.
std::string shownCharacter(char c) {
  const auto u = static_cast<unsigned char>(c);
  if (std::iscntrl(u) == 0) return std::string(1, c);
  char hex[8];
  std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned>(u));
  return hex;
}

void checkAddress(const std::string& address) {
  if (address.empty()) throw std::invalid_argument("an operation's address is empty");
  if (address[0] == '/') {
    throw std::invalid_argument("address \"" + address + "\" starts with '/'");
  }
  for (const char c : address) {
    if (c == '\0' || !pathCharacter(c)) {
      std::string text = "address \"" + address + "\": '";
      text += shownCharacter(c);
      text += "' cannot stand in a URL path";
      throw std::invalid_argument(text);
    }
  }
}

Poco::JSON::Object::Ptr newObject() {
  return new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
}

Poco::JSON::Object::Ptr parsed(const std::string& text) {
  // Keeps the members in the order of the text (the schemas' reading order).
  Poco::JSON::Parser parser(new Poco::JSON::ParseHandler(true));
  return parser.parse(text).extract<Poco::JSON::Object::Ptr>();
}

Poco::JSON::Object::Ptr refTo(const std::string& where) {
  Poco::JSON::Object::Ptr ref = newObject();
  ref->set("$ref", where);
  return ref;
}

Poco::JSON::Object::Ptr jsonContent(const std::string& schemaName,
                                    const std::string* example = nullptr) {
  Poco::JSON::Object::Ptr media = newObject();
  media->set("schema", refTo("#/components/schemas/" + schemaName));
  if (example != nullptr && !example->empty()) media->set("example", parsed(*example));
  Poco::JSON::Object::Ptr content = newObject();
  content->set(kMediaType, media);
  return content;
}

Poco::JSON::Object::Ptr errorSchema() {
  Poco::JSON::Object::Ptr text = newObject();
  text->set("type", "string");
  Poco::JSON::Object::Ptr properties = newObject();
  properties->set("error", text);
  Poco::JSON::Array::Ptr required = new Poco::JSON::Array;
  required->add("error");
  Poco::JSON::Object::Ptr schema = newObject();
  schema->set("title", "Error");
  schema->set("description", "Why the request was not answered");
  schema->set("type", "object");
  schema->set("properties", properties);
  schema->set("required", required);
  return schema;
}

Poco::JSON::Object::Ptr operationObject(const ApiOperation& operation, bool bearer) {
  Poco::JSON::Object::Ptr body = newObject();
  body->set("description", "A " + operation.requestType);
  body->set("required", true);
  body->set("content", jsonContent(Api::componentName(operation.requestType), &operation.example));

  Poco::JSON::Object::Ptr answered = newObject();
  answered->set("description", "A " + operation.answerType);
  answered->set("content", jsonContent(Api::componentName(operation.answerType)));
  Poco::JSON::Object::Ptr responses = newObject();
  responses->set("200", answered);
  for (const ErrorAnswer& error : kErrorAnswers) {
    if (!bearer && std::strcmp(error.status, "401") == 0) continue;
    responses->set(error.status, refTo(std::string("#/components/responses/") + error.name));
  }

  Poco::JSON::Object::Ptr post = newObject();
  post->set("operationId", operation.address);
  post->set("summary", operation.summary);
  post->set("requestBody", body);
  post->set("responses", responses);
  return post;
}

}  // namespace

Api::Api(std::string title, std::string version)
    : apiTitle(std::move(title)), apiVersion(std::move(version)) {}

std::string Api::componentName(const std::string& typeName) {
  std::string name = typeName;
  for (char& c : name) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '/') {
      c = '.';
    } else if (std::isalnum(u) == 0 && c != '.' && c != '-' && c != '_') {
      name.clear();
      break;
    }
  }
  if (name.empty()) {
    throw std::invalid_argument("type \"" + typeName +
                                "\" gives no component name: only letters, digits, '.', '-', "
                                "'_' and '/' are allowed");
  }
  return name;
}

Poco::JSON::Object::Ptr Api::withType(const std::string& name,
                                      const Poco::JSON::Object::Ptr& members) {
  Poco::JSON::Object::Ptr object = newObject();
  object->set("type", name);
  for (const std::string& member : members->getNames()) {  // in the order written
    if (member != "type") object->set(member, members->get(member));
  }
  return object;
}

std::string Api::textOf(const Poco::JSON::Object::Ptr& object) {
  std::ostringstream out;
  object->stringify(out);
  return out.str();
}

void Api::add(ApiOperation&& operation) {
  checkAddress(operation.address);
  for (const ApiOperation& known : declared) {
    if (known.address == operation.address) {
      throw std::invalid_argument("address \"" + operation.address + "\" is declared twice");
    }
  }
  // Every type name keys one schema: the same name must mean the same schema, and no
  // two names may share a key.
  const std::pair<const std::string*, const std::string*> types[] = {
      {&operation.requestType, &operation.requestSchema},
      {&operation.answerType, &operation.answerSchema}};
  for (const auto& [name, schema] : types) {
    const std::string key = componentName(*name);
    if (key == kErrorSchema) {
      throw std::invalid_argument("type \"" + *name +
                                  "\" takes the name of the error answers' schema");
    }
    for (const auto& [otherName, otherSchema] : types) {
      if (*otherName == *name && *otherSchema != *schema) {
        throw std::invalid_argument("type \"" + *name +
                                    "\" is declared twice with different schemas");
      }
    }
    for (const ApiOperation& known : declared) {
      const std::pair<const std::string*, const std::string*> knownTypes[] = {
          {&known.requestType, &known.requestSchema}, {&known.answerType, &known.answerSchema}};
      for (const auto& [knownName, knownSchema] : knownTypes) {
        if (*knownName == *name) {
          if (*knownSchema != *schema) {
            throw std::invalid_argument("type \"" + *name +
                                        "\" is declared twice with different schemas");
          }
        } else if (componentName(*knownName) == key) {
          throw std::invalid_argument("types \"" + *knownName + "\" and \"" + *name +
                                      "\" both give the component name \"" + key + "\"");
        }
      }
    }
  }
  if (componentName(operation.requestType) == componentName(operation.answerType) &&
      operation.requestType != operation.answerType) {
    throw std::invalid_argument("types \"" + operation.requestType + "\" and \"" +
                                operation.answerType + "\" both give the component name \"" +
                                componentName(operation.requestType) + "\"");
  }
  declared.push_back(std::move(operation));
}

Poco::JSON::Object::Ptr Api::openApi(Security security) const {
  const bool bearer = security == Security::BearerTokens;

  Poco::JSON::Object::Ptr info = newObject();
  info->set("title", apiTitle);
  info->set("version", apiVersion);

  Poco::JSON::Object::Ptr paths = newObject();
  Poco::JSON::Object::Ptr schemas = newObject();
  for (const ApiOperation& operation : declared) {
    Poco::JSON::Object::Ptr item = newObject();
    item->set("post", operationObject(operation, bearer));
    paths->set("/" + operation.address, item);
    schemas->set(componentName(operation.requestType), parsed(operation.requestSchema));
    schemas->set(componentName(operation.answerType), parsed(operation.answerSchema));
  }
  schemas->set(kErrorSchema, errorSchema());

  Poco::JSON::Object::Ptr responses = newObject();
  for (const ErrorAnswer& error : kErrorAnswers) {
    if (!bearer && std::strcmp(error.status, "401") == 0) continue;
    Poco::JSON::Object::Ptr response = newObject();
    response->set("description", error.description);
    response->set("content", jsonContent(kErrorSchema));
    responses->set(error.name, response);
  }

  Poco::JSON::Object::Ptr components = newObject();
  components->set("schemas", schemas);
  components->set("responses", responses);

  Poco::JSON::Object::Ptr document = newObject();
  document->set("openapi", "3.1.0");
  document->set("info", info);
  document->set("paths", paths);
  document->set("components", components);
  if (bearer) {
    Poco::JSON::Object::Ptr scheme = newObject();
    scheme->set("type", "http");
    scheme->set("scheme", "bearer");
    Poco::JSON::Object::Ptr schemes = newObject();
    schemes->set(kBearerScheme, scheme);
    components->set("securitySchemes", schemes);
    Poco::JSON::Object::Ptr requirement = newObject();
    requirement->set(kBearerScheme, Poco::JSON::Array::Ptr(new Poco::JSON::Array));
    Poco::JSON::Array::Ptr required = new Poco::JSON::Array;
    required->add(requirement);
    document->set("security", required);
  }
  return document;
}

}  // namespace connector::json

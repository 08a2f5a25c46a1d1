#include "connector/transport/ErrorBody.hpp"

#include <sstream>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

namespace connector::transport {

std::string errorBody(const std::string& text) {
  Poco::JSON::Object body;
  body.set("error", text);
  std::ostringstream out;
  body.stringify(out, 0, -1);
  return out.str();
}

std::string errorText(std::string_view body) noexcept {
  try {
    Poco::JSON::Parser parser;
    Poco::Dynamic::Var parsed = parser.parse(std::string(body));
    Poco::JSON::Object::Ptr object = parsed.extract<Poco::JSON::Object::Ptr>();
    if (object.isNull() || !object->has("error")) return {};
    Poco::Dynamic::Var error = object->get("error");
    return error.isString() ? error.convert<std::string>() : std::string();
  } catch (...) {
    return {};
  }
}

}  // namespace connector::transport

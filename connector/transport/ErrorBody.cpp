#include "connector/transport/ErrorBody.hpp"

#include <sstream>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/UTF8Encoding.h>

namespace connector::transport {

namespace {

// The text with every byte sequence that is not UTF-8 replaced by U+FFFD: failure texts
// may quote a peer's bytes, and the body must stay JSON whatever they were.
std::string validUtf8(const std::string& text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const auto size = static_cast<int>(text.size());
  std::string out;
  out.reserve(text.size());
  for (int at = 0; at < size;) {
    const int length = Poco::UTF8Encoding().sequenceLength(bytes + at, size - at);
    if (length > 0 && length <= size - at && Poco::UTF8Encoding::isLegal(bytes + at, length)) {
      out.append(text, static_cast<std::size_t>(at), static_cast<std::size_t>(length));
      at += length;
    } else {
      out.append("\xEF\xBF\xBD");
      ++at;  // one byte replaced; the next one may start a valid sequence
    }
  }
  return out;
}

}  // namespace

std::string errorBody(const std::string& text) {
  Poco::JSON::Object body;
  body.set("error", validUtf8(text));
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

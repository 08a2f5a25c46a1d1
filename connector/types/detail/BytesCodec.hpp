// The codec of binary members, std::vector<std::byte>: standard base64 with padding
// (RFC 4648 section 4) in a JSON string; anything else is refused when reading with
// `member "<path>": not base64`.
//
//   BytesCodec codec;
//   codec.write({std::byte{0}, std::byte{255}});   // "AP8="
//
// Thread-safety: as every codec (immutable).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include "connector/Export.hpp"
#include "connector/serializer/detail/DirectReader.hpp"
#include "connector/types/detail/Base64.hpp"
#include "connector/types/detail/SchemaParts.hpp"
#include "connector/types/detail/ValueKinds.hpp"

namespace connector::json::detail {

// Throws MemberError ": not base64".
[[noreturn]] CONNECTOR_API void throwNotBase64();

struct BytesCodec {
  using Value = std::vector<std::byte>;
  static constexpr bool optional = false;

  Poco::Dynamic::Var write(const Value& value) const {
    std::string text;
    appendBase64(text, value);
    return text;
  }
  void read(const Poco::Dynamic::Var& json, Value& out) const {
    std::string conversion;
    if (!decodeBase64(stringValue(json, conversion), out)) throwNotBase64();
  }
  Poco::JSON::Object::Ptr schema() const {
    Poco::JSON::Object::Ptr schema = typeSchema("string");
    schema->set("contentEncoding", std::string("base64"));
    schema->set("pattern", std::string(base64Pattern()));
    return schema;
  }
  void writeText(const Value& value, std::string& out) const {
    out.push_back('"');
    appendBase64(out, value);  // no byte of base64 needs an escape
    out.push_back('"');
  }
  void readDirect(DirectReader& in, Value& out) const {
    if (!decodeBase64(in.readString(), out)) decline();
  }
};

}  // namespace connector::json::detail

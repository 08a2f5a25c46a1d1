// connector::json::DirectCodec: a codec that goes straight between the messages of one
// registered name and compact JSON text, without a Poco object in between.
//
//   serializer->registerType("shop/Order", typeid(Order), toJson, fromJson, codec);
//   serializer->serialize(order, out);   // the codec writes the text when it can
//
// A serializer that holds a direct codec for a name keeps the name's converters beside
// it; the converters stay the definition of what the name's messages look like. The
// codec only ever claims a result it can prove identical to the converters' one: when
// it cannot write a message (a value JSON cannot hold, a message of another class) or
// cannot read a document exactly as the converter path would (a syntax error, a member
// error, a duplicated key, a number the two parsers might read differently, nesting
// past the parser's limit), it says so, and the serializer hands the message or the
// same bytes to the converters, which decide and report.
//
// json::MessageType makes one from its declaration (MessageType::registerWith).
//
// Thread-safety: a codec is immutable; any number of threads may use one at once.
#pragma once

#include <memory>
#include <string>

#include "connector/Export.hpp"
#include "connector/host/Message.hpp"

namespace connector::json {

namespace detail {
class DirectReader;
}  // namespace detail

class CONNECTOR_API DirectCodec {
 public:
  DirectCodec() = default;
  DirectCodec(const DirectCodec&) = delete;
  DirectCodec& operator=(const DirectCodec&) = delete;
  virtual ~DirectCodec();

  // Appends message's JSON object to out exactly as the name's serializer converter and
  // Poco's compact writer would write it, with the member "type" holding *typeName last
  // when typeName is not null. Returns false when the converter must decide (out then
  // holds unspecified bytes after its former end). Never throws.
  virtual bool write(const connector::Message& message, const std::string* typeName,
                     std::string& out) const noexcept = 0;

  // A new message read from the root object the reader stands on, exactly as the name's
  // deserializer converter would read the object Poco's parser makes of the same bytes;
  // nullptr when the converter path must decide. Never throws.
  virtual std::unique_ptr<connector::Message> read(detail::DirectReader& in) const noexcept = 0;
};

}  // namespace connector::json

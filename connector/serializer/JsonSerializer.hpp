// connector::json::JsonSerializer: the interface through which typed messages become
// compact JSON and back, plus the converter function types of its type registry.
//
//   std::shared_ptr<JsonSerializer> serializer = std::make_shared<JsonSerializerImpl>();
//   serializer->registerType("shop/Reserve", typeid(Reserve), reserveToJson, reserveFromJson);
//   std::ostringstream out;
//   serializer->serialize(std::make_unique<Reserve>(), out);   // {"type":"shop/Reserve",...}
//   auto back = serializer->deserialize(publisherOf(out.str())).get();
//
// A serialized message is one JSON object whose member "type" holds the registered
// name; the value form is the converter's object without that member.
//
// Thread-safety: implementations are safe to call from any thread at any time;
// converters run without the registry lock held and may call back into the serializer.
// Instances are owned by std::shared_ptr (the streamed operations and getPtr need it).
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <typeinfo>
#include <vector>

#include <Poco/JSON/Object.h>
#include <Poco/SharedPtr.h>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/FutureInstantiations.hpp"
#include "connector/host/Message.hpp"
#include "connector/host/Publisher.hpp"

namespace connector::json {

// Turns a message into its JSON object (without the "type" member).
using SerializerFn =
    std::function<Poco::SharedPtr<Poco::JSON::Object>(const std::unique_ptr<connector::Message>&)>;

// Turns a JSON object back into a message.
using DeserializerFn =
    std::function<std::unique_ptr<connector::Message>(Poco::SharedPtr<Poco::JSON::Object>)>;

// A byte publisher of the host's reactive streams.
using BytePublisher =
    std::shared_ptr<connector::reactive_streams::PublisherAPI<connector::common::DataBuffer>>;

class CONNECTOR_API JsonSerializer {
 public:
  JsonSerializer(const JsonSerializer&) = delete;
  JsonSerializer& operator=(const JsonSerializer&) = delete;
  virtual ~JsonSerializer();

  // Registers name for type with both converters unless name already has a serializer.
  // Returns false (and changes nothing) when it had one.
  virtual bool registerTypeIfNotRegistered(const std::string& name, const std::type_info& type,
                                           SerializerFn serializer,
                                           DeserializerFn deserializer) = 0;

  // Same, naming the message class by its readable name (e.g. "connector::Message")
  // instead of its std::type_info; lookups by the class's std::type_info find it.
  virtual bool registerTypeIfNotRegistered(const std::string& name, const std::string& typeName,
                                           SerializerFn serializer,
                                           DeserializerFn deserializer) = 0;

  // Registers name for type, silently replacing any converters name had. Never throws
  // on duplicates.
  virtual void registerType(const std::string& name, const std::type_info& type,
                            SerializerFn serializer, DeserializerFn deserializer) = 0;

  // Removes every name registered for type (by std::type_info and by readable name).
  // Throws std::runtime_error "No type name for type found" when type is unknown.
  virtual void deregisterType(const std::type_info& type) = 0;

  // Removes name from every type and drops its converters; an unknown name is ignored.
  virtual void deregisterType(const std::string& name) = 0;

  // Parses the publisher's bytes as one JSON object and deserializes it by its "type"
  // member. Never throws: blocks until the stream completes, then returns a ready
  // future with the message or a failed one (std::invalid_argument "Parsing error: ...",
  // "Error while parsing: ...", "Unknown error while parsing"; std::bad_weak_ptr when
  // the serializer is not owned by a std::shared_ptr; std::invalid_argument "Publisher
  // must not be null." for a null publisher; what the publisher's subscribe throws, e.g.
  // std::invalid_argument "Only one subscription allowed.", unchanged).
  virtual Future<std::unique_ptr<connector::Message>> deserialize(BytePublisher publisher) = 0;

  // As above with the converter chosen by name. Failures: std::invalid_argument
  // "Parsing error for type '<name>': ..." or "Unknown error while parsing '<name>'";
  // std::bad_weak_ptr, "Publisher must not be null." and subscribe's errors as above.
  virtual Future<std::unique_ptr<connector::Message>> deserialize(const std::string& name,
                                                                  BytePublisher publisher) = 0;

  // Runs the deserializer registered under name. Throws std::invalid_argument
  // "No deserializer for type: <name>"; whatever the converter throws passes unchanged.
  virtual std::unique_ptr<connector::Message> deserialize(
      const std::string& name, Poco::SharedPtr<Poco::JSON::Object>&& object) = 0;

  // Runs the deserializer named by the object's "type" member. Throws
  // Poco::NullPointerException (null object), Poco::InvalidAccessException "Can not
  // convert empty value." (no "type"), std::invalid_argument "No deserializer for type:
  // <name>", std::invalid_argument "Parsing error for type '<name>': <message>" when
  // the converter throws a Poco exception; other converter exceptions pass unchanged.
  virtual std::unique_ptr<connector::Message> deserialize(
      Poco::SharedPtr<Poco::JSON::Object>&& object) = 0;

  // A publisher of the message's serialized form (with "type"). Throws what the
  // name lookup and serializeToJsonObject throw, Poco::NullPointerException when the
  // converter returns null.
  virtual BytePublisher serialize(const std::unique_ptr<connector::Message>& message) = 0;

  // Writes the serialized form as compact text to out. Throws as serialize(message).
  virtual void serialize(const std::unique_ptr<connector::Message>& message, std::ostream& out) = 0;

  // A publisher of the value form (no "type"); a null converter result surfaces as
  // Poco::NullPointerException only when the publisher writes.
  virtual BytePublisher serializeValue(const std::unique_ptr<connector::Message>& message) = 0;

  // Writes the value form as compact text to out. Throws Poco::NullPointerException
  // when the converter returns null.
  virtual void serializeValue(const std::unique_ptr<connector::Message>& message,
                              std::ostream& out) = 0;

  // The converter's object for the message's registered name (no "type" member).
  // Throws std::bad_typeid (null message), std::invalid_argument "No serializer for
  // type: <class>", std::runtime_error "Serializer not found: <name>", and the
  // converter failures of serializeToJsonObject(name, message).
  virtual Poco::SharedPtr<Poco::JSON::Object> serializeToJsonObject(
      const std::unique_ptr<connector::Message>& message) = 0;

  // The names registered for type, first registered first; empty when none.
  virtual std::vector<std::string> getNamesOfType(const std::type_info& type) = 0;

  // This serializer as a shared pointer. Throws std::bad_weak_ptr when not so owned.
  virtual std::shared_ptr<JsonSerializer> getPtr() = 0;

  // Runs the serializer converter registered under name. Throws std::out_of_range
  // "_Map_base::at" (the same text with every standard library) for an unknown name;
  // std::runtime_error "Error while serializing: <name>, <what>" when
  // the converter throws a standard exception, "Error while serializing: <name>" when
  // it throws anything else.
  virtual Poco::SharedPtr<Poco::JSON::Object> serializeToJsonObject(
      const std::string& name, const std::unique_ptr<connector::Message>& message) = 0;

 protected:
  JsonSerializer() = default;
};

}  // namespace connector::json

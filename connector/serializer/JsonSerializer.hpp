// connector::json::JsonSerializer: the interface through which typed messages become
// compact JSON and back, plus the converter function types of its type registry.
//
//   std::shared_ptr<JsonSerializer> serializer = std::make_shared<JsonSerializerImpl>();
//   serializer->registerType("shop/Reserve", typeid(Reserve), reserveToJson, reserveFromJson);
//   auto reserve = std::make_unique<Reserve>();
//   std::ostringstream out;
//   serializer->serialize(reserve, out);   // {"type":"shop/Reserve",...}; reserve keeps it
//   std::unique_ptr<connector::Message> back =
//       serializer->deserialize(connector::json::publisherOf(out.str())).get();
//
// (publisherOf: connector/streams/PublisherOf.hpp, through <connector/json.hpp>.)
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
#include <type_traits>
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

namespace detail {

// Whether Held (as deduced for a forwarding reference) names an lvalue std::unique_ptr
// of a class derived from connector::Message, other than connector::Message itself.
template <typename Held>
struct IsDerivedMessagePtr : std::false_type {};
template <typename M>
struct IsDerivedMessagePtr<std::unique_ptr<M>>
    : std::bool_constant<std::is_convertible_v<M*, connector::Message*> &&
                         !std::is_same_v<std::remove_cv_t<M>, connector::Message>> {};
template <typename Held>
using IfNamedDerivedMessagePtr = std::enable_if_t<
    std::is_lvalue_reference_v<Held> &&
        IsDerivedMessagePtr<std::remove_cv_t<std::remove_reference_t<Held>>>::value,
    int>;

// A std::unique_ptr<connector::Message> that refers to a message owned elsewhere for
// the length of one call, and lets go of it (without deleting it) when it ends,
// whatever way the call ends. The callee sees it by const reference only.
class BorrowedMessage {
 public:
  explicit BorrowedMessage(connector::Message* message) noexcept : held(message) {}
  BorrowedMessage(const BorrowedMessage&) = delete;
  BorrowedMessage& operator=(const BorrowedMessage&) = delete;
  ~BorrowedMessage() { static_cast<void>(held.release()); }

  const std::unique_ptr<connector::Message>& get() const noexcept { return held; }

 private:
  std::unique_ptr<connector::Message> held;
};

}  // namespace detail

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

  // serialize(message, out) and serializeValue(message, out) for a message held by a
  // named std::unique_ptr<Derived> (const or not), Derived a class derived from
  // connector::Message: the same object goes to the virtual operation, and the caller's
  // pointer keeps owning it (nothing is moved or copied). Same results and exceptions.
  // A temporary std::unique_ptr<Derived> converts to std::unique_ptr<connector::Message>
  // and goes to the virtual operation directly, as it always has.
  template <typename Held, detail::IfNamedDerivedMessagePtr<Held> = 0>
  void serialize(Held&& message, std::ostream& out) {
    const detail::BorrowedMessage borrowed(message.get());
    serialize(borrowed.get(), out);
  }
  template <typename Held, detail::IfNamedDerivedMessagePtr<Held> = 0>
  void serializeValue(Held&& message, std::ostream& out) {
    const detail::BorrowedMessage borrowed(message.get());
    serializeValue(borrowed.get(), out);
  }

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

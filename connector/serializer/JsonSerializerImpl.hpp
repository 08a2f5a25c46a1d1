// connector::json::JsonSerializerImpl: the type registry and the conversions between
// messages, JSON objects, compact JSON text and byte streams.
//
//   auto serializer = std::make_shared<JsonSerializerImpl>();   // knows "connector/Message"
//   serializer->registerType("shop/Reserve", typeid(Reserve),
//       [](const std::unique_ptr<connector::Message>& m) { return toJson(m); },
//       [](Poco::SharedPtr<Poco::JSON::Object> o) { return fromJson(o); });
//   std::ostringstream out;
//   serializer->serialize(std::make_unique<Reserve>(), out);   // {"type":"shop/Reserve",...}
//
// A name maps to one serializer and one deserializer converter, and may have a direct
// codec beside them (DirectCodec.hpp; json::MessageType::registerWith puts one there),
// through which serialize, serializeValue and the streamed deserialize go straight
// between messages and JSON text with the converters' results; a message class maps to
// the names registered for it, the first of which is used to serialize its messages.
// Converter failures are logged on moduleLogger (channel "connector::json", severity
// 512, when enabled) and reported with fixed texts (see JsonSerializer.hpp).
//
// Thread-safety: every operation may be called from any thread. One non-recursive mutex
// guards the registry; it is held for whole registry operations and, in conversions,
// only while a converter is looked up and copied, never while a converter runs, so
// converters may call back into the serializer (even register types). The streamed
// deserialize blocks its caller until the publisher completes. Lifetime: own it by
// std::shared_ptr. Its destructor deregisters connector::Message and ends the process
// (std::terminate) when that type was already removed, e.g. by
// deregisterType("connector/Message").
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <vector>

#include "connector/Export.hpp"
#include "connector/serializer/DirectCodec.hpp"
#include "connector/serializer/JsonSerializer.hpp"

namespace connector::json {

class CONNECTOR_API JsonSerializerImpl : public JsonSerializer,
                                         public std::enable_shared_from_this<JsonSerializer> {
 public:
  // Registers "connector/Message" for connector::Message: serialized as an empty
  // object, deserialized as a new plain message.
  JsonSerializerImpl();
  // Deregisters connector::Message; terminates the process when that fails.
  // NOLINTNEXTLINE(bugprone-exception-escape): a failure here ends the process, on purpose.
  ~JsonSerializerImpl() override;

  bool registerTypeIfNotRegistered(const std::string& name, const std::type_info& type,
                                   SerializerFn serializer, DeserializerFn deserializer) override;
  bool registerTypeIfNotRegistered(const std::string& name, const std::string& typeName,
                                   SerializerFn serializer, DeserializerFn deserializer) override;
  void registerType(const std::string& name, const std::type_info& type, SerializerFn serializer,
                    DeserializerFn deserializer) override;
  // registerType, and `codec` beside the converters: serialize, serializeValue and the
  // streamed deserialize go straight between messages of this name and JSON text
  // through it, and hand every case it cannot decide to the converters (see
  // DirectCodec.hpp). A serializer of a class derived from this one keeps to the
  // converters, so that every override it makes sees every call. Every other way of
  // registering or deregistering the name drops the codec.
  void registerType(const std::string& name, const std::type_info& type, SerializerFn serializer,
                    DeserializerFn deserializer, std::shared_ptr<const DirectCodec> codec);
  void deregisterType(const std::type_info& type) override;
  void deregisterType(const std::string& name) override;
  Future<std::unique_ptr<connector::Message>> deserialize(BytePublisher publisher) override;
  Future<std::unique_ptr<connector::Message>> deserialize(const std::string& name,
                                                          BytePublisher publisher) override;
  std::unique_ptr<connector::Message> deserialize(
      const std::string& name, Poco::SharedPtr<Poco::JSON::Object>&& object) override;
  std::unique_ptr<connector::Message> deserialize(
      Poco::SharedPtr<Poco::JSON::Object>&& object) override;
  // The base's serialize and serializeValue for a named std::unique_ptr<Derived> stay
  // visible beside the overrides below. A class derived from this one that declares
  // serialize or serializeValue itself keeps them with the same using-declarations.
  using JsonSerializer::serialize;
  using JsonSerializer::serializeValue;
  BytePublisher serialize(const std::unique_ptr<connector::Message>& message) override;
  void serialize(const std::unique_ptr<connector::Message>& message, std::ostream& out) override;
  BytePublisher serializeValue(const std::unique_ptr<connector::Message>& message) override;
  void serializeValue(const std::unique_ptr<connector::Message>& message,
                      std::ostream& out) override;
  Poco::SharedPtr<Poco::JSON::Object> serializeToJsonObject(
      const std::unique_ptr<connector::Message>& message) override;
  std::vector<std::string> getNamesOfType(const std::type_info& type) override;
  std::shared_ptr<JsonSerializer> getPtr() override;
  Poco::SharedPtr<Poco::JSON::Object> serializeToJsonObject(
      const std::string& name, const std::unique_ptr<connector::Message>& message) override;

  // The first name registered for the message's dynamic class. Throws std::bad_typeid
  // (null message), std::invalid_argument "No serializer for type: <class>" (no name),
  // std::runtime_error "Serializer not found: <name>" (first name lost its converter).
  std::string getNameForMessage(const std::unique_ptr<connector::Message>& message);

 private:
  using NameList = std::vector<std::string>;

  // Registry writes shared by the registering operations; the caller holds mutex.
  void storeConvertersLocked(const std::string& name, SerializerFn&& serializer,
                             DeserializerFn&& deserializer);
  // Drops the direct codec of name, if any; the caller holds mutex.
  void dropDirectCodecLocked(const std::string& name);

  // Whether direct codecs are used: only when this is a JsonSerializerImpl itself.
  bool directCodecsApply() const noexcept;
  std::shared_ptr<const DirectCodec> directCodecFor(const std::string& name);
  // The JSON text of message through the direct codec of its name into out (with the
  // member "type" when withType); false when its name has none (or no name), or the
  // codec declined: the converter path then runs as ever.
  bool writeDirect(const std::unique_ptr<connector::Message>& message, bool withType,
                   std::string& out);

  std::mutex mutex;
  std::unordered_map<std::string, SerializerFn> serializers;      // guarded by mutex
  std::unordered_map<std::string, DeserializerFn> deserializers;  // guarded by mutex
  std::unordered_map<std::type_index, NameList> namesByType;      // guarded by mutex
  std::unordered_map<std::string, NameList> namesByTypeName;      // guarded by mutex
  std::unordered_map<std::string, std::shared_ptr<const DirectCodec>>
      directCodecs;                              // guarded by mutex
  std::atomic<std::size_t> directCodecCount{0};  // directCodecs.size(), written under mutex
};

}  // namespace connector::json

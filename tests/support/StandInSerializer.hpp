// StandInSerializer: a JsonSerializer for provider tests. Every operation goes to a real
// JsonSerializerImpl, except the two that the providers build on, which a test may
// replace: serialize(message), the publisher of a message's JSON, and
// deserialize(publisher), the future of the message read from bytes.
//
//   auto serializer = std::make_shared<StandInSerializer>();
//   serializer->deserializeWith([](json::BytePublisher) {
//     return Future<std::unique_ptr<Message>>();   // an invalid future
//   });
//   auto provider = std::make_shared<json::JsonDeserializerServiceProvider>(serializer);
//
// ScriptedPublisher is a byte publisher for such replacements: on subscribe it sends its
// chunks and then completes or fails, all on the subscribing thread; an abandoning one
// sends its chunks and then lets its subscriber go without ending the stream.
//
// Thread-safety: set the replacements before a provider runs; afterwards calls may
// come from any thread, as with the real serializer.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include <connector/json.hpp>

namespace connector::testing {

class StandInSerializer : public json::JsonSerializer {
 public:
  using Serialize = std::function<json::BytePublisher(const std::unique_ptr<Message>&)>;
  using Deserialize = std::function<Future<std::unique_ptr<Message>>(json::BytePublisher)>;

  // The real serializer behind every operation that is not replaced.
  const std::shared_ptr<json::JsonSerializerImpl> real =
      std::make_shared<json::JsonSerializerImpl>();

  void serializeWith(Serialize replacement) { serializeMessage = std::move(replacement); }
  void deserializeWith(Deserialize replacement) { deserializeBytes = std::move(replacement); }

  json::BytePublisher serialize(const std::unique_ptr<Message>& message) override {
    return serializeMessage ? serializeMessage(message) : real->serialize(message);
  }

  Future<std::unique_ptr<Message>> deserialize(json::BytePublisher publisher) override {
    return deserializeBytes ? deserializeBytes(std::move(publisher))
                            : real->deserialize(std::move(publisher));
  }

  bool registerTypeIfNotRegistered(const std::string& name, const std::type_info& type,
                                   json::SerializerFn serializer,
                                   json::DeserializerFn deserializer) override {
    return real->registerTypeIfNotRegistered(name, type, std::move(serializer),
                                             std::move(deserializer));
  }
  bool registerTypeIfNotRegistered(const std::string& name, const std::string& typeName,
                                   json::SerializerFn serializer,
                                   json::DeserializerFn deserializer) override {
    return real->registerTypeIfNotRegistered(name, typeName, std::move(serializer),
                                             std::move(deserializer));
  }
  void registerType(const std::string& name, const std::type_info& type,
                    json::SerializerFn serializer, json::DeserializerFn deserializer) override {
    real->registerType(name, type, std::move(serializer), std::move(deserializer));
  }
  void deregisterType(const std::type_info& type) override { real->deregisterType(type); }
  void deregisterType(const std::string& name) override { real->deregisterType(name); }
  Future<std::unique_ptr<Message>> deserialize(const std::string& name,
                                               json::BytePublisher publisher) override {
    return real->deserialize(name, std::move(publisher));
  }
  std::unique_ptr<Message> deserialize(const std::string& name,
                                       Poco::SharedPtr<Poco::JSON::Object>&& object) override {
    return real->deserialize(name, std::move(object));
  }
  std::unique_ptr<Message> deserialize(Poco::SharedPtr<Poco::JSON::Object>&& object) override {
    return real->deserialize(std::move(object));
  }
  void serialize(const std::unique_ptr<Message>& message, std::ostream& out) override {
    real->serialize(message, out);
  }
  json::BytePublisher serializeValue(const std::unique_ptr<Message>& message) override {
    return real->serializeValue(message);
  }
  void serializeValue(const std::unique_ptr<Message>& message, std::ostream& out) override {
    real->serializeValue(message, out);
  }
  Poco::SharedPtr<Poco::JSON::Object> serializeToJsonObject(
      const std::unique_ptr<Message>& message) override {
    return real->serializeToJsonObject(message);
  }
  std::vector<std::string> getNamesOfType(const std::type_info& type) override {
    return real->getNamesOfType(type);
  }
  std::shared_ptr<json::JsonSerializer> getPtr() override { return real->getPtr(); }
  Poco::SharedPtr<Poco::JSON::Object> serializeToJsonObject(
      const std::string& name, const std::unique_ptr<Message>& message) override {
    return real->serializeToJsonObject(name, message);
  }

 private:
  Serialize serializeMessage;
  Deserialize deserializeBytes;
};

// Sends its chunks, then onComplete, or onError when an error is given, all inside
// subscribe. Requests are not counted: the providers' subscribers ask for everything.
// It keeps no reference to its subscriber.
class ScriptedPublisher : public reactive_streams::PublisherAPI<common::DataBuffer> {
 public:
  explicit ScriptedPublisher(std::vector<std::string> chunks, std::exception_ptr error = nullptr)
      : chunks(std::move(chunks)), error(std::move(error)) {}

  // Sends its chunks and never ends the stream.
  static std::shared_ptr<ScriptedPublisher> abandoning(std::vector<std::string> chunks) {
    auto publisher = std::make_shared<ScriptedPublisher>(std::move(chunks));
    publisher->ends = false;
    return publisher;
  }

  // How often the subscriber cancelled its subscription.
  int cancels() const { return subscription->cancels; }

  Future<bool> completion() override {
    return error ? makeFailedFuture<bool>(error) : makeReadyFuture<bool>(true);
  }

  void subscribe(
      std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>> subscriber) override {
    subscriber->onSubscribe(subscription);
    for (const std::string& chunk : chunks) {
      subscriber->onNext(common::DataBuffer(chunk));
    }
    if (!ends) {
      return;
    }
    if (error) {
      subscriber->onError(error);
    } else {
      subscriber->onComplete();
    }
  }

 private:
  class Unbounded : public reactive_streams::Subscription {
   public:
    void request(std::int64_t) override {}
    void cancel() override { ++cancels; }
    int cancels = 0;
  };

  const std::vector<std::string> chunks;
  const std::exception_ptr error;
  bool ends = true;
  const std::shared_ptr<Unbounded> subscription = std::make_shared<Unbounded>();
};

}  // namespace connector::testing

// Test doubles that report their own destruction, so that a test sees in which order a
// provider releases what it holds.
//
//   std::vector<std::string> released;
//   auto answer = std::make_unique<ProbedMessage>([&] { released.push_back("answer"); });
//   auto bytes = std::make_shared<ProbedPublisher>(serializer->serialize(m),
//                                                  [&] { released.push_back("bytes"); });
//   ... hand them to the code under test ...
//   EXPECT_EQ(released, (std::vector<std::string>{"bytes", "answer"}));
//
// registerProbedMessage gives ProbedMessage the name "test/Probed" (JSON: {}), so that
// a real serializer can write it.
//
// Thread-safety: the callback runs on the destroying thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <Poco/JSON/Object.h>

#include <connector/json.hpp>

namespace connector::testing {

using OnDestroy = std::function<void()>;

struct ProbedMessage : Message {
  explicit ProbedMessage(OnDestroy onDestroy) : onDestroy(std::move(onDestroy)) {}
  ProbedMessage(const ProbedMessage&) = delete;
  ProbedMessage& operator=(const ProbedMessage&) = delete;
  ~ProbedMessage() override { onDestroy(); }
  OnDestroy onDestroy;
};

struct ProbedOpaqueMessage : json::OpaqueMessage {
  ProbedOpaqueMessage(const std::string& contentType, common::DataBuffer&& payload,
                      OnDestroy onDestroy)
      : OpaqueMessage(contentType, std::move(payload)), onDestroy(std::move(onDestroy)) {}
  ProbedOpaqueMessage(const ProbedOpaqueMessage&) = delete;
  ProbedOpaqueMessage& operator=(const ProbedOpaqueMessage&) = delete;
  ~ProbedOpaqueMessage() override { onDestroy(); }
  OnDestroy onDestroy;
};

// Publishes what the wrapped publisher publishes.
class ProbedPublisher : public reactive_streams::PublisherAPI<common::DataBuffer> {
 public:
  ProbedPublisher(json::BytePublisher inner, OnDestroy onDestroy)
      : inner(std::move(inner)), onDestroy(std::move(onDestroy)) {}
  ~ProbedPublisher() override { onDestroy(); }

  Future<bool> completion() override { return inner->completion(); }
  void subscribe(
      std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>> subscriber) override {
    inner->subscribe(std::move(subscriber));
  }

 private:
  json::BytePublisher inner;
  OnDestroy onDestroy;
};

inline constexpr const char* kProbed = "test/Probed";

inline void registerProbedMessage(json::JsonSerializer& serializer) {
  serializer.registerType(
      kProbed, typeid(ProbedMessage),
      [](const std::unique_ptr<Message>&) {
        return Poco::SharedPtr<Poco::JSON::Object>(new Poco::JSON::Object);
      },
      [](Poco::SharedPtr<Poco::JSON::Object>) -> std::unique_ptr<Message> {
        return std::make_unique<Message>();
      });
}

}  // namespace connector::testing

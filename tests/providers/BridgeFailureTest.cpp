// Failure paths of the bridge, end to end: each reaches the client as the exception the
// bridge defines, and the next request is served normally.
#include <gtest/gtest.h>

#include <connector/json.hpp>

#include "support/BridgeWiring.hpp"
#include "support/ExpectThrow.hpp"
#include "support/TestMessages.hpp"

namespace connector::json {
namespace {

using testing::Greeting;
using testing::GreetingReply;

class BridgeFailureTest : public ::testing::Test {
 protected:
  BridgeFailureTest() {
    testing::registerTestMessages(*clientSerializer);
    testing::registerTestMessages(*farSerializer);
    gateway->setRunning(true);
  }

  // Delivers a greeting and expects the normal answer: the process keeps serving.
  void expectNextRequestServed() {
    auto reply =
        client->deliver(std::make_unique<Greeting>("next", 2), Address("greeter"), link).get();
    auto* typed = dynamic_cast<GreetingReply*>(reply.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->text, "next");
  }

  std::function<Future<std::unique_ptr<Message>>(std::unique_ptr<Message>&&)> farService =
      [](std::unique_ptr<Message>&& request) {
        auto& g = dynamic_cast<Greeting&>(*request);
        return makeReadyFuture<std::unique_ptr<Message>>(
            std::make_unique<GreetingReply>(g.text, g.number, true));
      };
  std::shared_ptr<JsonSerializerImpl> clientSerializer = std::make_shared<JsonSerializerImpl>();
  std::shared_ptr<JsonSerializerImpl> farSerializer = std::make_shared<JsonSerializerImpl>();
  std::shared_ptr<JsonSerializerServiceProvider> client =
      std::make_shared<JsonSerializerServiceProvider>(clientSerializer);
  std::shared_ptr<JsonDeserializerServiceProvider> gateway =
      std::make_shared<JsonDeserializerServiceProvider>(farSerializer);
  std::shared_ptr<testing::ProviderContext> link = std::make_shared<testing::ProviderContext>(
      gateway, std::make_shared<testing::ServiceContext>(
                   [this](std::unique_ptr<Message>&& m, const Address&) {
                     return farService(std::move(m));
                   }));
};

TEST_F(BridgeFailureTest, UnregisteredRequestTypeFailsOnTheClientSide) {
  EXPECT_THROW_TEXT(
      client->deliver(std::make_unique<testing::Unregistered>(), Address("greeter"), link),
      std::invalid_argument, "No serializer for type: connector::testing::Unregistered");
  expectNextRequestServed();
}

TEST_F(BridgeFailureTest, RequestTypeUnknownToTheFarSideFails) {
  farSerializer->deregisterType(testing::kGreeting);
  EXPECT_THROW_TEXT(client->deliver(std::make_unique<Greeting>("x", 1), Address("greeter"), link),
                    std::invalid_argument,
                    "Error while parsing: No deserializer for type: test/Greeting");
  testing::registerTestMessages(*farSerializer);
  expectNextRequestServed();
}

TEST_F(BridgeFailureTest, FarSideNotRunningFails) {
  gateway->setRunning(false);
  EXPECT_THROW_TEXT(client->deliver(std::make_unique<Greeting>("x", 1), Address("greeter"), link),
                    std::runtime_error, "Service exists but is not running.");
  gateway->setRunning(true);
  expectNextRequestServed();
}

TEST_F(BridgeFailureTest, FailingFarServiceFails) {
  auto healthy = farService;
  farService = [](std::unique_ptr<Message>&&) {
    return makeFailedFuture<std::unique_ptr<Message>>(
        std::make_exception_ptr(std::runtime_error("out of stock")));
  };
  EXPECT_THROW_TEXT(client->deliver(std::make_unique<Greeting>("x", 1), Address("greeter"), link),
                    std::runtime_error, "out of stock");
  farService = healthy;
  expectNextRequestServed();
}

TEST_F(BridgeFailureTest, AnswerOfATypeTheFarSideCannotSerializeFails) {
  auto healthy = farService;
  farService = [](std::unique_ptr<Message>&&) {
    return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<testing::Unregistered>());
  };
  EXPECT_THROW_TEXT(client->deliver(std::make_unique<Greeting>("x", 1), Address("greeter"), link),
                    std::invalid_argument,
                    "No serializer for type: connector::testing::Unregistered");
  farService = healthy;
  expectNextRequestServed();
}

TEST_F(BridgeFailureTest, AnswerOfATypeTheClientCannotDeserializeFailsThroughTheFuture) {
  clientSerializer->deregisterType(testing::kGreetingReply);
  auto answer = client->deliver(std::make_unique<Greeting>("x", 1), Address("greeter"), link);
  EXPECT_THROW_TEXT(answer.get(), std::invalid_argument,
                    "Error while parsing: No deserializer for type: test/GreetingReply");
  testing::registerTestMessages(*clientSerializer);
  expectNextRequestServed();
}

}  // namespace
}  // namespace connector::json

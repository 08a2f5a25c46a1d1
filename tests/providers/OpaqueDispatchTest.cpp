// Typed dispatch of opaque messages: the running check, the message-type checks and the
// hand-over to handle.
#include <gtest/gtest.h>

#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"
#include "support/RecordingContext.hpp"
#include "support/TestMessages.hpp"

namespace connector::json {
namespace {

using testing::RecordingContext;

constexpr const char* kNotRunning = "Service exists but is not running.";
constexpr const char* kExpectedBase =
    "N9connector14ServiceMessageINS_4json21OpaqueServiceProviderEEE";

// An opaque provider that records what reaches handle and answers with an empty message.
class RecordingOpaqueProvider : public OpaqueServiceProvider {
 public:
  Future<std::unique_ptr<Message>> handle(std::unique_ptr<OpaqueMessage>&& message,
                                          Address&& address, std::shared_ptr<Context>&&) override {
    handled = std::move(message);
    lastAddress = std::move(address);
    return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<Message>());
  }
  std::unique_ptr<OpaqueMessage> handled;
  Address lastAddress;
};

class ThrowingOpaqueProvider : public OpaqueServiceProvider {
 public:
  Future<std::unique_ptr<Message>> handle(std::unique_ptr<OpaqueMessage>&&, Address&&,
                                          std::shared_ptr<Context>&&) override {
    throw std::logic_error("handle failed");
  }
};

std::unique_ptr<Message> opaque(std::string_view bytes = "{}") {
  return std::make_unique<OpaqueMessage>("application/json", common::DataBuffer(bytes));
}

std::shared_ptr<RecordingOpaqueProvider> runningProvider() {
  auto provider = std::make_shared<RecordingOpaqueProvider>();
  provider->setRunning(true);
  return provider;
}

TEST(OpaqueDispatch, StoppedProviderRefusesEveryDelivery) {
  auto provider = std::make_shared<RecordingOpaqueProvider>();
  std::unique_ptr<Message> null;
  std::unique_ptr<Message> wrong = std::make_unique<testing::Greeting>();
  std::unique_ptr<Message> good = opaque();
  for (std::unique_ptr<Message>* message : {&null, &wrong, &good}) {
    auto future =
        provider->deliver(std::move(*message), Address("a"), std::make_shared<RecordingContext>());
    ASSERT_TRUE(future.valid());
    EXPECT_THROW_TEXT(future.get(), std::runtime_error, kNotRunning);
  }
  EXPECT_FALSE(provider->handled);
  // The caller keeps its messages when the provider refuses.
  EXPECT_TRUE(wrong);
  EXPECT_TRUE(good);
}

TEST(OpaqueDispatch, MessageOfAnotherTypeFailsAndStaysWithTheCaller) {
  auto provider = runningProvider();
  std::unique_ptr<Message> message = std::make_unique<testing::Greeting>("hi", 1);
  Message* raw = message.get();
  auto future =
      provider->deliver(std::move(message), Address("a"), std::make_shared<RecordingContext>());
  const std::string expected = std::string("Incorrect message type. Expected: ") + kExpectedBase +
                               " but found " + typeid(testing::Greeting).name();
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument, expected);
  EXPECT_EQ(message.get(), raw);
  EXPECT_FALSE(provider->handled);
}

TEST(OpaqueDispatch, ExpectedTypeInTheTextIsTheRawEncodedName) {
  auto provider = runningProvider();
  auto future = provider->deliver(std::make_unique<Message>(), Address("a"), nullptr);
  try {
    future.get();
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    const std::string text = e.what();
    EXPECT_NE(text.find(kExpectedBase), std::string::npos) << text;
    EXPECT_EQ(text.find("connector::ServiceMessage"), std::string::npos) << text;
    EXPECT_EQ(text, std::string("Incorrect message type. Expected: ") + kExpectedBase +
                        " but found N9connector7MessageE");
  }
}

TEST(OpaqueDispatch, NullMessageWhileRunningThrowsBadTypeid) {
  auto provider = runningProvider();
  EXPECT_THROW(provider->deliver(nullptr, Address("a"), nullptr), std::bad_typeid);
}

TEST(OpaqueDispatch, ProviderNotOwnedBySharedPtrThrowsBadWeakPtr) {
  RecordingOpaqueProvider onStack;
  onStack.setRunning(true);
  EXPECT_THROW(onStack.deliver(opaque(), Address("a"), nullptr), std::bad_weak_ptr);

  auto* onHeap = new RecordingOpaqueProvider();
  onHeap->setRunning(true);
  EXPECT_THROW(onHeap->deliver(opaque(), Address("a"), nullptr), std::bad_weak_ptr);
  delete onHeap;
}

TEST(OpaqueDispatch, WellTypedMessageReachesHandleWithItsAddress) {
  auto provider = runningProvider();
  std::unique_ptr<Message> message = opaque("[1]");
  auto future = provider->deliver(std::move(message), Address("far/away"), nullptr);
  EXPECT_FALSE(message);
  ASSERT_TRUE(provider->handled);
  EXPECT_EQ(provider->handled->payload.view(), "[1]");
  EXPECT_EQ(provider->lastAddress.str(), "far/away");
  EXPECT_TRUE(future.get());
}

TEST(OpaqueDispatch, ExceptionFromHandlePropagatesAfterTheMessageIsDestroyed) {
  auto provider = std::make_shared<ThrowingOpaqueProvider>();
  provider->setRunning(true);
  std::unique_ptr<Message> message = opaque();
  EXPECT_THROW_TEXT(provider->deliver(std::move(message), Address("a"), nullptr), std::logic_error,
                    "handle failed");
  EXPECT_FALSE(message);
}

TEST(OpaqueDispatch, DeliverToWithAnotherMessageNamesTheReceiverFirst) {
  auto provider = runningProvider();
  OpaqueMessage receiver("application/json", common::DataBuffer("{}"));
  std::unique_ptr<Message> other = std::make_unique<testing::Greeting>();
  auto future = receiver.deliverTo(provider, std::move(other), Address("a"), nullptr);
  const std::string expected =
      std::string("Unable to deliver to service. Incorrect message type. Expected: ") +
      typeid(OpaqueMessage).name() + " but found " + typeid(testing::Greeting).name();
  EXPECT_EQ(std::string(typeid(OpaqueMessage).name()), "N9connector4json13OpaqueMessageE");
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument, expected);
  EXPECT_TRUE(other);
  EXPECT_EQ(receiver.payload.view(), "{}");
  EXPECT_FALSE(provider->handled);
}

TEST(OpaqueDispatch, DeliverToWithAnotherOpaqueMessageDoesNotConsumeEither) {
  auto provider = runningProvider();
  OpaqueMessage receiver("text/plain", common::DataBuffer("a"));
  std::unique_ptr<Message> other = opaque("b");
  auto future = receiver.deliverTo(provider, std::move(other), Address("a"), nullptr);
  const std::string name = typeid(OpaqueMessage).name();
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument,
                    "Unable to deliver to service. Incorrect message type. Expected: " + name +
                        " but found " + name);
  EXPECT_TRUE(other);
}

TEST(OpaqueDispatch, DeliverToWithNullSelfThrowsBadTypeid) {
  auto provider = runningProvider();
  OpaqueMessage receiver("application/json", common::DataBuffer("{}"));
  EXPECT_THROW(receiver.deliverTo(provider, nullptr, Address("a"), nullptr), std::bad_typeid);
}

TEST(OpaqueMessage, ConstructionMovesThePayloadIn) {
  common::DataBuffer bytes("{\"a\":1}");
  OpaqueMessage message("application/json", std::move(bytes));
  EXPECT_EQ(bytes.data, nullptr);
  EXPECT_EQ(bytes.size, 0u);
  EXPECT_EQ(message.contentType, "application/json");
  EXPECT_EQ(message.payload.view(), "{\"a\":1}");
}

TEST(OpaqueMessage, MovingThePayloadOutLeavesItDestructible) {
  auto message = std::make_unique<OpaqueMessage>("application/json", common::DataBuffer("xyz"));
  common::DataBuffer taken = std::move(message->payload);
  EXPECT_EQ(taken.view(), "xyz");
  EXPECT_EQ(message->payload.data, nullptr);
  EXPECT_EQ(message->payload.capacity, 0u);
  message.reset();  // frees only the string; ASan would flag a double free
  EXPECT_EQ(taken.view(), "xyz");
}

TEST(OpaqueProviders, LifecycleOperationsDoNothing) {
  auto provider = std::make_shared<RecordingOpaqueProvider>();
  provider->start();
  EXPECT_FALSE(provider->isRunning());
  provider->setRunning(true);
  provider->stop();
  EXPECT_TRUE(provider->isRunning());
}

}  // namespace
}  // namespace connector::json

// The sending half of the bridge: a typed request leaves as an "application/json"
// OpaqueMessage; the opaque answer comes back typed.
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <connector/json.hpp>

#include "serializer/ChunkPublisher.hpp"
#include "support/DestructionProbes.hpp"
#include "support/ExpectThrow.hpp"
#include "support/RecordingContext.hpp"
#include "support/StandInSerializer.hpp"
#include "support/TestMessages.hpp"

namespace connector::json {
namespace {

using testing::Greeting;
using testing::GreetingReply;
using testing::RecordingContext;

class JsonSerializerServiceProviderTest : public ::testing::Test {
 protected:
  JsonSerializerServiceProviderTest() {
    testing::registerTestMessages(*serializer);
    provider = std::make_shared<JsonSerializerServiceProvider>(serializer);
    context = std::make_shared<RecordingContext>();
  }

  // The JSON text the serializer writes for a message.
  std::string jsonOf(const std::unique_ptr<Message>& message) {
    std::ostringstream out;
    serializer->serialize(message, out);
    return out.str();
  }

  // Answers every request with the JSON of the given reply, as the far side would.
  void answerWithJsonOf(std::unique_ptr<Message> reply,
                        std::string contentType = "application/json") {
    auto bytes = std::make_shared<std::string>(jsonOf(reply));
    context->answerWith([bytes, contentType](std::unique_ptr<Message>&) {
      return makeReadyFuture<std::unique_ptr<Message>>(
          std::make_unique<OpaqueMessage>(contentType, common::DataBuffer(*bytes)));
    });
  }

  std::shared_ptr<JsonSerializerImpl> serializer = std::make_shared<JsonSerializerImpl>();
  std::shared_ptr<JsonSerializerServiceProvider> provider;
  std::shared_ptr<RecordingContext> context;
};

TEST_F(JsonSerializerServiceProviderTest, ForwardsExactlyTheSerializedBytesAsJsonToTheSameAddress) {
  std::unique_ptr<Message> request = std::make_unique<Greeting>("hello", 7);
  answerWithJsonOf(std::make_unique<GreetingReply>("hello", 7, true));

  // What serialize publishes, joined, is the expected payload.
  common::DataBuffer published =
      reduceSerializedPublisherToDataBuffer(serializer->serialize(request)).get();

  provider->deliver(std::move(request), Address("greeter"), context).get();
  ASSERT_EQ(context->calls(), 1u);
  auto* sent = dynamic_cast<OpaqueMessage*>(context->messages[0].get());
  ASSERT_NE(sent, nullptr);
  EXPECT_EQ(sent->contentType, "application/json");
  EXPECT_EQ(sent->payload.view(), published.view());
  EXPECT_EQ(sent->payload.view(), R"({"number":7,"text":"hello","type":"test/Greeting"})");
  EXPECT_EQ(context->addresses[0].str(), "greeter");
}

TEST_F(JsonSerializerServiceProviderTest, ReturnsTheTypedAnswer) {
  answerWithJsonOf(std::make_unique<GreetingReply>("bonjour", 3, true));
  std::unique_ptr<Message> answer =
      provider->deliver(std::make_unique<Greeting>("hello", 3), Address("greeter"), context).get();
  auto* reply = dynamic_cast<GreetingReply*>(answer.get());
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(reply->text, "bonjour");
  EXPECT_EQ(reply->number, 3);
  EXPECT_TRUE(reply->accepted);
}

TEST_F(JsonSerializerServiceProviderTest, AnswerContentTypeIsNotRead) {
  answerWithJsonOf(std::make_unique<GreetingReply>("x", 1, false), "text/whatever");
  std::unique_ptr<Message> answer =
      provider->deliver(std::make_unique<Greeting>("x", 1), Address("a"), context).get();
  EXPECT_NE(dynamic_cast<GreetingReply*>(answer.get()), nullptr);
}

TEST_F(JsonSerializerServiceProviderTest, ProviderThatWasNeverStartedStillForwards) {
  ASSERT_FALSE(provider->isRunning());
  answerWithJsonOf(std::make_unique<Message>());
  std::unique_ptr<Message> answer =
      provider->deliver(std::make_unique<Greeting>("x", 1), Address("a"), context).get();
  EXPECT_EQ(context->calls(), 1u);
  EXPECT_EQ(typeid(*answer), typeid(Message));
}

TEST_F(JsonSerializerServiceProviderTest, UnregisteredRequestTypeThrowsAndNothingIsSent) {
  EXPECT_THROW_TEXT(
      provider->deliver(std::make_unique<testing::Unregistered>(), Address("a"), context),
      std::invalid_argument, "No serializer for type: connector::testing::Unregistered");
  EXPECT_EQ(context->calls(), 0u);
}

TEST_F(JsonSerializerServiceProviderTest, InvalidAnswerFutureThrows) {
  // The recording context answers with an invalid future unless told otherwise.
  EXPECT_THROW_TEXT(provider->deliver(std::make_unique<Greeting>("x", 1), Address("a"), context),
                    std::runtime_error, "Future state isn't valid!");
  EXPECT_EQ(context->calls(), 1u);
}

TEST_F(JsonSerializerServiceProviderTest, FailedAnswerIsRethrownSynchronously) {
  context->answerWith([](std::unique_ptr<Message>&) {
    return makeFailedFuture<std::unique_ptr<Message>>(
        std::make_exception_ptr(std::out_of_range("far side failed")));
  });
  EXPECT_THROW_TEXT(provider->deliver(std::make_unique<Greeting>("x", 1), Address("a"), context),
                    std::out_of_range, "far side failed");
}

TEST_F(JsonSerializerServiceProviderTest, ContextThatThrowsLetsTheExceptionOut) {
  context->answerWith([](std::unique_ptr<Message>&) -> Future<std::unique_ptr<Message>> {
    throw std::length_error("no route");
  });
  EXPECT_THROW_TEXT(provider->deliver(std::make_unique<Greeting>("x", 1), Address("a"), context),
                    std::length_error, "no route");
}

TEST_F(JsonSerializerServiceProviderTest, LateAnswerFromAnotherThreadIsAwaited) {
  auto bytes =
      std::make_shared<std::string>(jsonOf(std::make_unique<GreetingReply>("late", 9, true)));
  context->answerLaterWith([bytes]() -> std::unique_ptr<Message> {
    return std::make_unique<OpaqueMessage>("application/json", common::DataBuffer(*bytes));
  });
  std::unique_ptr<Message> answer =
      provider->deliver(std::make_unique<Greeting>("x", 9), Address("a"), context).get();
  auto* reply = dynamic_cast<GreetingReply*>(answer.get());
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(reply->text, "late");
}

TEST_F(JsonSerializerServiceProviderTest, AnswerThatIsNotJsonFailsThroughTheReturnedFuture) {
  context->answerWith([](std::unique_ptr<Message>&) {
    return makeReadyFuture<std::unique_ptr<Message>>(
        std::make_unique<OpaqueMessage>("application/json", common::DataBuffer("{not json")));
  });
  Future<std::unique_ptr<Message>> answer;
  ASSERT_NO_THROW(answer =
                      provider->deliver(std::make_unique<Greeting>("x", 1), Address("a"), context));
  try {
    answer.get();
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_EQ(std::string(e.what()).rfind("Parsing error: ", 0), 0u) << e.what();
  }
}

TEST_F(JsonSerializerServiceProviderTest, AnswerOfAnUnregisteredTypeFailsThroughTheReturnedFuture) {
  context->answerWith([](std::unique_ptr<Message>&) {
    return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<OpaqueMessage>(
        "application/json", common::DataBuffer(R"({"type":"nobody/knows"})")));
  });
  auto answer = provider->deliver(std::make_unique<Greeting>("x", 1), Address("a"), context);
  EXPECT_THROW_TEXT(answer.get(), std::invalid_argument,
                    "Error while parsing: No deserializer for type: nobody/knows");
}

TEST_F(JsonSerializerServiceProviderTest, CallerStillOwnsTheRequestAfterDeliver) {
  answerWithJsonOf(std::make_unique<Message>());
  std::unique_ptr<Message> request = std::make_unique<Greeting>("mine", 5);
  Message* raw = request.get();
  provider->deliver(std::move(request), Address("a"), context).get();
  ASSERT_EQ(request.get(), raw);
  EXPECT_EQ(static_cast<Greeting&>(*request).text, "mine");
}

TEST_F(JsonSerializerServiceProviderTest, ContextThatKeepsTheOutgoingMessageOwnsItIntact) {
  answerWithJsonOf(std::make_unique<GreetingReply>("kept", 1, true));
  provider->deliver(std::make_unique<Greeting>("keep me", 1), Address("a"), context).get();
  provider.reset();  // nothing of the delivery depends on the provider any more
  ASSERT_EQ(context->messages.size(), 1u);
  auto& kept = dynamic_cast<OpaqueMessage&>(*context->messages[0]);
  EXPECT_EQ(kept.contentType, "application/json");
  EXPECT_EQ(kept.payload.view(), R"({"number":1,"text":"keep me","type":"test/Greeting"})");
}

TEST_F(JsonSerializerServiceProviderTest,
       ContextThatLeavesTheOutgoingMessageStillGetsItsAnswerBack) {
  answerWithJsonOf(std::make_unique<GreetingReply>("left", 2, false));
  context->leaveMessagesWithTheCaller();
  std::unique_ptr<Message> answer =
      provider->deliver(std::make_unique<Greeting>("x", 2), Address("a"), context).get();
  EXPECT_EQ(context->calls(), 1u);
  EXPECT_TRUE(context->messages.empty());
  EXPECT_EQ(dynamic_cast<GreetingReply&>(*answer).text, "left");
}

// The provider with a stand-in serializer, to reach what a real one never produces.
class JsonSerializerServiceProviderStandInTest : public ::testing::Test {
 protected:
  JsonSerializerServiceProviderStandInTest() {
    testing::registerTestMessages(*serializer);
    context->answerWith([](std::unique_ptr<Message>&) {
      return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<OpaqueMessage>(
          "application/json", common::DataBuffer(R"({"type":"connector/Message"})")));
    });
  }

  Future<std::unique_ptr<Message>> deliverGreeting() {
    return provider->deliver(std::make_unique<Greeting>("x", 1), Address("a"), context);
  }

  std::shared_ptr<testing::StandInSerializer> serializer =
      std::make_shared<testing::StandInSerializer>();
  std::shared_ptr<JsonSerializerServiceProvider> provider =
      std::make_shared<JsonSerializerServiceProvider>(serializer);
  std::shared_ptr<RecordingContext> context = std::make_shared<RecordingContext>();
};

TEST_F(JsonSerializerServiceProviderStandInTest, SerializationStreamThatFailsLetsItsErrorOut) {
  serializer->serializeWith([](const std::unique_ptr<Message>&) -> BytePublisher {
    return std::make_shared<testing::ScriptedPublisher>(
        std::vector<std::string>{R"({"te)"},
        std::make_exception_ptr(std::length_error("writer failed")));
  });
  EXPECT_THROW_TEXT(deliverGreeting(), std::length_error, "writer failed");
  EXPECT_EQ(context->calls(), 0u);
}

TEST_F(JsonSerializerServiceProviderStandInTest,
       SerializationStreamFailingOnAnotherThreadWakesTheWaitingDelivery) {
  serializer->serializeWith([](const std::unique_ptr<Message>&) -> BytePublisher {
    return std::make_shared<testing::ChunkPublisher>(
        std::vector<std::string>{R"({"te)", R"(xt")"},
        std::make_exception_ptr(std::length_error("writer failed")));
  });
  EXPECT_THROW_TEXT(deliverGreeting(), std::length_error, "writer failed");
  EXPECT_EQ(context->calls(), 0u);
}

// A stream whose publisher lets its subscriber go before the end is cancelled by that
// subscriber; a cancelled fold still yields what it gathered, and that is what is sent.
TEST_F(JsonSerializerServiceProviderStandInTest,
       SerializationStreamAbandonedMidwayIsCancelledAndWhatItGatheredIsSent) {
  auto abandoning = testing::ScriptedPublisher::abandoning({R"({"te)", R"(xt")"});
  serializer->serializeWith(
      [abandoning](const std::unique_ptr<Message>&) -> BytePublisher { return abandoning; });
  deliverGreeting().get();
  EXPECT_EQ(abandoning->cancels(), 1);
  ASSERT_EQ(context->calls(), 1u);
  EXPECT_EQ(dynamic_cast<OpaqueMessage&>(*context->messages[0]).payload.view(), R"({"text")");
}

TEST_F(JsonSerializerServiceProviderStandInTest,
       InvalidFutureOfTheAnswersDeserializationIsReturned) {
  serializer->deserializeWith([](BytePublisher) { return Future<std::unique_ptr<Message>>(); });
  Future<std::unique_ptr<Message>> answer;
  ASSERT_NO_THROW(answer = deliverGreeting());
  EXPECT_FALSE(answer.valid());
  EXPECT_THROW_TEXT(answer.get(), std::runtime_error, "Future state isn't valid!");
}

// What deliver holds is released in this order when it returns: the answer's one-shot
// publisher, the answer, the outgoing message (when the context left it), the byte
// buffer, the request's serialization publisher.
TEST_F(JsonSerializerServiceProviderStandInTest, ReleasesItsLocalsInOrderOnReturn) {
  std::vector<std::string> released;
  std::weak_ptr<reactive_streams::PublisherAPI<common::DataBuffer>> answerBytes;
  serializer->serializeWith([&](const std::unique_ptr<Message>& message) -> BytePublisher {
    return std::make_shared<testing::ProbedPublisher>(
        serializer->real->serialize(message),
        [&released] { released.emplace_back("serialization publisher"); });
  });
  serializer->deserializeWith([&](BytePublisher bytes) {
    answerBytes = bytes;
    return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<Message>());
  });
  context->answerWith([&](std::unique_ptr<Message>&) {
    return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<testing::ProbedOpaqueMessage>(
        "application/json", common::DataBuffer("{}"), [&] {
          released.push_back(answerBytes.expired() ? "answer, after its publisher"
                                                   : "answer, before its publisher");
        }));
  });
  deliverGreeting().get();
  EXPECT_EQ(released,
            (std::vector<std::string>{"answer, after its publisher", "serialization publisher"}));
}

}  // namespace
}  // namespace connector::json

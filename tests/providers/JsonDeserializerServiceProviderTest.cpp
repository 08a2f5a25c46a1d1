// The receiving half of the bridge: an opaque JSON request becomes a typed request sent
// on to the same address; the typed answer comes back as an OpaqueMessage.
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include <connector/json.hpp>

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

class JsonDeserializerServiceProviderTest : public ::testing::Test {
 protected:
  JsonDeserializerServiceProviderTest() {
    testing::registerTestMessages(*serializer);
    provider = std::make_shared<JsonDeserializerServiceProvider>(serializer);
    provider->setRunning(true);
    context = std::make_shared<RecordingContext>();
    // By default the answering service greets back.
    context->answerWith([](std::unique_ptr<Message>& request) {
      auto& greeting = dynamic_cast<Greeting&>(*request);
      return makeReadyFuture<std::unique_ptr<Message>>(
          std::make_unique<GreetingReply>("re: " + greeting.text, greeting.number, true));
    });
  }

  std::string jsonOf(const std::unique_ptr<Message>& message) {
    std::ostringstream out;
    serializer->serialize(message, out);
    return out.str();
  }

  static std::unique_ptr<OpaqueMessage> request(
      std::string_view bytes, const std::string& contentType = "application/json") {
    return std::make_unique<OpaqueMessage>(contentType, common::DataBuffer(bytes));
  }

  std::shared_ptr<JsonSerializerImpl> serializer = std::make_shared<JsonSerializerImpl>();
  std::shared_ptr<JsonDeserializerServiceProvider> provider;
  std::shared_ptr<RecordingContext> context;
};

constexpr const char* kGreetingJson = R"({"number":4,"text":"hi","type":"test/Greeting"})";

TEST_F(JsonDeserializerServiceProviderTest, AnswersWithTheSerializedTypedAnswer) {
  auto reply = provider->handle(request(kGreetingJson), Address("greeter"), context).get();
  auto* opaque = dynamic_cast<OpaqueMessage*>(reply.get());
  ASSERT_NE(opaque, nullptr);
  EXPECT_EQ(opaque->contentType, "application/json");
  const std::unique_ptr<Message> expected = std::make_unique<GreetingReply>("re: hi", 4, true);
  EXPECT_EQ(opaque->payload.view(), jsonOf(expected));
}

TEST_F(JsonDeserializerServiceProviderTest, EchoesAnyContentType) {
  auto reply = provider
                   ->handle(request(kGreetingJson, "application/vnd.shop+json; charset=utf-8"),
                            Address("greeter"), context)
                   .get();
  auto& opaque = dynamic_cast<OpaqueMessage&>(*reply);
  EXPECT_EQ(opaque.contentType, "application/vnd.shop+json; charset=utf-8");
  EXPECT_EQ(opaque.payload.view(),
            R"({"accepted":true,"number":4,"text":"re: hi","type":"test/GreetingReply"})");
}

TEST_F(JsonDeserializerServiceProviderTest, SendsTheDeserializedRequestToTheSameAddress) {
  provider->handle(request(kGreetingJson), Address("greeter/v2"), context).get();
  ASSERT_EQ(context->calls(), 1u);
  auto* typed = dynamic_cast<Greeting*>(context->messages[0].get());
  ASSERT_NE(typed, nullptr);
  EXPECT_EQ(typed->text, "hi");
  EXPECT_EQ(typed->number, 4);
  EXPECT_EQ(context->addresses[0].str(), "greeter/v2");
}

TEST_F(JsonDeserializerServiceProviderTest, PayloadThatDoesNotParseThrowsAndNothingIsSent) {
  try {
    provider->handle(request("{\"type\":"), Address("a"), context);
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_EQ(std::string(e.what()).rfind("Parsing error: ", 0), 0u) << e.what();
  }
  EXPECT_EQ(context->calls(), 0u);
}

TEST_F(JsonDeserializerServiceProviderTest, PayloadThatDoesNotParseThrowsThroughDeliverToo) {
  std::unique_ptr<Message> message = request("not json at all");
  EXPECT_THROW(provider->deliver(std::move(message), Address("a"), context), std::invalid_argument);
  EXPECT_EQ(context->calls(), 0u);
}

TEST_F(JsonDeserializerServiceProviderTest, UnregisteredTypeNameThrows) {
  EXPECT_THROW_TEXT(provider->handle(request(R"({"type":"shop/Unknown"})"), Address("a"), context),
                    std::invalid_argument,
                    "Error while parsing: No deserializer for type: shop/Unknown");
  EXPECT_EQ(context->calls(), 0u);
}

TEST_F(JsonDeserializerServiceProviderTest, RequestPayloadIsEmptyAfterHandle) {
  // handle takes the request by rvalue reference but leaves it with the caller; only its
  // payload is moved out.
  auto message = request(kGreetingJson);
  provider->handle(std::move(message), Address("a"), context).get();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->payload.size, 0u);
  EXPECT_EQ(message->payload.data, nullptr);
  EXPECT_EQ(message->contentType, "application/json");
}

TEST_F(JsonDeserializerServiceProviderTest, ReturnedFutureIsAlreadyResolved) {
  auto reply = provider->handle(request(kGreetingJson), Address("a"), context);
  ASSERT_TRUE(reply.valid());
  // A continuation attached to a resolved future runs at once, on this thread.
  bool ranHere = false;
  reply.then([&ranHere](Future<std::unique_ptr<Message>> ready) {
    ranHere = dynamic_cast<OpaqueMessage*>(ready.get().get()) != nullptr;
  });
  EXPECT_TRUE(ranHere);
}

TEST_F(JsonDeserializerServiceProviderTest, FailedAnswerOfTheServiceIsRethrown) {
  context->answerWith([](std::unique_ptr<Message>&) {
    return makeFailedFuture<std::unique_ptr<Message>>(
        std::make_exception_ptr(std::runtime_error("out of stock")));
  });
  EXPECT_THROW_TEXT(provider->handle(request(kGreetingJson), Address("a"), context),
                    std::runtime_error, "out of stock");
}

TEST_F(JsonDeserializerServiceProviderTest, InvalidAnswerFutureThrows) {
  context->answerWith([](std::unique_ptr<Message>&) { return Future<std::unique_ptr<Message>>(); });
  EXPECT_THROW_TEXT(provider->handle(request(kGreetingJson), Address("a"), context),
                    std::runtime_error, "Future state isn't valid!");
}

TEST_F(JsonDeserializerServiceProviderTest, LateAnswerFromAnotherThreadIsAwaited) {
  context->answerLaterWith([] { return std::make_unique<GreetingReply>("late", 1, false); });
  auto reply = provider->handle(request(kGreetingJson), Address("a"), context).get();
  EXPECT_EQ(dynamic_cast<OpaqueMessage&>(*reply).payload.view(),
            R"({"accepted":false,"number":1,"text":"late","type":"test/GreetingReply"})");
}

TEST_F(JsonDeserializerServiceProviderTest, AnswerOfAnUnregisteredTypeThrows) {
  context->answerWith([](std::unique_ptr<Message>&) {
    return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<testing::Unregistered>());
  });
  EXPECT_THROW_TEXT(provider->handle(request(kGreetingJson), Address("a"), context),
                    std::invalid_argument,
                    "No serializer for type: connector::testing::Unregistered");
}

TEST_F(JsonDeserializerServiceProviderTest, HandleServesEvenWhileStopped) {
  provider->setRunning(false);
  auto reply = provider->handle(request(kGreetingJson), Address("a"), context).get();
  EXPECT_NE(dynamic_cast<OpaqueMessage*>(reply.get()), nullptr);
}

TEST_F(JsonDeserializerServiceProviderTest, DeliverOfAStoppedProviderIsRefused) {
  provider->setRunning(false);
  auto reply = provider->deliver(request(kGreetingJson), Address("a"), context);
  EXPECT_THROW_TEXT(reply.get(), std::runtime_error, "Service exists but is not running.");
  EXPECT_EQ(context->calls(), 0u);
}

TEST_F(JsonDeserializerServiceProviderTest, ContextThatThrowsLetsItOutWithThePayloadConsumed) {
  context->answerWith([](std::unique_ptr<Message>&) -> Future<std::unique_ptr<Message>> {
    throw std::length_error("no route");
  });
  auto message = request(kGreetingJson, "text/json");
  EXPECT_THROW_TEXT(provider->handle(std::move(message), Address("a"), context), std::length_error,
                    "no route");
  ASSERT_TRUE(message);
  EXPECT_EQ(message->payload.size, 0u);
  EXPECT_EQ(message->contentType, "text/json");
}

TEST_F(JsonDeserializerServiceProviderTest, NullAnswerFromTheContextCannotBeSerialized) {
  context->answerWith(
      [](std::unique_ptr<Message>&) { return makeReadyFuture<std::unique_ptr<Message>>(nullptr); });
  EXPECT_THROW_TEXT(provider->handle(request(kGreetingJson), Address("a"), context),
                    std::bad_typeid, std::bad_typeid().what());
  EXPECT_EQ(context->calls(), 1u);
}

// The provider with a stand-in serializer, to reach what a real one never produces.
class JsonDeserializerServiceProviderStandInTest : public ::testing::Test {
 protected:
  JsonDeserializerServiceProviderStandInTest() {
    testing::registerTestMessages(*serializer);
    testing::registerProbedMessage(*serializer);
    context->answerWith([](std::unique_ptr<Message>&) {
      return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<Message>());
    });
  }

  static std::unique_ptr<OpaqueMessage> request() {
    return std::make_unique<OpaqueMessage>("application/json", common::DataBuffer(kGreetingJson));
  }

  std::shared_ptr<testing::StandInSerializer> serializer =
      std::make_shared<testing::StandInSerializer>();
  std::shared_ptr<JsonDeserializerServiceProvider> provider =
      std::make_shared<JsonDeserializerServiceProvider>(serializer);
  std::shared_ptr<RecordingContext> context = std::make_shared<RecordingContext>();
};

TEST_F(JsonDeserializerServiceProviderStandInTest,
       InvalidDeserializationFutureThrowsBeforeSending) {
  serializer->deserializeWith([](BytePublisher) { return Future<std::unique_ptr<Message>>(); });
  auto message = request();
  EXPECT_THROW_TEXT(provider->handle(std::move(message), Address("a"), context), std::runtime_error,
                    "Future state isn't valid!");
  EXPECT_EQ(context->calls(), 0u);
  EXPECT_EQ(message->payload.size, 0u);
}

TEST_F(JsonDeserializerServiceProviderStandInTest,
       CancelledDeserializationFutureThrowsBeforeSending) {
  serializer->deserializeWith([](BytePublisher) {
    Promise<std::unique_ptr<Message>> promise;
    Future<std::unique_ptr<Message>> future = promise.getFuture();
    future.cancel();
    return future;
  });
  EXPECT_THROW_TEXT(provider->handle(request(), Address("a"), context), std::runtime_error,
                    "Future has been cancelled.");
  EXPECT_EQ(context->calls(), 0u);
}

TEST_F(JsonDeserializerServiceProviderStandInTest,
       AnswerSerializationStreamThatFailsLetsItsErrorOut) {
  serializer->serializeWith([](const std::unique_ptr<Message>&) -> BytePublisher {
    return std::make_shared<testing::ScriptedPublisher>(
        std::vector<std::string>{"{"}, std::make_exception_ptr(std::length_error("writer failed")));
  });
  EXPECT_THROW_TEXT(provider->handle(request(), Address("a"), context), std::length_error,
                    "writer failed");
  EXPECT_EQ(context->calls(), 1u);
}

// What handle holds is released in this order when it returns: the byte buffer, the
// answer's serialization publisher, the typed answer, the typed request (when the
// context left it), the request's one-shot publisher, the content-type copy.
TEST_F(JsonDeserializerServiceProviderStandInTest, ReleasesItsLocalsInOrderOnReturn) {
  std::vector<std::string> released;
  std::weak_ptr<reactive_streams::PublisherAPI<common::DataBuffer>> requestBytes;
  auto note = [&released](const char* what) {
    return [&released, what] { released.emplace_back(what); };
  };
  serializer->deserializeWith([&](BytePublisher bytes) {
    requestBytes = bytes;
    return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<testing::ProbedMessage>([&] {
      released.push_back(requestBytes.expired() ? "typed request, after the one-shot publisher"
                                                : "typed request, before the one-shot publisher");
    }));
  });
  serializer->serializeWith([&](const std::unique_ptr<Message>& message) -> BytePublisher {
    return std::make_shared<testing::ProbedPublisher>(serializer->real->serialize(message),
                                                      note("serialization publisher"));
  });
  context->leaveMessagesWithTheCaller();
  context->answerWith([&](std::unique_ptr<Message>&) {
    return makeReadyFuture<std::unique_ptr<Message>>(
        std::make_unique<testing::ProbedMessage>(note("typed answer")));
  });
  auto reply = provider->handle(request(), Address("a"), context);
  EXPECT_TRUE(requestBytes.expired());
  EXPECT_EQ(released, (std::vector<std::string>{"serialization publisher", "typed answer",
                                                "typed request, before the one-shot publisher"}));
  EXPECT_EQ(dynamic_cast<OpaqueMessage&>(*reply.get()).payload.view(), R"({"type":"test/Probed"})");
}

}  // namespace
}  // namespace connector::json

// Streamed deserialization: JSON text arriving as a byte stream, by "type" and by name.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>

#include <connector/json.hpp>

#include "serializer/ChunkPublisher.hpp"
#include "serializer/SerializerTestTypes.hpp"
#include "serializer/StreamedOutcome.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::json {
namespace {

using connector::testing::ChunkPublisher;
using connector::testing::Outcome;
using connector::testing::settle;
using ObjectPtr = Poco::SharedPtr<Poco::JSON::Object>;

std::shared_ptr<ChunkPublisher> chunks(std::vector<std::string> pieces) {
  return std::make_shared<ChunkPublisher>(std::move(pieces));
}

std::shared_ptr<ChunkPublisher> bytesOf(const std::string& text, std::size_t chunkSize) {
  return chunks(ChunkPublisher::split(text, chunkSize));
}

std::shared_ptr<JsonSerializerImpl> withReserve() {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("shop/Reserve", typeid(shop::Reserve), shop::reserveToJson,
                           shop::reserveFromJson);
  return serializer;
}

std::shared_ptr<JsonSerializerImpl> withConverter(const std::string& name,
                                                  DeserializerFn converter) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType(name, typeid(shop::Cancel), shop::emptyToJson, std::move(converter));
  return serializer;
}

TEST(JsonSerializerStreamed, SeveralChunksGiveAPlainMessage) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  Outcome outcome =
      settle(serializer->deserialize(chunks({R"({"ty)", R"(pe":"connector/)", R"(Message"})"})));
  ASSERT_TRUE(outcome.resolved);
  ASSERT_NE(outcome.message, nullptr) << "failed instead";
  EXPECT_EQ(typeid(*outcome.message), typeid(Message));
}

TEST(JsonSerializerStreamed, NamedOperationIgnoresTheTypeMember) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  Outcome outcome =
      settle(serializer->deserialize("connector/Message", bytesOf(R"({"type":"other"})", 4)));
  ASSERT_TRUE(outcome.resolved);
  ASSERT_NE(outcome.message, nullptr);
  EXPECT_EQ(typeid(*outcome.message), typeid(Message));
}

TEST(JsonSerializerStreamed, OneByteChunksAndOneChunkGiveTheSameMessage) {
  auto serializer = withReserve();
  std::ostringstream text;
  serializer->serialize(std::make_unique<shop::Reserve>("Z-\u00e9\"1", 12), text);
  for (std::size_t size : {std::size_t{1}, text.str().size()}) {
    Outcome outcome = settle(serializer->deserialize(bytesOf(text.str(), size)));
    ASSERT_TRUE(outcome.resolved);
    auto* reserve = dynamic_cast<shop::Reserve*>(outcome.message.get());
    ASSERT_NE(reserve, nullptr) << "chunk size " << size;
    EXPECT_EQ(reserve->sku, "Z-\u00e9\"1");
    EXPECT_EQ(reserve->quantity, 12);
  }
}

TEST(JsonSerializerStreamed, SerializedPublisherFeedsStraightBack) {
  auto serializer = withReserve();
  Outcome outcome = settle(
      serializer->deserialize(serializer->serialize(std::make_unique<shop::Reserve>("Q", 1))));
  auto* reserve = dynamic_cast<shop::Reserve*>(outcome.message.get());
  ASSERT_NE(reserve, nullptr);
  EXPECT_EQ(reserve->sku, "Q");
}

TEST(JsonSerializerStreamed, MalformedJsonByTypeIsAParsingError) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  Outcome outcome = settle(serializer->deserialize(bytesOf(R"({"type": )", 3)));
  ASSERT_TRUE(outcome.resolved);
  EXPECT_THROW_TEXT(outcome.rethrow(), std::invalid_argument,
                    "Parsing error: unexpected end of text");
}

TEST(JsonSerializerStreamed, MalformedJsonByNameIsAParsingErrorForTheName) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  Outcome outcome = settle(serializer->deserialize("connector/Message", bytesOf("{]", 1)));
  ASSERT_TRUE(outcome.resolved);
  EXPECT_THROW_TEXT(outcome.rethrow(), std::invalid_argument,
                    "Parsing error for type 'connector/Message': unexpected byte ']' in value");
}

TEST(JsonSerializerStreamed, ScalarRootIsAParsingErrorByTypeAndByName) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  // Poco's parse handler has no object to put a scalar root into; an array root parses
  // but is no object (Poco names both types in their mangled form).
  const std::string noContainer = "Attempt to set value on an empty stack";
  const std::string notAnObject = std::string("Can not convert ") +
                                  typeid(Poco::JSON::Array::Ptr).name() + " to " +
                                  typeid(ObjectPtr).name() + ".";
  const std::vector<std::pair<std::string, std::string>> roots = {
      {"5", noContainer}, {R"("s")", noContainer}, {"null", noContainer}, {"[1,2]", notAnObject}};
  for (const auto& [text, reason] : roots) {
    SCOPED_TRACE(text);
    Outcome byType;
    ASSERT_NO_THROW(byType = settle(serializer->deserialize(bytesOf(text, 2))));
    ASSERT_TRUE(byType.resolved);
    EXPECT_THROW_TEXT(byType.rethrow(), std::invalid_argument, "Parsing error: " + reason);
    Outcome byName = settle(serializer->deserialize("connector/Message", bytesOf(text, 2)));
    ASSERT_TRUE(byName.resolved);
    EXPECT_THROW_TEXT(byName.rethrow(), std::invalid_argument,
                      "Parsing error for type 'connector/Message': " + reason);
  }
}

TEST(JsonSerializerStreamed, UnknownTypeIsWrappedTwice) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  Outcome outcome = settle(serializer->deserialize(bytesOf(R"({"type":"no/such"})", 5)));
  ASSERT_TRUE(outcome.resolved);
  EXPECT_THROW_TEXT(outcome.rethrow(), std::invalid_argument,
                    "Error while parsing: No deserializer for type: no/such");
}

TEST(JsonSerializerStreamed, MissingTypeIsAParsingError) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  Outcome outcome = settle(serializer->deserialize(bytesOf(R"({"sku":"A"})", 5)));
  EXPECT_THROW_TEXT(outcome.rethrow(), std::invalid_argument,
                    "Parsing error: Can not convert empty value.");
}

TEST(JsonSerializerStreamed, UnknownNameLosesItsTextInTheNamedOperation) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  Outcome outcome = settle(serializer->deserialize("no/such", bytesOf("{}", 1)));
  ASSERT_TRUE(outcome.resolved);
  EXPECT_THROW_TEXT(outcome.rethrow(), std::invalid_argument,
                    "Unknown error while parsing 'no/such'");
}

TEST(JsonSerializerStreamed, ConverterPocoFailureByTypeIsWrappedTwice) {
  auto serializer = withConverter("shop/Cancel", [](ObjectPtr) -> std::unique_ptr<Message> {
    throw Poco::NotFoundException("sku missing");
  });
  Outcome outcome = settle(serializer->deserialize(bytesOf(R"({"type":"shop/Cancel"})", 64)));
  EXPECT_THROW_TEXT(outcome.rethrow(), std::invalid_argument,
                    "Error while parsing: Parsing error for type 'shop/Cancel': sku missing");
}

TEST(JsonSerializerStreamed, ConverterPocoFailureByNameIsAParsingErrorForTheName) {
  auto serializer = withConverter("shop/Cancel", [](ObjectPtr) -> std::unique_ptr<Message> {
    throw Poco::NotFoundException("sku missing");
  });
  Outcome outcome = settle(serializer->deserialize("shop/Cancel", bytesOf("{}", 64)));
  EXPECT_THROW_TEXT(outcome.rethrow(), std::invalid_argument,
                    "Parsing error for type 'shop/Cancel': sku missing");
}

TEST(JsonSerializerStreamed, ConverterStandardFailureKeepsItsTextOnlyByType) {
  auto serializer = withConverter("shop/Cancel", [](ObjectPtr) -> std::unique_ptr<Message> {
    throw std::out_of_range("quantity");
  });
  Outcome byType = settle(serializer->deserialize(bytesOf(R"({"type":"shop/Cancel"})", 64)));
  EXPECT_THROW_TEXT(byType.rethrow(), std::invalid_argument, "Error while parsing: quantity");
  Outcome byName = settle(serializer->deserialize("shop/Cancel", bytesOf("{}", 64)));
  EXPECT_THROW_TEXT(byName.rethrow(), std::invalid_argument,
                    "Unknown error while parsing 'shop/Cancel'");
}

TEST(JsonSerializerStreamed, ConverterThrowingAnIntIsAnUnknownError) {
  auto serializer =
      withConverter("shop/Cancel", [](ObjectPtr) -> std::unique_ptr<Message> { throw 3; });
  Outcome byType = settle(serializer->deserialize(bytesOf(R"({"type":"shop/Cancel"})", 64)));
  EXPECT_THROW_TEXT(byType.rethrow(), std::invalid_argument, "Unknown error while parsing");
  Outcome byName = settle(serializer->deserialize("shop/Cancel", bytesOf("{}", 64)));
  EXPECT_THROW_TEXT(byName.rethrow(), std::invalid_argument,
                    "Unknown error while parsing 'shop/Cancel'");
}

TEST(JsonSerializerStreamed, ConverterReturningNullGivesAReadyFutureOfNull) {
  auto serializer = withConverter("nothing", [](ObjectPtr) { return std::unique_ptr<Message>(); });
  Outcome outcome = settle(serializer->deserialize("nothing", bytesOf("{}", 1)));
  ASSERT_TRUE(outcome.resolved);
  EXPECT_EQ(outcome.error, nullptr);
  EXPECT_EQ(outcome.message, nullptr);
}

TEST(JsonSerializerStreamed, SerializerWithoutSharedOwnershipGivesBadWeakPtr) {
  JsonSerializerImpl serializer;
  Outcome byType = settle(serializer.deserialize(bytesOf(R"({"type":"connector/Message"})", 4)));
  ASSERT_TRUE(byType.resolved);
  EXPECT_THROW(byType.rethrow(), std::bad_weak_ptr);
  Outcome byName = settle(serializer.deserialize("connector/Message", bytesOf("{}", 4)));
  ASSERT_TRUE(byName.resolved);
  EXPECT_THROW(byName.rethrow(), std::bad_weak_ptr);
}

TEST(JsonSerializerStreamed, EmptyStreamIsAParsingError) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  Outcome byType = settle(serializer->deserialize(chunks({})));
  EXPECT_THROW_TEXT(byType.rethrow(), std::invalid_argument,
                    "Parsing error: unexpected end of text");
  Outcome byName = settle(serializer->deserialize("connector/Message", chunks({})));
  EXPECT_THROW(byName.rethrow(), std::invalid_argument);
}

// Even after a whole document, the stream's failure is what the future reports.
TEST(JsonSerializerStreamed, StreamThatFailsGivesAFailedFutureWithItsError) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  auto failing = [] {
    return std::make_shared<ChunkPublisher>(
        std::vector<std::string>{R"({"type":"connector/Message"})"},
        std::make_exception_ptr(std::runtime_error("connection reset")));
  };
  Outcome byType = settle(serializer->deserialize(failing()));
  ASSERT_TRUE(byType.resolved);
  EXPECT_THROW_TEXT(byType.rethrow(), std::invalid_argument,
                    "Error while parsing: connection reset");
  Outcome byName = settle(serializer->deserialize("connector/Message", failing()));
  ASSERT_TRUE(byName.resolved);
  EXPECT_THROW_TEXT(byName.rethrow(), std::invalid_argument,
                    "Unknown error while parsing 'connector/Message'");
}

TEST(JsonSerializerStreamed, StreamThatFailsBeforeItsFirstByteGivesAFailedFuture) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  auto failing = [] {
    return std::make_shared<ChunkPublisher>(std::vector<std::string>{},
                                            std::make_exception_ptr(std::runtime_error("refused")));
  };
  Outcome byType = settle(serializer->deserialize(failing()));
  ASSERT_TRUE(byType.resolved);
  EXPECT_THROW_TEXT(byType.rethrow(), std::invalid_argument, "Error while parsing: refused");
  Outcome byName = settle(serializer->deserialize("shop/Reserve", failing()));
  ASSERT_TRUE(byName.resolved);
  EXPECT_THROW_TEXT(byName.rethrow(), std::invalid_argument,
                    "Unknown error while parsing 'shop/Reserve'");
}

// Records the object-level calls that the streamed operations make through the slots.
class RecordingSerializer : public JsonSerializerImpl {
 public:
  using JsonSerializerImpl::deserialize;

  std::unique_ptr<Message> deserialize(ObjectPtr&& object) override {
    calls.push_back("by type " + object->getValue<std::string>("type"));
    return std::make_unique<shop::Cancel>();
  }

  std::unique_ptr<Message> deserialize(const std::string& name, ObjectPtr&& object) override {
    calls.push_back("by name " + name + " of " + std::to_string(object->size()));
    return std::make_unique<shop::Reserve>("from override", 1);
  }

  std::vector<std::string> calls;
};

TEST(JsonSerializerStreamed, OverriddenObjectLevelDeserializeIsReachedByBothOperations) {
  auto serializer = std::make_shared<RecordingSerializer>();
  Outcome byType = settle(serializer->deserialize(bytesOf(R"({"type":"no/such"})", 3)));
  ASSERT_NE(byType.message, nullptr) << "failed instead";
  EXPECT_EQ(typeid(*byType.message), typeid(shop::Cancel));
  Outcome byName = settle(serializer->deserialize("no/such/either", bytesOf(R"({"a":1})", 3)));
  ASSERT_NE(byName.message, nullptr) << "failed instead";
  EXPECT_EQ(typeid(*byName.message), typeid(shop::Reserve));
  EXPECT_EQ(serializer->calls,
            (std::vector<std::string>{"by type no/such", "by name no/such/either of 1"}));
}

TEST(JsonSerializerStreamed, NullPublisherGivesAFailedFuture) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  Outcome byType = settle(serializer->deserialize(BytePublisher()));
  EXPECT_THROW_TEXT(byType.rethrow(), std::invalid_argument, "Publisher must not be null.");
  Outcome byName = settle(serializer->deserialize("connector/Message", BytePublisher()));
  EXPECT_THROW_TEXT(byName.rethrow(), std::invalid_argument, "Publisher must not be null.");
}

TEST(JsonSerializerStreamed, PublisherAlreadySubscribedGivesItsOwnError) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  auto publisher = bytesOf("{}", 1);
  publisher->subscribe(std::make_shared<reactive_streams::IStreamSubscriber>());
  Outcome outcome = settle(serializer->deserialize("connector/Message", publisher));
  EXPECT_THROW_TEXT(outcome.rethrow(), std::invalid_argument, "Only one subscription allowed.");
}

std::string nested(std::size_t depth, char open, char close) {
  return std::string(depth, open) + std::string(depth, close);
}

TEST(JsonSerializerStreamed, DeepNestingFailsCleanly) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  const std::string arrays = "{\"a\":" + nested(100000, '[', ']') + "}";
  std::string objects;
  for (int i = 0; i < 100000; ++i) {
    objects += "{\"a\":";
  }
  objects += "1" + std::string(100000, '}');
  for (const std::string* text : {&arrays, static_cast<const std::string*>(&objects)}) {
    Outcome byType = settle(serializer->deserialize(bytesOf(*text, 4096)));
    ASSERT_TRUE(byType.resolved);
    EXPECT_THROW_TEXT(byType.rethrow(), std::invalid_argument,
                      "Parsing error: Maximum depth exceeded");
    Outcome byName = settle(serializer->deserialize("connector/Message", bytesOf(*text, 4096)));
    ASSERT_TRUE(byName.resolved);
    EXPECT_THROW_TEXT(byName.rethrow(), std::invalid_argument,
                      "Parsing error for type 'connector/Message': Maximum depth exceeded");
  }
  Outcome unclosed = settle(serializer->deserialize(bytesOf(std::string(100000, '['), 1)));
  EXPECT_THROW_TEXT(unclosed.rethrow(), std::invalid_argument,
                    "Parsing error: Maximum depth exceeded");
}

TEST(JsonSerializerStreamed, TrailingTextAfterTheObjectIsAParsingError) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  Outcome outcome =
      settle(serializer->deserialize(bytesOf(R"({"type":"connector/Message"} x)", 2)));
  EXPECT_THROW_TEXT(outcome.rethrow(), std::invalid_argument,
                    "Parsing error: Excess characters found after JSON end.");
}

}  // namespace
}  // namespace connector::json

// json::publisherOf: text already in hand as a byte publisher, alone and as the input
// of the streamed deserialize.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"
#include "support/RecordingSubscriber.hpp"

namespace connector::json {
namespace {

using common::DataBuffer;
using connector::testing::RecordingSubscriber;

struct Note : Message {
  std::string text;
  int count = 0;
};

std::shared_ptr<JsonSerializerImpl> withNote() {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  MessageType<Note> note("test/Note");
  note.field("text", &Note::text).field("count", &Note::count);
  note.registerWith(*serializer);
  return serializer;
}

std::vector<std::string> deliveredAtOnce() { return {"subscribe", "next", "complete"}; }

TEST(PublisherOf, DeliversTheWholeTextInOnePieceInsideSubscribe) {
  auto bytes = publisherOf(std::string(R"({"a":1})"));
  auto subscriber = std::make_shared<RecordingSubscriber<DataBuffer>>(-1);
  bytes->subscribe(subscriber);
  EXPECT_EQ(subscriber->events, deliveredAtOnce());
  ASSERT_EQ(subscriber->items.size(), 1U);
  EXPECT_EQ(subscriber->items[0].view(), R"({"a":1})");
}

TEST(PublisherOf, WaitsForDemandAndHonoursCancel) {
  auto bytes = publisherOf(std::string("abc"));
  auto waiting = std::make_shared<RecordingSubscriber<DataBuffer>>();
  bytes->subscribe(waiting);
  EXPECT_EQ(waiting->events, std::vector<std::string>{"subscribe"});
  waiting->subscription.lock()->request(1);
  EXPECT_EQ(waiting->events, deliveredAtOnce());
  waiting->subscription.lock()->request(1);  // everything was delivered already
  EXPECT_EQ(waiting->events.size(), 3U);

  auto cancelling = std::make_shared<RecordingSubscriber<DataBuffer>>();
  bytes->subscribe(cancelling);
  cancelling->subscription.lock()->cancel();
  cancelling->subscription.lock()->request(1);
  EXPECT_EQ(cancelling->events, std::vector<std::string>{"subscribe"});
}

TEST(PublisherOf, ServesEverySubscriberTheSameBytes) {
  auto bytes = publisherOf(DataBuffer(std::string_view("hello")));
  for (int i = 0; i < 3; ++i) {
    auto subscriber = std::make_shared<RecordingSubscriber<DataBuffer>>(-1);
    subscriber->takeItems = true;  // a subscriber that takes its item leaves the next one whole
    bytes->subscribe(subscriber);
    EXPECT_EQ(subscriber->events, deliveredAtOnce());
    ASSERT_EQ(subscriber->items.size(), 1U);
    EXPECT_EQ(subscriber->items[0].view(), "hello");
  }
  EXPECT_TRUE(bytes->completion().get());
}

TEST(PublisherOf, EmptyTextCompletesWithoutAnItem) {
  auto subscriber = std::make_shared<RecordingSubscriber<DataBuffer>>(-1);
  publisherOf(std::string())->subscribe(subscriber);
  EXPECT_EQ(subscriber->events, (std::vector<std::string>{"subscribe", "complete"}));
}

TEST(PublisherOf, RefusesANullSubscriber) {
  EXPECT_THROW_TEXT(publisherOf(std::string("x"))->subscribe(nullptr), std::invalid_argument,
                    "Subscriber must not be null.");
}

TEST(PublisherOf, RoundTripsThroughTheSerializer) {
  auto serializer = withNote();
  auto note = std::make_unique<Note>();
  note->text = "hi";
  note->count = 3;
  std::ostringstream out;
  serializer->serialize(note, out);
  EXPECT_EQ(out.str(), R"({"text":"hi","count":3,"type":"test/Note"})");

  std::unique_ptr<Message> back = serializer->deserialize(publisherOf(out.str())).get();
  const auto& read = dynamic_cast<const Note&>(*back);
  EXPECT_EQ(read.text, "hi");
  EXPECT_EQ(read.count, 3);

  std::unique_ptr<Message> named =
      serializer->deserialize("test/Note", publisherOf(out.str())).get();
  EXPECT_EQ(dynamic_cast<const Note&>(*named).count, 3);
}

TEST(PublisherOf, RoundTripsThroughHandWrittenConverters) {
  // A serializer of a derived class keeps to the converters (no direct codec).
  struct Converting : JsonSerializerImpl {};
  std::shared_ptr<JsonSerializer> serializer = std::make_shared<Converting>();
  MessageType<Note> note("test/Note");
  note.field("text", &Note::text).field("count", &Note::count);
  note.registerWith(*serializer);
  auto text = R"({"text":"hi","count":3,"type":"test/Note"})";
  std::unique_ptr<Message> back = serializer->deserialize(publisherOf(text)).get();
  EXPECT_EQ(dynamic_cast<const Note&>(*back).text, "hi");
}

TEST(PublisherOf, ADataBufferRoundTrips) {
  auto serializer = withNote();
  DataBuffer bytes(std::string_view(R"({"type":"test/Note","text":"b","count":-1})"));
  std::unique_ptr<Message> back = serializer->deserialize(publisherOf(std::move(bytes))).get();
  EXPECT_EQ(dynamic_cast<const Note&>(*back).text, "b");
  EXPECT_EQ(dynamic_cast<const Note&>(*back).count, -1);
}

TEST(PublisherOf, ASecondSubscriptionReadsTheSameMessage) {
  auto serializer = withNote();
  auto bytes = publisherOf(std::string(R"({"type":"test/Note","text":"twice","count":2})"));
  std::unique_ptr<Message> first = serializer->deserialize(bytes).get();
  std::unique_ptr<Message> second = serializer->deserialize(bytes).get();
  EXPECT_EQ(dynamic_cast<const Note&>(*first).text, "twice");
  EXPECT_EQ(dynamic_cast<const Note&>(*second).text, "twice");
  EXPECT_NE(first.get(), second.get());
}

TEST(PublisherOf, EmptyTextFailsAsTheSerializerReportsIt) {
  auto serializer = withNote();
  EXPECT_THROW_TEXT(serializer->deserialize(publisherOf(std::string())).get(),
                    std::invalid_argument, "Parsing error: unexpected end of text");
  EXPECT_THROW_TEXT(serializer->deserialize("test/Note", publisherOf(std::string())).get(),
                    std::invalid_argument,
                    "Parsing error for type 'test/Note': unexpected end of text");
}

}  // namespace
}  // namespace connector::json

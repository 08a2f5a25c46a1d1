// serialize and serializeValue with a named std::unique_ptr of a derived message class:
// the message stays with its owner, and temporaries keep going the old way.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

#include <connector/json.hpp>

#include "serializer/SerializerTestTypes.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::json {
namespace {

using MessagePtr = std::unique_ptr<Message>;

// The virtual signatures are unchanged.
static_assert(
    std::is_same_v<decltype(static_cast<void (JsonSerializer::*)(const MessagePtr&, std::ostream&)>(
                       &JsonSerializer::serialize)),
                   void (JsonSerializer::*)(const MessagePtr&, std::ostream&)>);
static_assert(
    std::is_same_v<decltype(static_cast<BytePublisher (JsonSerializerImpl::*)(const MessagePtr&)>(
                       &JsonSerializerImpl::serialize)),
                   BytePublisher (JsonSerializerImpl::*)(const MessagePtr&)>);

std::shared_ptr<JsonSerializerImpl> withReserve() {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("shop/Reserve", typeid(shop::Reserve), shop::reserveToJson,
                           shop::reserveFromJson);
  return serializer;
}

const char* const kReserveText = R"({"quantity":2,"sku":"A-1","type":"shop/Reserve"})";

// A serializer written by a user: overrides the text operations and counts the calls
// that reach them.
struct CountingSerializer : JsonSerializerImpl {
  using JsonSerializerImpl::serialize;
  using JsonSerializerImpl::serializeValue;
  void serialize(const MessagePtr& message, std::ostream& out) override {
    ++calls;
    JsonSerializerImpl::serialize(message, out);
  }
  void serializeValue(const MessagePtr& message, std::ostream& out) override {
    ++calls;
    JsonSerializerImpl::serializeValue(message, out);
  }
  int calls = 0;
};

// Declares serialize without the using-declaration: it still compiles, and its own
// overload takes the calls made through it.
struct HidingSerializer : JsonSerializerImpl {
  void serialize(const MessagePtr& message, std::ostream& out) override {
    JsonSerializerImpl::serialize(message, out);
  }
};

TEST(JsonSerializerNamedMessage, ANamedDerivedPointerIsWrittenAndKeepsItsMessage) {
  auto serializer = withReserve();
  auto reserve = std::make_unique<shop::Reserve>("A-1", 2);
  const shop::Reserve* const before = reserve.get();
  std::ostringstream out;
  serializer->serialize(reserve, out);
  EXPECT_EQ(out.str(), kReserveText);
  EXPECT_EQ(reserve.get(), before);
  EXPECT_EQ(reserve->sku, "A-1");

  std::ostringstream value;
  serializer->serializeValue(reserve, value);
  EXPECT_EQ(value.str(), R"({"quantity":2,"sku":"A-1"})");
  EXPECT_EQ(reserve.get(), before);
}

TEST(JsonSerializerNamedMessage, AConstPointerAndTheInterfaceTakeItToo) {
  const std::shared_ptr<JsonSerializer> serializer = withReserve();
  const auto reserve = std::make_unique<shop::Reserve>("A-1", 2);
  std::ostringstream out;
  serializer->serialize(reserve, out);
  EXPECT_EQ(out.str(), kReserveText);
  std::ostringstream value;
  serializer->serializeValue(reserve, value);
  EXPECT_EQ(value.str(), R"({"quantity":2,"sku":"A-1"})");
  EXPECT_EQ(reserve->quantity, 2);
}

TEST(JsonSerializerNamedMessage, ADeclaredTypeGoesThroughItsCodec) {
  struct Note : Message {
    std::string text;
  };
  auto serializer = std::make_shared<JsonSerializerImpl>();
  MessageType<Note> note("test/Note");
  note.field("text", &Note::text);
  note.registerWith(*serializer);
  auto message = std::make_unique<Note>();
  message->text = "a";
  std::ostringstream out;
  serializer->serialize(message, out);
  EXPECT_EQ(out.str(), R"({"text":"a","type":"test/Note"})");
  EXPECT_EQ(message->text, "a");
}

TEST(JsonSerializerNamedMessage, FailuresAreTheSameAndTheOwnerKeepsTheMessage) {
  auto serializer = withReserve();
  auto unknown = std::make_unique<shop::Unregistered>();
  std::ostringstream out;
  EXPECT_THROW(serializer->serialize(unknown, out), std::invalid_argument);
  EXPECT_NE(unknown, nullptr);

  serializer->registerType(
      "shop/Cancel", typeid(shop::Cancel),
      [](const MessagePtr&) -> Poco::SharedPtr<Poco::JSON::Object> {
        throw std::runtime_error("no");
      },
      shop::cancelFromJson);
  auto cancel = std::make_unique<shop::Cancel>();
  const shop::Cancel* const before = cancel.get();
  EXPECT_THROW(serializer->serialize(cancel, out), std::runtime_error);
  EXPECT_EQ(cancel.get(), before);

  std::unique_ptr<shop::Reserve> none;
  EXPECT_THROW(serializer->serialize(none, out), std::bad_typeid);
}

TEST(JsonSerializerNamedMessage, TemporariesStillConvertToTheVirtualOverload) {
  auto serializer = withReserve();
  std::ostringstream out;
  serializer->serialize(std::make_unique<shop::Reserve>("A-1", 2), out);
  EXPECT_EQ(out.str(), kReserveText);

  // Only the conversion to std::unique_ptr<Message> moves from the argument: an empty
  // pointer afterwards shows that the virtual overload took it, as it always did.
  auto moved = std::make_unique<shop::Reserve>("A-1", 2);
  std::ostringstream again;
  serializer->serialize(std::move(moved), again);
  EXPECT_EQ(moved, nullptr);  // NOLINT(bugprone-use-after-move,hicpp-invalid-access-moved)
  EXPECT_EQ(again.str(), kReserveText);

  // A named std::unique_ptr<Message> takes the virtual overload directly.
  MessagePtr plain = std::make_unique<shop::Reserve>("A-1", 2);
  std::ostringstream direct;
  serializer->serialize(plain, direct);
  EXPECT_EQ(direct.str(), kReserveText);
}

TEST(JsonSerializerNamedMessage, EveryCallReachesAUsersOverride) {
  auto serializer = std::make_shared<CountingSerializer>();
  serializer->registerType("shop/Reserve", typeid(shop::Reserve), shop::reserveToJson,
                           shop::reserveFromJson);
  auto reserve = std::make_unique<shop::Reserve>("A-1", 2);
  std::ostringstream out;
  serializer->serialize(reserve, out);
  serializer->serialize(std::make_unique<shop::Reserve>("A-1", 2), out);
  std::ostringstream value;
  serializer->serializeValue(reserve, value);
  JsonSerializer& base = *serializer;
  base.serialize(reserve, out);
  EXPECT_EQ(serializer->calls, 4);
  EXPECT_EQ(value.str(), R"({"quantity":2,"sku":"A-1"})");

  auto hiding = std::make_shared<HidingSerializer>();
  hiding->registerType("shop/Reserve", typeid(shop::Reserve), shop::reserveToJson,
                       shop::reserveFromJson);
  std::ostringstream hidden;
  hiding->serialize(std::make_unique<shop::Reserve>("A-1", 2), hidden);
  static_cast<JsonSerializer&>(*hiding).serialize(reserve, hidden);
  EXPECT_EQ(hidden.str(), std::string(kReserveText) + kReserveText);
}

}  // namespace
}  // namespace connector::json

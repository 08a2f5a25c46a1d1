// Message to JSON: serializeToJsonObject, serialize and serializeValue, their texts
// and their failures.
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

#include <Poco/Exception.h>

#include <connector/json.hpp>

#include "serializer/SerializerTestTypes.hpp"
#include "support/ExpectThrow.hpp"
#include "support/LogCapture.hpp"

namespace connector::json {
namespace {

using connector::testing::CapturedRecord;
using connector::testing::kModuleErrorBit;
using connector::testing::LogCapture;
using connector::testing::ModuleLogSwitch;
using ObjectPtr = Poco::SharedPtr<Poco::JSON::Object>;

std::unique_ptr<Message> plainMessage() { return std::make_unique<Message>(); }

std::unique_ptr<Message> reserve() { return std::make_unique<shop::Reserve>("A-7", 3); }

// Collects what a byte publisher publishes, read through the host's stream reader.
std::string drain(const BytePublisher& publisher) {
  auto reader = std::make_shared<reactive_streams::IStreamSubscriber>();
  publisher->subscribe(reader);
  std::ostringstream text;
  text << reader->stream().rdbuf();
  return text.str();
}

std::shared_ptr<JsonSerializerImpl> withReserve() {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("shop/Reserve", typeid(shop::Reserve), shop::reserveToJson,
                           shop::reserveFromJson);
  return serializer;
}

std::shared_ptr<JsonSerializerImpl> withFailingConverter(SerializerFn converter) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("shop/Cancel", typeid(shop::Cancel), std::move(converter),
                           shop::cancelFromJson);
  return serializer;
}

TEST(JsonSerializerToJson, PlainMessageSerializesToItsTypeOnly) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  std::ostringstream out;
  serializer->serialize(plainMessage(), out);
  EXPECT_EQ(out.str(), R"({"type":"connector/Message"})");
}

TEST(JsonSerializerToJson, PlainMessageValueIsAnEmptyObject) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  std::ostringstream out;
  serializer->serializeValue(plainMessage(), out);
  EXPECT_EQ(out.str(), "{}");
}

TEST(JsonSerializerToJson, RegisteredMessageSerializesCompactlyWithItsName) {
  auto serializer = withReserve();
  std::ostringstream out;
  serializer->serialize(reserve(), out);
  EXPECT_EQ(out.str(), R"({"quantity":3,"sku":"A-7","type":"shop/Reserve"})");
}

TEST(JsonSerializerToJson, PublisherCarriesTheSameTextAsTheStream) {
  auto serializer = withReserve();
  EXPECT_EQ(drain(serializer->serialize(reserve())),
            R"({"quantity":3,"sku":"A-7","type":"shop/Reserve"})");
  EXPECT_EQ(drain(serializer->serializeValue(reserve())), R"({"quantity":3,"sku":"A-7"})");
}

TEST(JsonSerializerToJson, ValueFormLeavesOutTheType) {
  auto serializer = withReserve();
  std::ostringstream out;
  serializer->serializeValue(reserve(), out);
  EXPECT_EQ(out.str(), R"({"quantity":3,"sku":"A-7"})");
}

TEST(JsonSerializerToJson, JsonObjectIsTheConvertersObjectWithoutType) {
  auto serializer = withReserve();
  ObjectPtr object = serializer->serializeToJsonObject(reserve());
  ASSERT_FALSE(object.isNull());
  EXPECT_FALSE(object->has("type"));
  EXPECT_EQ(object->getValue<std::string>("sku"), "A-7");
  ObjectPtr named = serializer->serializeToJsonObject("shop/Reserve", reserve());
  EXPECT_EQ(named->getValue<int>("quantity"), 3);
}

TEST(JsonSerializerToJson, ConvertersTypeMemberIsReplacedByTheRegisteredName) {
  auto serializer = withFailingConverter([](const std::unique_ptr<Message>&) {
    ObjectPtr object(new Poco::JSON::Object);
    object->set("type", "forged");
    object->set("n", 1);
    return object;
  });
  std::ostringstream out;
  serializer->serialize(std::make_unique<shop::Cancel>(), out);
  EXPECT_EQ(out.str(), R"({"n":1,"type":"shop/Cancel"})");
  EXPECT_EQ(drain(serializer->serialize(std::make_unique<shop::Cancel>())),
            R"({"n":1,"type":"shop/Cancel"})");
}

TEST(JsonSerializerToJson, TheFirstRegisteredNameIsWritten) {
  auto serializer = withReserve();
  serializer->registerType("shop/Reserve/v2", typeid(shop::Reserve), shop::reserveToJson,
                           shop::reserveFromJson);
  std::ostringstream out;
  serializer->serialize(reserve(), out);
  EXPECT_EQ(out.str(), R"({"quantity":3,"sku":"A-7","type":"shop/Reserve"})");
}

TEST(JsonSerializerToJson, ConverterStandardExceptionBecomesRuntimeErrorAndIsLogged) {
  auto serializer = withFailingConverter(
      [](const std::unique_ptr<Message>&) -> ObjectPtr { throw std::runtime_error("disk full"); });
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  EXPECT_THROW_TEXT(serializer->serializeToJsonObject("shop/Cancel", nullptr), std::runtime_error,
                    "Error while serializing: shop/Cancel, disk full");
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].message, "Exception serializing shop/Cancel, disk full");
  EXPECT_EQ(records[0].severity, 512);
  EXPECT_EQ(records[0].channel, "connector::json");
}

TEST(JsonSerializerToJson, ConverterFailureIsNotLoggedWhenTheSeverityIsOffButThrowsTheSame) {
  auto serializer = withFailingConverter(
      [](const std::unique_ptr<Message>&) -> ObjectPtr { throw std::runtime_error("disk full"); });
  ModuleLogSwitch disabled(~kModuleErrorBit);
  LogCapture capture;
  EXPECT_THROW_TEXT(serializer->serializeToJsonObject("shop/Cancel", nullptr), std::runtime_error,
                    "Error while serializing: shop/Cancel, disk full");
  EXPECT_TRUE(capture.records().empty());
}

TEST(JsonSerializerToJson, EveryPathReportsConverterFailureTheSameWay) {
  auto serializer = withFailingConverter(
      [](const std::unique_ptr<Message>&) -> ObjectPtr { throw std::logic_error("bad"); });
  const char* text = "Error while serializing: shop/Cancel, bad";
  std::ostringstream out;
  EXPECT_THROW_TEXT(serializer->serialize(std::make_unique<shop::Cancel>(), out),
                    std::runtime_error, text);
  EXPECT_THROW_TEXT(serializer->serialize(std::make_unique<shop::Cancel>()), std::runtime_error,
                    text);
  EXPECT_THROW_TEXT(serializer->serializeValue(std::make_unique<shop::Cancel>(), out),
                    std::runtime_error, text);
  EXPECT_THROW_TEXT(serializer->serializeValue(std::make_unique<shop::Cancel>()),
                    std::runtime_error, text);
  EXPECT_THROW_TEXT(serializer->serializeToJsonObject(std::make_unique<shop::Cancel>()),
                    std::runtime_error, text);
  EXPECT_EQ(out.str(), "");
}

TEST(JsonSerializerToJson, ConverterPocoExceptionIsReportedWithWhatNotWithItsMessage) {
  auto serializer = withFailingConverter([](const std::unique_ptr<Message>&) -> ObjectPtr {
    throw Poco::NotFoundException("sku missing");
  });
  // A Poco exception's what() is its class's name; the message stays out of the text.
  ASSERT_EQ(std::string(Poco::NotFoundException("sku missing").what()), "Not found");
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  EXPECT_THROW_TEXT(serializer->serializeToJsonObject(std::make_unique<shop::Cancel>()),
                    std::runtime_error, "Error while serializing: shop/Cancel, Not found");
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].message, "Exception serializing shop/Cancel, Not found");
}

TEST(JsonSerializerToJson, ConverterThrowingAnIntGivesTheNameAlone) {
  auto serializer =
      withFailingConverter([](const std::unique_ptr<Message>&) -> ObjectPtr { throw 42; });
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  EXPECT_THROW_TEXT(serializer->serializeToJsonObject(std::make_unique<shop::Cancel>()),
                    std::runtime_error, "Error while serializing: shop/Cancel");
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].message, "Unknown exception serializing shop/Cancel");
  EXPECT_EQ(records[0].severity, 512);
}

TEST(JsonSerializerToJson, EmptyConverterReportsBadFunctionCall) {
  auto serializer = withFailingConverter(nullptr);
  EXPECT_THROW_TEXT(
      serializer->serializeToJsonObject(std::make_unique<shop::Cancel>()), std::runtime_error,
      std::string("Error while serializing: shop/Cancel, ") + std::bad_function_call().what());
}

TEST(JsonSerializerToJson, UnknownNameThrowsOutOfRangeAndLogsNothing) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  EXPECT_THROW_TEXT(serializer->serializeToJsonObject("unknown", plainMessage()), std::out_of_range,
                    "_Map_base::at");
  EXPECT_TRUE(capture.records().empty());
}

TEST(JsonSerializerToJson, UnknownNameLeavesTheRegistryUnlocked) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_THROW(serializer->serializeToJsonObject("unknown", plainMessage()), std::out_of_range);
  // Registration takes the same lock: it would never return had the failure kept it.
  serializer->registerType("unknown", typeid(shop::Cancel), shop::emptyToJson,
                           shop::cancelFromJson);
  EXPECT_EQ(serializer->serializeToJsonObject("unknown", plainMessage())->size(), 0u);
}

TEST(JsonSerializerToJson, UnregisteredMessageFailsBeforeAnyConverterRuns) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  std::ostringstream out;
  EXPECT_THROW_TEXT(serializer->serialize(std::make_unique<shop::Unregistered>(), out),
                    std::invalid_argument, "No serializer for type: shop::Unregistered");
  EXPECT_THROW_TEXT(serializer->serializeValue(std::make_unique<shop::Unregistered>()),
                    std::invalid_argument, "No serializer for type: shop::Unregistered");
  EXPECT_THROW(serializer->serialize(nullptr, out), std::bad_typeid);
}

// "shared" stays listed under shop::Reserve after its converters went with shop::Cancel.
std::shared_ptr<JsonSerializerImpl> withNameListedButWithoutConverter() {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("shared", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  serializer->registerType("shared", typeid(shop::Reserve), shop::reserveToJson,
                           shop::reserveFromJson);
  serializer->deregisterType(typeid(shop::Cancel));
  return serializer;
}

TEST(JsonSerializerToJson, EverySerializingPathReportsAListedNameWithoutConverter) {
  auto serializer = withNameListedButWithoutConverter();
  const char* text = "Serializer not found: shared";
  std::ostringstream out;
  EXPECT_THROW_TEXT(serializer->serialize(reserve()), std::runtime_error, text);
  EXPECT_THROW_TEXT(serializer->serialize(reserve(), out), std::runtime_error, text);
  EXPECT_THROW_TEXT(serializer->serializeValue(reserve()), std::runtime_error, text);
  EXPECT_THROW_TEXT(serializer->serializeValue(reserve(), out), std::runtime_error, text);
  EXPECT_THROW_TEXT(serializer->serializeToJsonObject(reserve()), std::runtime_error, text);
  EXPECT_EQ(out.str(), "");
}

TEST(JsonSerializerToJson, NullConverterResultFailsAtOnceExceptForTheValuePublisher) {
  auto serializer =
      withFailingConverter([](const std::unique_ptr<Message>&) { return ObjectPtr(); });
  std::ostringstream out;
  EXPECT_THROW(serializer->serialize(std::make_unique<shop::Cancel>(), out),
               Poco::NullPointerException);
  EXPECT_THROW(serializer->serialize(std::make_unique<shop::Cancel>()), Poco::NullPointerException);
  EXPECT_THROW(serializer->serializeValue(std::make_unique<shop::Cancel>(), out),
               Poco::NullPointerException);
  EXPECT_TRUE(serializer->serializeToJsonObject(std::make_unique<shop::Cancel>()).isNull());

  // The value publisher is made; its writer fails when it runs.
  BytePublisher publisher;
  ASSERT_NO_THROW(publisher = serializer->serializeValue(std::make_unique<shop::Cancel>()));
  auto reader = std::make_shared<reactive_streams::IStreamSubscriber>();
  publisher->subscribe(reader);
  EXPECT_THROW(reader->completion().get(), Poco::NullPointerException);
  EXPECT_THROW(publisher->completion().get(), Poco::NullPointerException);
}

// Counts the calls that go through the overridable slots.
class CountingSerializer : public JsonSerializerImpl {
 public:
  Poco::SharedPtr<Poco::JSON::Object> serializeToJsonObject(
      const std::unique_ptr<Message>& message) override {
    ++byMessage;
    return JsonSerializerImpl::serializeToJsonObject(message);
  }
  Poco::SharedPtr<Poco::JSON::Object> serializeToJsonObject(
      const std::string& name, const std::unique_ptr<Message>& message) override {
    ++byName;
    return JsonSerializerImpl::serializeToJsonObject(name, message);
  }
  std::vector<std::string> getNamesOfType(const std::type_info& type) override {
    ++lookups;
    return JsonSerializerImpl::getNamesOfType(type);
  }
  int byMessage = 0;
  int byName = 0;
  int lookups = 0;
};

TEST(JsonSerializerToJson, StreamSerializeLooksTheNameUpTwiceThroughTheSlots) {
  auto serializer = std::make_shared<CountingSerializer>();
  std::ostringstream out;
  serializer->serialize(plainMessage(), out);
  EXPECT_EQ(serializer->lookups, 2);
  EXPECT_EQ(serializer->byMessage, 1);
  EXPECT_EQ(serializer->byName, 1);
}

TEST(JsonSerializerToJson, PublisherSerializeLooksTheNameUpOnce) {
  auto serializer = std::make_shared<CountingSerializer>();
  serializer->serialize(plainMessage());
  EXPECT_EQ(serializer->lookups, 1);
  EXPECT_EQ(serializer->byMessage, 0);
  EXPECT_EQ(serializer->byName, 1);
}

TEST(JsonSerializerToJson, ValueSerializeGoesThroughTheMessageSlot) {
  auto serializer = std::make_shared<CountingSerializer>();
  std::ostringstream out;
  serializer->serializeValue(plainMessage(), out);
  serializer->serializeValue(plainMessage());
  EXPECT_EQ(serializer->byMessage, 2);
  EXPECT_EQ(serializer->byName, 2);
}

TEST(JsonSerializerToJson, ConverterMayRegisterAnotherTypeWithoutDeadlock) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  std::weak_ptr<JsonSerializerImpl> weak = serializer;
  serializer->registerType(
      "shop/Cancel", typeid(shop::Cancel),
      [weak](const std::unique_ptr<Message>& message) {
        auto self = weak.lock();
        self->registerType("shop/Reserve", typeid(shop::Reserve), shop::reserveToJson,
                           shop::reserveFromJson);
        EXPECT_EQ(self->getNameForMessage(message), "shop/Cancel");
        return ObjectPtr(new Poco::JSON::Object);
      },
      shop::cancelFromJson);
  std::ostringstream out;
  serializer->serialize(std::make_unique<shop::Cancel>(), out);
  EXPECT_EQ(out.str(), R"({"type":"shop/Cancel"})");
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Reserve)),
            std::vector<std::string>{"shop/Reserve"});
}

}  // namespace
}  // namespace connector::json

// JSON object to message: deserialize by the "type" member and by a given name.
#include <gtest/gtest.h>

#include <stdexcept>

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "serializer/SerializerTestTypes.hpp"
#include "support/ExpectThrow.hpp"
#include "support/LogCapture.hpp"

namespace connector::json {
namespace {

using connector::testing::kModuleErrorBit;
using connector::testing::LogCapture;
using connector::testing::ModuleLogSwitch;
using ObjectPtr = Poco::SharedPtr<Poco::JSON::Object>;

ObjectPtr typed(const Poco::Dynamic::Var& type) {
  ObjectPtr object(new Poco::JSON::Object);
  object->set("type", type);
  return object;
}

std::shared_ptr<JsonSerializerImpl> withConverter(const std::string& name,
                                                  DeserializerFn converter) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType(name, typeid(shop::Cancel), shop::emptyToJson, std::move(converter));
  return serializer;
}

// Asserts that a Poco exception of exactly this type with this message comes out.
template <typename PocoError, typename Call>
void expectPocoError(Call&& call, const std::string& message) {
  try {
    call();
    ADD_FAILURE() << "did not throw";
  } catch (const PocoError& e) {
    EXPECT_EQ(typeid(e), typeid(PocoError));
    EXPECT_EQ(e.message(), message);
  } catch (...) {
    ADD_FAILURE() << "threw something else";
  }
}

TEST(JsonSerializerFromJson, TypedObjectBecomesAPlainMessage) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  auto message = serializer->deserialize(typed("connector/Message"));
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(typeid(*message), typeid(Message));
}

TEST(JsonSerializerFromJson, NamedDeserializeAcceptsAnyObjectEvenEmpty) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  auto message = serializer->deserialize("connector/Message", ObjectPtr(new Poco::JSON::Object));
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(typeid(*message), typeid(Message));
  auto again = serializer->deserialize("connector/Message", typed("something/Else"));
  EXPECT_EQ(typeid(*again), typeid(Message));
}

TEST(JsonSerializerFromJson, RegisteredConverterRebuildsTheMessage) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("shop/Reserve", typeid(shop::Reserve), shop::reserveToJson,
                           shop::reserveFromJson);
  ObjectPtr object = typed("shop/Reserve");
  object->set("sku", "B-2");
  object->set("quantity", 9);
  auto message = serializer->deserialize(std::move(object));
  auto* reserve = dynamic_cast<shop::Reserve*>(message.get());
  ASSERT_NE(reserve, nullptr);
  EXPECT_EQ(reserve->sku, "B-2");
  EXPECT_EQ(reserve->quantity, 9);
}

TEST(JsonSerializerFromJson, CallersPointerIsNotReset) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  ObjectPtr object = typed("connector/Message");
  serializer->deserialize(std::move(object));
  EXPECT_FALSE(object.isNull());
  serializer->deserialize("connector/Message", std::move(object));
  EXPECT_FALSE(object.isNull());
}

TEST(JsonSerializerFromJson, ConverterResultIsReturnedEvenWhenNull) {
  auto serializer = withConverter("nothing", [](ObjectPtr) { return std::unique_ptr<Message>(); });
  EXPECT_EQ(serializer->deserialize(typed("nothing")), nullptr);
  EXPECT_EQ(serializer->deserialize("nothing", ObjectPtr(new Poco::JSON::Object)), nullptr);
}

TEST(JsonSerializerFromJson, ObjectWithoutTypeCannotBeConverted) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  expectPocoError<Poco::InvalidAccessException>(
      [&] { serializer->deserialize(ObjectPtr(new Poco::JSON::Object)); },
      "Can not convert empty value.");
}

TEST(JsonSerializerFromJson, NullTypeCannotBeConverted) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  expectPocoError<Poco::InvalidAccessException>(
      [&] { serializer->deserialize(typed(Poco::Dynamic::Var())); },
      "Can not convert empty value.");
}

TEST(JsonSerializerFromJson, NullObjectThrowsNullPointer) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_THROW(serializer->deserialize(ObjectPtr()), Poco::NullPointerException);
}

TEST(JsonSerializerFromJson, NumericTypeIsLookedUpByItsDecimalText) {
  auto serializer = withConverter("5", shop::cancelFromJson);
  auto message = serializer->deserialize(typed(5));
  EXPECT_EQ(typeid(*message), typeid(shop::Cancel));
  EXPECT_THROW_TEXT(serializer->deserialize(typed(6)), std::invalid_argument,
                    "No deserializer for type: 6");
}

ObjectPtr parsed(const std::string& text) {
  Poco::JSON::Parser parser;
  return parser.parse(text).extract<ObjectPtr>();
}

// A "type" that is not a string is turned into text by Poco's own conversion, and that
// text is the name looked up.
TEST(JsonSerializerFromJson, NonStringTypeIsLookedUpByPocosTextOfIt) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  EXPECT_THROW_TEXT(serializer->deserialize(parsed(R"({"type":true})")), std::invalid_argument,
                    "No deserializer for type: true");
  // Poco writes a nested object or array indented, with a step of two.
  EXPECT_THROW_TEXT(serializer->deserialize(parsed(R"({"type":{"b":[1],"a":"x"}})")),
                    std::invalid_argument,
                    "No deserializer for type: {\n  \"a\": \"x\",\n  \"b\": [\n    1\n  ]\n}");
  EXPECT_THROW_TEXT(serializer->deserialize(parsed(R"({"type":[1,"x",null]})")),
                    std::invalid_argument,
                    "No deserializer for type: [\n  1,\n  \"x\",\n  null\n]");
  EXPECT_TRUE(capture.records().empty());
}

TEST(JsonSerializerFromJson, BooleanTypeFindsAConverterRegisteredUnderItsText) {
  auto serializer = withConverter("true", shop::cancelFromJson);
  auto message = serializer->deserialize(parsed(R"({"type":true})"));
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(typeid(*message), typeid(shop::Cancel));
}

TEST(JsonSerializerFromJson, UnknownNameIsRejectedByBothOverloadsWithoutLogging) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  EXPECT_THROW_TEXT(serializer->deserialize(typed("no/such")), std::invalid_argument,
                    "No deserializer for type: no/such");
  EXPECT_THROW_TEXT(serializer->deserialize("no/such", ObjectPtr(new Poco::JSON::Object)),
                    std::invalid_argument, "No deserializer for type: no/such");
  EXPECT_TRUE(capture.records().empty());
}

TEST(JsonSerializerFromJson, PocoFailureByTypeBecomesAParsingErrorAndIsLogged) {
  auto serializer = withConverter("shop/Cancel", [](ObjectPtr) -> std::unique_ptr<Message> {
    throw Poco::NotFoundException("sku missing");
  });
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  EXPECT_THROW_TEXT(serializer->deserialize(typed("shop/Cancel")), std::invalid_argument,
                    "Parsing error for type 'shop/Cancel': sku missing");
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].message, "Exception deserializing shop/Cancel, sku missing");
  EXPECT_EQ(records[0].severity, 512);
  EXPECT_EQ(records[0].channel, "connector::json");
}

TEST(JsonSerializerFromJson, PocoFailureByNameIsRethrownAsItselfAndLoggedWithWhat) {
  auto serializer = withConverter("shop/Cancel", [](ObjectPtr) -> std::unique_ptr<Message> {
    throw Poco::NotFoundException("sku missing");
  });
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  expectPocoError<Poco::NotFoundException>(
      [&] { serializer->deserialize("shop/Cancel", ObjectPtr(new Poco::JSON::Object)); },
      "sku missing");
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].message, std::string("Exception deserializing shop/Cancel, ") +
                                    Poco::NotFoundException("sku missing").what());
}

TEST(JsonSerializerFromJson, StandardFailureIsRethrownUnchangedByBothOverloads) {
  auto serializer = withConverter("shop/Cancel", [](ObjectPtr) -> std::unique_ptr<Message> {
    throw std::out_of_range("quantity");
  });
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  EXPECT_THROW_TEXT(serializer->deserialize(typed("shop/Cancel")), std::out_of_range, "quantity");
  EXPECT_THROW_TEXT(serializer->deserialize("shop/Cancel", ObjectPtr(new Poco::JSON::Object)),
                    std::out_of_range, "quantity");
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].message, "Exception deserializing shop/Cancel, quantity");
  EXPECT_EQ(records[1].message, "Exception deserializing shop/Cancel, quantity");
}

TEST(JsonSerializerFromJson, OtherFailureIsRethrownUnchangedAndLoggedAsUnknown) {
  auto serializer =
      withConverter("shop/Cancel", [](ObjectPtr) -> std::unique_ptr<Message> { throw 7; });
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  EXPECT_THROW(serializer->deserialize(typed("shop/Cancel")), int);
  EXPECT_THROW(serializer->deserialize("shop/Cancel", ObjectPtr(new Poco::JSON::Object)), int);
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].message, "Unknown exception deserializing shop/Cancel");
  EXPECT_EQ(records[1].message, "Unknown exception deserializing shop/Cancel");
}

TEST(JsonSerializerFromJson, FailuresThrowTheSameWithLoggingOff) {
  auto serializer = withConverter("shop/Cancel", [](ObjectPtr) -> std::unique_ptr<Message> {
    throw Poco::NotFoundException("sku missing");
  });
  ModuleLogSwitch disabled(0);
  LogCapture capture;
  EXPECT_THROW_TEXT(serializer->deserialize(typed("shop/Cancel")), std::invalid_argument,
                    "Parsing error for type 'shop/Cancel': sku missing");
  expectPocoError<Poco::NotFoundException>(
      [&] { serializer->deserialize("shop/Cancel", ObjectPtr(new Poco::JSON::Object)); },
      "sku missing");
  EXPECT_TRUE(capture.records().empty());
}

TEST(JsonSerializerFromJson, EmptyConverterFailsWithBadFunctionCall) {
  auto serializer = withConverter("shop/Cancel", nullptr);
  EXPECT_THROW(serializer->deserialize(typed("shop/Cancel")), std::bad_function_call);
  EXPECT_THROW(serializer->deserialize("shop/Cancel", ObjectPtr(new Poco::JSON::Object)),
               std::bad_function_call);
}

TEST(JsonSerializerFromJson, ConverterMayRegisterAnotherTypeWithoutDeadlock) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  std::weak_ptr<JsonSerializerImpl> weak = serializer;
  serializer->registerType("shop/Cancel", typeid(shop::Cancel), shop::emptyToJson,
                           [weak](ObjectPtr) {
                             weak.lock()->registerType("shop/Reserve", typeid(shop::Reserve),
                                                       shop::reserveToJson, shop::reserveFromJson);
                             return std::make_unique<shop::Cancel>();
                           });
  auto message = serializer->deserialize(typed("shop/Cancel"));
  EXPECT_EQ(typeid(*message), typeid(shop::Cancel));
  message = serializer->deserialize("shop/Cancel", ObjectPtr(new Poco::JSON::Object));
  EXPECT_EQ(typeid(*message), typeid(shop::Cancel));
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Reserve)),
            std::vector<std::string>{"shop/Reserve"});
}

}  // namespace
}  // namespace connector::json

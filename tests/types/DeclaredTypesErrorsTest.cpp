// Every reading error of a declared type, with its exact text and path: through the
// object-level deserialize (std::invalid_argument "Parsing error for type '...': ..."),
// the named one (the Poco::DataFormatException itself) and both streamed ones; and the
// writing errors (values JSON cannot hold).
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <string>

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"
#include "types/DeclaredOrder.hpp"

namespace connector::typestest {
namespace {

using MessagePtr = std::unique_ptr<connector::Message>;

Poco::JSON::Object::Ptr parsed(const std::string& text) {
  Poco::JSON::Parser parser;
  return parser.parse(text).extract<Poco::JSON::Object::Ptr>();
}

class DeclaredTypesErrors : public ::testing::Test {
 protected:
  DeclaredTypesErrors() {
    types.order.registerWith(*serializer);
    types.allKinds.registerWith(*serializer);
  }

  // The text deserialize(object) throws as std::invalid_argument for this document.
  std::string errorOf(const std::string& text) {
    try {
      serializer->deserialize(parsed(text));
    } catch (const std::invalid_argument& e) {
      return e.what();
    }
    return "(accepted)";
  }

  // An order document with the given member values.
  static std::string order(const std::string& id, const std::string& items,
                           const std::string& priority = R"("low")",
                           const std::string& weights = "{}") {
    return R"({"type":"shop/Order","id":)" + id + R"(,"items":)" + items + R"(,"priority":)" +
           priority + R"(,"weights":)" + weights + "}";
  }

  OrderTypes types;
  std::shared_ptr<json::JsonSerializerImpl> serializer =
      std::make_shared<json::JsonSerializerImpl>();
};

constexpr const char* kPrefix = "Parsing error for type 'shop/Order': ";

TEST_F(DeclaredTypesErrors, AMissingMemberIsNamed) {
  EXPECT_EQ(errorOf(R"({"type":"shop/Order","items":[],"priority":"low","weights":{}})"),
            std::string(kPrefix) + R"(member "/id" is missing)");
}

TEST_F(DeclaredTypesErrors, AMissingMemberInsideAnArrayElementIsNamedWithItsIndex) {
  EXPECT_EQ(errorOf(order(R"("x")", R"([{"sku":"a","quantity":1},{"sku":"b"}])")),
            std::string(kPrefix) + R"(member "/items/1/quantity" is missing)");
}

TEST_F(DeclaredTypesErrors, AWrongKindNamesTheExpectedAndTheGivenKind) {
  EXPECT_EQ(
      errorOf(order(R"("x")", R"([{"sku":"a","quantity":1},{"sku":"b","quantity":"2"}])")),
      std::string(kPrefix) + R"(member "/items/1/quantity": expected an integer, got a string)");
}

TEST_F(DeclaredTypesErrors, EveryKindIsNamedAsGiven) {
  const std::string expected = std::string(kPrefix) + R"(member "/id": expected a string, got )";
  EXPECT_EQ(errorOf(order("true", "[]")), expected + "a boolean");
  EXPECT_EQ(errorOf(order("12", "[]")), expected + "an integer");
  EXPECT_EQ(errorOf(order("1.5", "[]")), expected + "a number");
  EXPECT_EQ(errorOf(order("[]", "[]")), expected + "an array");
  EXPECT_EQ(errorOf(order("{}", "[]")), expected + "an object");
  EXPECT_EQ(errorOf(order("null", "[]")), expected + "null");
}

TEST_F(DeclaredTypesErrors, EveryExpectedKindIsNamed) {
  EXPECT_EQ(errorOf(order(R"("x")", R"({})")),
            std::string(kPrefix) + R"(member "/items": expected an array, got an object)");
  EXPECT_EQ(errorOf(order(R"("x")", R"([5])")),
            std::string(kPrefix) + R"(member "/items/0": expected an object, got an integer)");
  EXPECT_EQ(errorOf(order(R"("x")", "[]", R"("low")", "[]")),
            std::string(kPrefix) + R"(member "/weights": expected an object, got an array)");
  EXPECT_EQ(errorOf(order(R"("x")", "[]", R"("low")", R"({"w":"heavy"})")),
            std::string(kPrefix) + R"(member "/weights/w": expected a number, got a string)");
  EXPECT_EQ(errorOf(R"({"type":"test/AllKinds","flag":1})"),
            R"(Parsing error for type 'test/AllKinds': member "/flag": expected a boolean, )"
            R"(got an integer)");
}

TEST_F(DeclaredTypesErrors, AnIntegerOutOfItsTypesRangeIsQuotedInDecimal) {
  EXPECT_EQ(errorOf(order(R"("x")", R"([{"sku":"a","quantity":3000000000}])")),
            std::string(kPrefix) + R"(member "/items/0/quantity": 3000000000 is out of range)");
  EXPECT_EQ(errorOf(order(R"("x")", R"([{"sku":"a","quantity":-2147483649}])")),
            std::string(kPrefix) + R"(member "/items/0/quantity": -2147483649 is out of range)");
  EXPECT_EQ(
      errorOf(order(R"("x")", R"([{"sku":"a","quantity":18446744073709551615}])")),
      std::string(kPrefix) + R"(member "/items/0/quantity": 18446744073709551615 is out of range)");
}

TEST_F(DeclaredTypesErrors, ANumberWithAFractionOrAnExponentIsNoInteger) {
  for (const char* number : {"1.0", "1e2", "2E0", "-0.0"}) {
    EXPECT_EQ(
        errorOf(order(R"("x")", std::string(R"([{"sku":"a","quantity":)") + number + "}]")),
        std::string(kPrefix) + R"(member "/items/0/quantity": expected an integer, got a number)")
        << number;
  }
}

TEST_F(DeclaredTypesErrors, AnEnumTakesOnlyOneOfItsNames) {
  EXPECT_EQ(errorOf(order(R"("x")", "[]", R"("urgent")")),
            std::string(kPrefix) +
                R"(member "/priority": "urgent" is not one of "low", "normal", "high")");
  EXPECT_EQ(
      errorOf(order(R"("x")", "[]", R"("LOW")")),
      std::string(kPrefix) + R"(member "/priority": "LOW" is not one of "low", "normal", "high")");
  EXPECT_EQ(errorOf(order(R"("x")", "[]", "1")),
            std::string(kPrefix) + R"(member "/priority": expected a string, got an integer)");
}

TEST_F(DeclaredTypesErrors, PathsRunThroughNestedArraysAndMapsWithTheirKeysEscaped) {
  EXPECT_EQ(errorOf(R"({"type":"test/AllKinds","grid":[[1],[2,"x"]]})"),
            R"(Parsing error for type 'test/AllKinds': member "/flag" is missing)");
  const std::string all = R"({"type":"test/AllKinds","flag":true,"i8":0,"u8":0,"i16":0,)"
                          R"("u16":0,"i32":0,"u32":0,"i64":0,"u64":0,"f32":0,"f64":0,)"
                          R"("text":"","priority":"low","item":{"sku":"","quantity":0},)"
                          R"("priorities":[],"itemsByKey":{},"grid":[],"deep":{},"flags":[],)";
  const std::string prefix = "Parsing error for type 'test/AllKinds': ";
  EXPECT_EQ(errorOf(all.substr(0, all.find(R"("grid":[])")) +
                    R"("grid":[[1],[2,"x"]],"deep":{},"flags":[]})"),
            prefix + R"(member "/grid/1/1": expected an integer, got a string)");
  const std::string beforeDeep = all.substr(0, all.find(R"("deep":{})"));
  EXPECT_EQ(errorOf(beforeDeep + R"("deep":{"a/b~c":[{},{"x":"bad"}]},"flags":[]})"),
            prefix + R"(member "/deep/a~1b~0c/1/x": "bad" is not one of "low", "normal", "high")");
  const std::string beforeItems = all.substr(0, all.find(R"("itemsByKey":{})"));
  EXPECT_EQ(errorOf(beforeItems + R"("itemsByKey":{"ok":null,"k/1":{"sku":5}},"grid":[],)"
                                  R"("deep":{},"flags":[]})"),
            prefix + R"(member "/itemsByKey/k~11/sku": expected a string, got an integer)");
  EXPECT_EQ(errorOf(all + R"("flags":[true,null]})"),
            prefix + R"(member "/flags/1": expected a boolean, got null)");
}

TEST_F(DeclaredTypesErrors, AnUnknownMemberIsRefusedOnlyWhenAskedAndAfterTheDeclaredOnes) {
  json::MessageType<Order> strict("shop/Order");
  const auto strictItem = json::Struct<Item>()
                              .field("sku", &Item::sku)
                              .field("quantity", &Item::quantity)
                              .rejectUnknownMembers();
  strict.field("id", &Order::id).field("items", &Order::items, strictItem).rejectUnknownMembers();
  strict.registerWith(*serializer);

  EXPECT_EQ(errorOf(R"({"type":"shop/Order","id":"x","items":[],"extra":1})"),
            std::string(kPrefix) + R"(member "/extra" is not expected)");
  EXPECT_EQ(errorOf(R"({"type":"shop/Order","id":"x","items":[{"sku":"a","quantity":1,"c/d":0}]})"),
            std::string(kPrefix) + R"(member "/items/0/c~1d" is not expected)");
  EXPECT_EQ(errorOf(R"({"type":"shop/Order","extra":1,"items":[]})"),
            std::string(kPrefix) + R"(member "/id" is missing)");
}

TEST_F(DeclaredTypesErrors, TheNamedDeserializePassesTheDataFormatExceptionOnUnchanged) {
  try {
    serializer->deserialize("shop/Order", parsed(order("7", "[]")));
    ADD_FAILURE() << "accepted";
  } catch (const Poco::DataFormatException& e) {
    EXPECT_EQ(typeid(e), typeid(Poco::DataFormatException));
    EXPECT_EQ(e.message(), R"(member "/id": expected a string, got an integer)");
  }
}

TEST_F(DeclaredTypesErrors, TheStreamedDeserializeByTypeWrapsTheTextOnceMore) {
  auto bytes = std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
      common::DataBuffer(order("7", "[]")));

  EXPECT_THROW_TEXT(serializer->deserialize(bytes).get(), std::invalid_argument,
                    std::string("Error while parsing: ") + kPrefix +
                        R"(member "/id": expected a string, got an integer)");
}

TEST_F(DeclaredTypesErrors, TheNamedStreamedDeserializeNamesTheTypeOnce) {
  auto bytes = std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
      common::DataBuffer(order("7", "[]")));

  EXPECT_THROW_TEXT(serializer->deserialize("shop/Order", bytes).get(), std::invalid_argument,
                    std::string(kPrefix) + R"(member "/id": expected a string, got an integer)");
}

TEST_F(DeclaredTypesErrors, ANullObjectGivenByNameIsAPocoNullPointerException) {
  EXPECT_THROW(serializer->deserialize("shop/Order", Poco::JSON::Object::Ptr()),
               Poco::NullPointerException);
}

TEST_F(DeclaredTypesErrors, ObjectsBuiltByHandAreReadByTheKindOfEachValue) {
  Poco::JSON::Object::Ptr item = new Poco::JSON::Object;
  item->set("sku", "by hand");
  item->set("quantity", static_cast<unsigned short>(7));
  Poco::JSON::Array::Ptr items = new Poco::JSON::Array;
  items->add(item);
  Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
  object->set("type", "shop/Order");
  object->set("id", "h");
  object->set("items", items);
  object->set("priority", "high");
  object->set("weights", Poco::JSON::Object());

  MessagePtr back = serializer->deserialize(Poco::JSON::Object::Ptr(object));
  EXPECT_EQ(dynamic_cast<const Order&>(*back).items.at(0).quantity, 7);

  item->set("quantity", static_cast<Poco::UInt64>(1) << 40);
  EXPECT_THROW_TEXT(serializer->deserialize(Poco::JSON::Object::Ptr(object)), std::invalid_argument,
                    std::string(kPrefix) + R"(member "/items/0/quantity": 1099511627776 is out )"
                                           R"(of range)");
  item->set("quantity", 2.0F);
  EXPECT_THROW_TEXT(serializer->deserialize(Poco::JSON::Object::Ptr(object)), std::invalid_argument,
                    std::string(kPrefix) + R"(member "/items/0/quantity": expected an integer, )"
                                           R"(got a number)");
  item->set("quantity", Poco::JSON::Object::Ptr());
  EXPECT_THROW_TEXT(serializer->deserialize(Poco::JSON::Object::Ptr(object)), std::invalid_argument,
                    std::string(kPrefix) + R"(member "/items/0/quantity": expected an integer, )"
                                           R"(got null)");
}

TEST_F(DeclaredTypesErrors, AStructReadOnItsOwnThrowsTheDataFormatExceptionWithItsOwnPaths) {
  try {
    types.item.fromJson(*parsed(R"({"sku":"a"})"));
    ADD_FAILURE() << "accepted";
  } catch (const Poco::DataFormatException& e) {
    EXPECT_EQ(e.message(), R"(member "/quantity" is missing)");
  }
}

TEST_F(DeclaredTypesErrors, AnEnumValueWithoutANameCannotBeWritten) {
  auto message = std::make_unique<Order>();
  message->priority = static_cast<Priority>(7);
  std::ostringstream out;

  EXPECT_THROW_TEXT(serializer->serialize(MessagePtr(std::move(message)), out), std::runtime_error,
                    R"(Error while serializing: shop/Order, member "/priority": 7 is not one of )"
                    R"("low", "normal", "high")");
}

TEST_F(DeclaredTypesErrors, InfinitiesAndNaNCannotBeWritten) {
  auto message = std::make_unique<Order>();
  message->weights["w/1"] = std::numeric_limits<double>::quiet_NaN();
  auto all = std::make_unique<AllKinds>();
  all->f32 = -std::numeric_limits<float>::infinity();
  std::ostringstream out;

  EXPECT_THROW_TEXT(serializer->serialize(MessagePtr(std::move(message)), out), std::runtime_error,
                    R"(Error while serializing: shop/Order, member "/weights/w~11": nan is not a )"
                    R"(finite number)");
  EXPECT_THROW_TEXT(
      serializer->serialize(MessagePtr(std::move(all)), out), std::runtime_error,
      R"(Error while serializing: test/AllKinds, member "/f32": -inf is not a finite )"
      R"(number)");
}

TEST_F(DeclaredTypesErrors, AFloatMemberRefusesANumberBeyondItsRange) {
  const auto floats = json::Struct<AllKinds>().field("f32", &AllKinds::f32);

  const auto refusal = [&](const std::string& text) -> std::string {
    try {
      floats.fromJson(*parsed(text));
    } catch (const Poco::DataFormatException& e) {
      return e.message();
    }
    return "(accepted)";
  };
  EXPECT_EQ(refusal(R"({"f32":1e300})"), R"(member "/f32": 1e+300 is out of range)");
  EXPECT_EQ(refusal(R"({"f32":-3.4028235677973366e38})"),
            R"(member "/f32": -3.4028235677973366e+38 is out of range)");
  // The largest float itself is in range.
  EXPECT_EQ(floats.fromJson(*parsed(R"({"f32":3.4028234663852886e38})")).f32,
            std::numeric_limits<float>::max());
}

}  // namespace
}  // namespace connector::typestest

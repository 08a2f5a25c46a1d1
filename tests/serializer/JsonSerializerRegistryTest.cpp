// The type registry of JsonSerializerImpl: registration, look-ups by type and by
// message, deregistration and the destructor.
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <typeinfo>

#include <connector/json.hpp>

#include "serializer/SerializerTestTypes.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::json {
namespace {

using Names = std::vector<std::string>;

// A type with internal linkage: its type_info name may carry the platform's '*' mark.
struct LocalUnregistered : connector::Message {};

Poco::SharedPtr<Poco::JSON::Object> objectWith(const std::string& key, int value) {
  Poco::SharedPtr<Poco::JSON::Object> object(new Poco::JSON::Object);
  object->set(key, value);
  return object;
}

SerializerFn markedSerializer(int mark) {
  return [mark](const std::unique_ptr<Message>&) { return objectWith("mark", mark); };
}

std::string serializedValue(JsonSerializerImpl& serializer, std::unique_ptr<Message> message) {
  std::ostringstream out;
  serializer.serializeValue(message, out);
  return out.str();
}

TEST(JsonSerializerRegistry, FreshSerializerKnowsThePlainMessage) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_EQ(serializer->getNamesOfType(typeid(Message)), Names{"connector/Message"});
  EXPECT_EQ(serializer->getNameForMessage(std::make_unique<Message>()), "connector/Message");
}

TEST(JsonSerializerRegistry, SecondNameIsListedButTheFirstIsChosen) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("a", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  serializer->registerType("b", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Cancel)), (Names{"a", "b"}));
  EXPECT_EQ(serializer->getNameForMessage(std::make_unique<shop::Cancel>()), "a");

  serializer->deregisterType("a");
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Cancel)), Names{"b"});
  EXPECT_EQ(serializer->getNameForMessage(std::make_unique<shop::Cancel>()), "b");
}

TEST(JsonSerializerRegistry, RegisteringTheSameNameTwiceForOneTypeListsItOnce) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("a", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  serializer->registerType("a", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Cancel)), Names{"a"});
}

TEST(JsonSerializerRegistry, RegisterIfNotRegisteredKeepsTheOldConvertersOfAKnownName) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("a", typeid(shop::Cancel), markedSerializer(1), shop::cancelFromJson);
  EXPECT_FALSE(serializer->registerTypeIfNotRegistered(
      "a", typeid(shop::Cancel), markedSerializer(2),
      [](Poco::SharedPtr<Poco::JSON::Object>) { return std::make_unique<shop::Reserve>(); }));
  EXPECT_FALSE(serializer->registerTypeIfNotRegistered("a", std::string("shop::Cancel"),
                                                       markedSerializer(3), nullptr));
  EXPECT_EQ(serializedValue(*serializer, std::make_unique<shop::Cancel>()), R"({"mark":1})");
  auto back = serializer->deserialize("a", new Poco::JSON::Object);
  EXPECT_EQ(typeid(*back), typeid(shop::Cancel));
}

TEST(JsonSerializerRegistry, RegisterIfNotRegisteredAcceptsANewName) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_TRUE(serializer->registerTypeIfNotRegistered("a", typeid(shop::Cancel),
                                                      markedSerializer(7), shop::cancelFromJson));
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Cancel)), Names{"a"});
  EXPECT_EQ(serializedValue(*serializer, std::make_unique<shop::Cancel>()), R"({"mark":7})");
}

TEST(JsonSerializerRegistry, RegisterTypeReplacesBothConvertersWithoutThrowing) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("a", typeid(shop::Cancel), markedSerializer(1), shop::cancelFromJson);
  EXPECT_NO_THROW(serializer->registerType(
      "a", typeid(shop::Cancel), markedSerializer(2),
      [](Poco::SharedPtr<Poco::JSON::Object>) { return std::make_unique<shop::Reserve>(); }));
  EXPECT_EQ(serializedValue(*serializer, std::make_unique<shop::Cancel>()), R"({"mark":2})");
  auto back = serializer->deserialize("a", new Poco::JSON::Object);
  EXPECT_EQ(typeid(*back), typeid(shop::Reserve));
}

TEST(JsonSerializerRegistry, NameReRegisteredForAnotherTypeStaysListedUnderTheOldOne) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("a", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  serializer->registerType("a", typeid(shop::Reserve), shop::reserveToJson, shop::reserveFromJson);
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Cancel)), Names{"a"});
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Reserve)), Names{"a"});
}

TEST(JsonSerializerRegistry, TypeRegisteredByReadableNameIsFoundByItsTypeInfo) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_TRUE(serializer->registerTypeIfNotRegistered("shop/NamedOnly",
                                                      std::string("shop::NamedOnly"),
                                                      shop::emptyToJson, shop::namedOnlyFromJson));
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::NamedOnly)), Names{"shop/NamedOnly"});
  EXPECT_EQ(serializer->getNameForMessage(std::make_unique<shop::NamedOnly>()), "shop/NamedOnly");
}

TEST(JsonSerializerRegistry, NamesByTypeInfoWinOverNamesByReadableName) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerTypeIfNotRegistered("by-name", std::string("shop::Cancel"), shop::emptyToJson,
                                          shop::cancelFromJson);
  serializer->registerType("by-type", typeid(shop::Cancel), shop::emptyToJson,
                           shop::cancelFromJson);
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Cancel)), Names{"by-type"});
}

using BlankPair = shop::Pair<int, long>;

TEST(JsonSerializerRegistry, TemplateTypeRegisteredByTypeInfoIsFound) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("shop/Pair", typeid(BlankPair), shop::emptyToJson, shop::cancelFromJson);
  EXPECT_EQ(serializer->getNamesOfType(typeid(BlankPair)), Names{"shop/Pair"});
  EXPECT_EQ(serializer->getNameForMessage(std::make_unique<BlankPair>()), "shop/Pair");
}

// The look-up by readable name drops the text up to the first blank, taking it for a
// leading keyword: a readable name with blanks is found under what follows the blank.
TEST(JsonSerializerRegistry, ReadableNameWithBlanksIsFoundUnderTheTextAfterTheFirstBlank) {
  ASSERT_EQ(foundation::core::diag::detail::demangle_typeid_name(typeid(BlankPair).name(), true),
            "shop::Pair<int, long>");
  auto byTail = std::make_shared<JsonSerializerImpl>();
  byTail->registerTypeIfNotRegistered("shop/Pair", std::string("long>"), shop::emptyToJson,
                                      shop::cancelFromJson);
  EXPECT_EQ(byTail->getNamesOfType(typeid(BlankPair)), Names{"shop/Pair"});
  EXPECT_EQ(byTail->getNameForMessage(std::make_unique<BlankPair>()), "shop/Pair");

  auto byWholeName = std::make_shared<JsonSerializerImpl>();
  byWholeName->registerTypeIfNotRegistered("shop/Pair", std::string("shop::Pair<int, long>"),
                                           shop::emptyToJson, shop::cancelFromJson);
  EXPECT_TRUE(byWholeName->getNamesOfType(typeid(BlankPair)).empty());
}

TEST(JsonSerializerRegistry, AnonymousNamespaceTypeIsFoundUnderTheTextAfterTheFirstBlank) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerTypeIfNotRegistered("local", std::string("namespace)::LocalUnregistered"),
                                          shop::emptyToJson, shop::cancelFromJson);
  EXPECT_EQ(serializer->getNamesOfType(typeid(LocalUnregistered)), Names{"local"});
}

// Deregistration by type looks for the whole readable name, blanks included.
TEST(JsonSerializerRegistry, DeregisteringByTypeInfoATypeFoundOnlyUnderItsTailThrows) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerTypeIfNotRegistered("shop/Pair", std::string("long>"), shop::emptyToJson,
                                          shop::cancelFromJson);
  EXPECT_THROW_TEXT(serializer->deregisterType(typeid(BlankPair)), std::runtime_error,
                    "No type name for type found");
  EXPECT_EQ(serializer->getNamesOfType(typeid(BlankPair)), Names{"shop/Pair"});
}

TEST(JsonSerializerRegistry, DeregisteringByTypeInfoRemovesNamesUnderTheWholeReadableName) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerTypeIfNotRegistered("shop/Pair", std::string("shop::Pair<int, long>"),
                                          shop::emptyToJson, shop::cancelFromJson);
  EXPECT_NO_THROW(serializer->deregisterType(typeid(BlankPair)));
  EXPECT_THROW_TEXT(serializer->deserialize("shop/Pair", new Poco::JSON::Object),
                    std::invalid_argument, "No deserializer for type: shop/Pair");
}

TEST(JsonSerializerRegistry, UnknownTypeHasNoNames) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_TRUE(serializer->getNamesOfType(typeid(shop::Unregistered)).empty());
  EXPECT_TRUE(serializer->getNamesOfType(typeid(int)).empty());
}

TEST(JsonSerializerRegistry, DeregisteringAnUnknownNameDoesNothing) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_NO_THROW(serializer->deregisterType("no/such/name"));
  EXPECT_EQ(serializer->getNamesOfType(typeid(Message)), Names{"connector/Message"});
}

TEST(JsonSerializerRegistry, DeregisteringANameRegisteredByReadableNameRemovesItEverywhere) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerTypeIfNotRegistered("shop/NamedOnly", std::string("shop::NamedOnly"),
                                          shop::emptyToJson, shop::namedOnlyFromJson);
  serializer->deregisterType("shop/NamedOnly");
  EXPECT_TRUE(serializer->getNamesOfType(typeid(shop::NamedOnly)).empty());
  EXPECT_THROW_TEXT(serializer->deserialize("shop/NamedOnly", new Poco::JSON::Object),
                    std::invalid_argument, "No deserializer for type: shop/NamedOnly");
  EXPECT_THROW_TEXT(serializer->serializeToJsonObject("shop/NamedOnly", nullptr), std::out_of_range,
                    "_Map_base::at");
  // The emptied entry went too.
  EXPECT_THROW_TEXT(serializer->deregisterType(typeid(shop::NamedOnly)), std::runtime_error,
                    "No type name for type found");
}

TEST(JsonSerializerRegistry, DeregisteringANameListedUnderSeveralTypesRemovesItFromAll) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  ASSERT_TRUE(serializer->registerTypeIfNotRegistered("shared", std::string("shop::NamedOnly"),
                                                      shop::emptyToJson, shop::cancelFromJson));
  ASSERT_TRUE(serializer->registerTypeIfNotRegistered("named", std::string("shop::NamedOnly"),
                                                      shop::emptyToJson, shop::namedOnlyFromJson));
  serializer->registerType("cancel", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  serializer->registerType("shared", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  serializer->registerType("shared", typeid(shop::Reserve), shop::emptyToJson,
                           shop::cancelFromJson);
  ASSERT_EQ(serializer->getNamesOfType(typeid(shop::NamedOnly)), (Names{"shared", "named"}));
  ASSERT_EQ(serializer->getNamesOfType(typeid(shop::Cancel)), (Names{"cancel", "shared"}));
  serializer->deregisterType("shared");
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Cancel)), Names{"cancel"});
  EXPECT_TRUE(serializer->getNamesOfType(typeid(shop::Reserve)).empty());
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::NamedOnly)), Names{"named"});
  EXPECT_THROW_TEXT(serializer->deserialize("shared", new Poco::JSON::Object),
                    std::invalid_argument, "No deserializer for type: shared");
  EXPECT_THROW_TEXT(serializer->deregisterType(typeid(shop::Reserve)), std::runtime_error,
                    "No type name for type found");
}

TEST(JsonSerializerRegistry, DeregisteringAnUnknownTypeThrows) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_THROW_TEXT(serializer->deregisterType(typeid(shop::Unregistered)), std::runtime_error,
                    "No type name for type found");
  EXPECT_EQ(serializer->getNamesOfType(typeid(Message)), Names{"connector/Message"});
}

TEST(JsonSerializerRegistry, DeregisteringATypeRemovesAllItsNamesAndConverters) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("a", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  serializer->registerType("b", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  serializer->deregisterType(typeid(shop::Cancel));
  EXPECT_TRUE(serializer->getNamesOfType(typeid(shop::Cancel)).empty());
  EXPECT_THROW_TEXT(serializer->deserialize("a", new Poco::JSON::Object), std::invalid_argument,
                    "No deserializer for type: a");
  EXPECT_THROW_TEXT(serializer->deserialize("b", new Poco::JSON::Object), std::invalid_argument,
                    "No deserializer for type: b");
  EXPECT_THROW_TEXT(serializer->deregisterType(typeid(shop::Cancel)), std::runtime_error,
                    "No type name for type found");
}

TEST(JsonSerializerRegistry, DeregisteringATypeAlsoRemovesNamesRegisteredByReadableName) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerTypeIfNotRegistered("shop/NamedOnly", std::string("shop::NamedOnly"),
                                          shop::emptyToJson, shop::namedOnlyFromJson);
  serializer->deregisterType(typeid(shop::NamedOnly));
  EXPECT_TRUE(serializer->getNamesOfType(typeid(shop::NamedOnly)).empty());
  EXPECT_THROW_TEXT(serializer->deserialize("shop/NamedOnly", new Poco::JSON::Object),
                    std::invalid_argument, "No deserializer for type: shop/NamedOnly");
}

TEST(JsonSerializerRegistry, NameRemovedWithOneTypeStaysListedUnderAnother) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("shared", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  serializer->registerType("shared", typeid(shop::Reserve), shop::emptyToJson,
                           shop::cancelFromJson);
  serializer->deregisterType(typeid(shop::Cancel));
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Reserve)), Names{"shared"});
  EXPECT_THROW_TEXT(serializer->getNameForMessage(std::make_unique<shop::Reserve>()),
                    std::runtime_error, "Serializer not found: shared");
}

TEST(JsonSerializerRegistry, MessageOfAnUnregisteredTypeHasNoName) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_THROW_TEXT(serializer->getNameForMessage(std::make_unique<shop::Unregistered>()),
                    std::invalid_argument, "No serializer for type: shop::Unregistered");
}

TEST(JsonSerializerRegistry, UnregisteredLocalTypeIsNamedWithoutThePlatformMark) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_THROW_TEXT(
      serializer->getNameForMessage(std::make_unique<LocalUnregistered>()), std::invalid_argument,
      "No serializer for type: connector::json::(anonymous namespace)::LocalUnregistered");
}

TEST(JsonSerializerRegistry, NullMessageHasNoType) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  EXPECT_THROW(serializer->getNameForMessage(nullptr), std::bad_typeid);
}

TEST(JsonSerializerRegistry, GetPtrSharesOwnership) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  std::shared_ptr<JsonSerializer> again = serializer->getPtr();
  EXPECT_EQ(again.get(), static_cast<JsonSerializer*>(serializer.get()));
  EXPECT_EQ(serializer.use_count(), 2);
}

TEST(JsonSerializerRegistry, GetPtrWithoutSharedOwnershipThrowsBadWeakPtr) {
  JsonSerializerImpl serializer;
  EXPECT_THROW(serializer.getPtr(), std::bad_weak_ptr);
}

TEST(JsonSerializerRegistry, DestroyingARegularSerializerIsQuiet) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("a", typeid(shop::Cancel), shop::emptyToJson, shop::cancelFromJson);
  serializer->deregisterType(typeid(shop::Cancel));
  EXPECT_NO_THROW(serializer.reset());
}

TEST(JsonSerializerRegistry, DestroyingASerializerWhoseTypeWasReRegisteredByReadableNameIsQuiet) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->deregisterType("connector/Message");
  serializer->registerTypeIfNotRegistered("connector/Message", std::string("connector::Message"),
                                          shop::emptyToJson, shop::cancelFromJson);
  EXPECT_NO_THROW(serializer.reset());
}

TEST(JsonSerializerRegistryDeathTest, DestroyingAfterRemovingThePlainMessageEndsTheProcess) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      {
        auto serializer = std::make_shared<JsonSerializerImpl>();
        serializer->deregisterType("connector/Message");
        EXPECT_TRUE(serializer->getNamesOfType(typeid(Message)).empty());
        serializer.reset();
      },
      "No type name for type found");
}

}  // namespace
}  // namespace connector::json

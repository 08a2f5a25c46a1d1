// Declared message types through the serializer: every member kind written and read back
// unchanged, members in declaration order, empty optionals left out, and hand-written
// converters working beside declared ones.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <sstream>
#include <string>

#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"
#include "types/DeclaredOrder.hpp"

namespace connector::typestest {
namespace {

using MessagePtr = std::unique_ptr<connector::Message>;

std::string serialized(json::JsonSerializerImpl& serializer, const MessagePtr& message) {
  std::ostringstream out;
  serializer.serialize(message, out);
  return out.str();
}

MessagePtr readBack(json::JsonSerializerImpl& serializer, const std::string& text) {
  Poco::JSON::Parser parser;
  Poco::JSON::Object::Ptr object = parser.parse(text).extract<Poco::JSON::Object::Ptr>();
  return serializer.deserialize(std::move(object));
}

std::shared_ptr<json::JsonSerializerImpl> serializerWith(const OrderTypes& types) {
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  types.order.registerWith(*serializer);
  types.allKinds.registerWith(*serializer);
  return serializer;
}

std::unique_ptr<Order> sampleOrder() {
  auto order = std::make_unique<Order>();
  order->id = "A-1";
  order->items = {{"LAMP-01", 2}, {"BULB-7", 10}};
  order->note = "ring twice";
  order->priority = Priority::High;
  order->weights = {{"b", 0.5}, {"a", 1.25}};
  return order;
}

constexpr const char* kSampleOrderText =
    R"({"id":"A-1","items":[{"sku":"LAMP-01","quantity":2},{"sku":"BULB-7","quantity":10}],)"
    R"("note":"ring twice","priority":"high","weights":{"a":1.25,"b":0.5},"type":"shop/Order"})";

TEST(DeclaredTypesRoundTrip, AnOrderIsWrittenInDeclarationOrderWithTheTypeLast) {
  const OrderTypes types;
  auto serializer = serializerWith(types);

  EXPECT_EQ(serialized(*serializer, MessagePtr(sampleOrder())), kSampleOrderText);
}

TEST(DeclaredTypesRoundTrip, AnOrderReadBackFromItsTextEqualsTheOriginal) {
  const OrderTypes types;
  auto serializer = serializerWith(types);

  MessagePtr back = readBack(*serializer, kSampleOrderText);

  const auto& order = dynamic_cast<const Order&>(*back);
  const auto expected = sampleOrder();
  EXPECT_EQ(order.id, expected->id);
  EXPECT_EQ(order.items, expected->items);
  EXPECT_EQ(order.note, expected->note);
  EXPECT_EQ(order.priority, expected->priority);
  EXPECT_EQ(order.weights, expected->weights);
}

TEST(DeclaredTypesRoundTrip, AnEmptyOptionalMemberIsLeftOutAndReadsBackEmpty) {
  const OrderTypes types;
  auto serializer = serializerWith(types);
  auto order = sampleOrder();
  order->note.reset();
  order->items.clear();
  order->weights.clear();

  const std::string text = serialized(*serializer, MessagePtr(std::move(order)));
  MessagePtr back = readBack(*serializer, text);

  EXPECT_EQ(text, R"({"id":"A-1","items":[],"priority":"high","weights":{},"type":"shop/Order"})");
  EXPECT_FALSE(dynamic_cast<const Order&>(*back).note.has_value());
}

TEST(DeclaredTypesRoundTrip, NullGivesAnEmptyOptionalLikeAbsence) {
  const OrderTypes types;
  auto serializer = serializerWith(types);

  MessagePtr back = readBack(
      *serializer,
      R"({"type":"shop/Order","id":"x","items":[],"note":null,"priority":"low","weights":{}})");

  EXPECT_FALSE(dynamic_cast<const Order&>(*back).note.has_value());
}

AllKinds extremes() {
  AllKinds all;
  all.flag = true;
  all.i8 = std::numeric_limits<std::int8_t>::min();
  all.u8 = std::numeric_limits<std::uint8_t>::max();
  all.i16 = std::numeric_limits<std::int16_t>::min();
  all.u16 = std::numeric_limits<std::uint16_t>::max();
  all.i32 = std::numeric_limits<std::int32_t>::min();
  all.u32 = std::numeric_limits<std::uint32_t>::max();
  all.i64 = std::numeric_limits<std::int64_t>::min();
  all.u64 = std::numeric_limits<std::uint64_t>::max();
  all.f32 = 0.1F;
  all.f64 = -1.0e-300;
  all.text = "a \"quoted\" \\ line\nand \xc3\xa9";
  all.priority = Priority::Normal;
  all.item = {"SKU/1", -3};
  all.maybeItem = Item{"~tilde", 7};
  all.priorities = {Priority::High, Priority::Low, Priority::High};
  all.itemsByKey = {{"present", Item{"P", 1}}, {"absent", std::nullopt}};
  all.grid = {{1, std::nullopt, 3}, {}, {std::nullopt}};
  all.deep = {{"k", {{{"x", Priority::Low}}, {}}}};
  all.flags = {true, false, true};
  all.twice = std::optional<std::uint64_t>(9223372036854775808ULL);
  return all;
}

void expectSame(const AllKinds& back, const AllKinds& all) {
  EXPECT_EQ(back.flag, all.flag);
  EXPECT_EQ(back.i8, all.i8);
  EXPECT_EQ(back.u8, all.u8);
  EXPECT_EQ(back.i16, all.i16);
  EXPECT_EQ(back.u16, all.u16);
  EXPECT_EQ(back.i32, all.i32);
  EXPECT_EQ(back.u32, all.u32);
  EXPECT_EQ(back.i64, all.i64);
  EXPECT_EQ(back.u64, all.u64);
  EXPECT_EQ(back.f32, all.f32);
  EXPECT_EQ(back.f64, all.f64);
  EXPECT_EQ(back.text, all.text);
  EXPECT_EQ(back.priority, all.priority);
  EXPECT_EQ(back.item, all.item);
  EXPECT_EQ(back.maybeItem, all.maybeItem);
  EXPECT_EQ(back.priorities, all.priorities);
  EXPECT_EQ(back.itemsByKey, all.itemsByKey);
  EXPECT_EQ(back.grid, all.grid);
  EXPECT_EQ(back.deep, all.deep);
  EXPECT_EQ(back.flags, all.flags);
  EXPECT_EQ(back.twice, all.twice);
}

TEST(DeclaredTypesRoundTrip, EveryMemberKindRoundTripsThroughTheText) {
  const OrderTypes types;
  auto serializer = serializerWith(types);
  const AllKinds all = extremes();

  const std::string text = serialized(*serializer, std::make_unique<AllKinds>(all));
  MessagePtr back = readBack(*serializer, text);

  expectSame(dynamic_cast<const AllKinds&>(*back), all);
  EXPECT_NE(text.find(R"("u64":18446744073709551615,)"), std::string::npos) << text;
  EXPECT_NE(text.find(R"("i64":-9223372036854775808,)"), std::string::npos) << text;
  EXPECT_NE(text.find(R"("itemsByKey":{"absent":null,"present":{"sku":"P","quantity":1}})"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find(R"("grid":[[1,null,3],[],[null]])"), std::string::npos) << text;
  EXPECT_NE(text.find(R"("twice":9223372036854775808,)"), std::string::npos) << text;
}

TEST(DeclaredTypesRoundTrip, EveryMemberKindRoundTripsThroughTheStreamedDeserialize) {
  const OrderTypes types;
  auto serializer = serializerWith(types);
  const AllKinds all = extremes();

  MessagePtr back =
      serializer->deserialize(serializer->serialize(std::make_unique<AllKinds>(all))).get();

  expectSame(dynamic_cast<const AllKinds&>(*back), all);
}

TEST(DeclaredTypesRoundTrip, EveryMemberKindRoundTripsThroughTheObjectAlone) {
  const OrderTypes types;
  auto serializer = serializerWith(types);
  const AllKinds all = extremes();

  Poco::JSON::Object::Ptr object =
      serializer->serializeToJsonObject(std::make_unique<AllKinds>(all));
  MessagePtr back = serializer->deserialize("test/AllKinds", std::move(object));

  expectSame(dynamic_cast<const AllKinds&>(*back), all);
}

TEST(DeclaredTypesRoundTrip, AnOptionalHoldingAnEmptyOptionalIsWrittenAsNullAndReadsBackEmpty) {
  const OrderTypes types;
  auto serializer = serializerWith(types);
  auto all = std::make_unique<AllKinds>();
  all->twice = std::optional<std::uint64_t>();

  const std::string text = serialized(*serializer, MessagePtr(std::move(all)));
  MessagePtr back = readBack(*serializer, text);

  EXPECT_NE(text.find(R"("twice":null)"), std::string::npos) << text;
  EXPECT_FALSE(dynamic_cast<const AllKinds&>(*back).twice.has_value());
}

TEST(DeclaredTypesRoundTrip, UnknownMembersAreIgnoredByDefault) {
  const OrderTypes types;
  auto serializer = serializerWith(types);

  MessagePtr back =
      readBack(*serializer, R"({"type":"shop/Order","id":"x","items":[{"sku":"s","quantity":1,)"
                            R"("colour":"red"}],"priority":"low","weights":{},"extra":[1,2]})");

  EXPECT_EQ(dynamic_cast<const Order&>(*back).items, (std::vector<Item>{{"s", 1}}));
}

TEST(DeclaredTypesRoundTrip, TheTypeMemberIsNeverUnknownEvenWhenUnknownMembersAreRefused) {
  json::MessageType<Order> strict("shop/Order");
  strict.field("id", &Order::id).rejectUnknownMembers();
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  strict.registerWith(*serializer);

  MessagePtr back = readBack(*serializer, R"({"type":"shop/Order","id":"x"})");

  EXPECT_EQ(dynamic_cast<const Order&>(*back).id, "x");
}

TEST(DeclaredTypesRoundTrip, AnIntegerMemberAcceptsNegativeZero) {
  const OrderTypes types;
  auto serializer = serializerWith(types);

  MessagePtr back =
      readBack(*serializer, R"({"type":"shop/Order","id":"x","items":[{"sku":"s","quantity":-0}],)"
                            R"("priority":"low","weights":{"w":-0}})");

  EXPECT_EQ(dynamic_cast<const Order&>(*back).items.at(0).quantity, 0);
}

TEST(DeclaredTypesRoundTrip, ADoubleMemberAcceptsIntegersOfEitherSignAndExponents) {
  const OrderTypes types;
  auto serializer = serializerWith(types);

  MessagePtr back =
      readBack(*serializer, R"({"type":"shop/Order","id":"x","items":[],"priority":"low",)"
                            R"("weights":{"a":-3,"b":18446744073709551615,"c":1e2,"d":2.5E-1}})");

  const auto& weights = dynamic_cast<const Order&>(*back).weights;
  EXPECT_EQ(weights.at("a"), -3.0);
  EXPECT_EQ(weights.at("b"), 18446744073709551615.0);
  EXPECT_EQ(weights.at("c"), 100.0);
  EXPECT_EQ(weights.at("d"), 0.25);
}

struct Base : connector::Message {
  std::string inherited;
};
struct Derived : Base {
  int own = 0;
};

TEST(DeclaredTypesRoundTrip, AMemberOfABaseClassIsDeclaredOnTheDerivedType) {
  json::MessageType<Derived> derived("test/Derived");
  derived.field("inherited", &Derived::inherited).field("own", &Derived::own);
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  derived.registerWith(*serializer);
  auto message = std::make_unique<Derived>();
  message->inherited = "base";
  message->own = 4;

  const std::string text = serialized(*serializer, MessagePtr(std::move(message)));
  MessagePtr back = readBack(*serializer, text);

  EXPECT_EQ(text, R"({"inherited":"base","own":4,"type":"test/Derived"})");
  EXPECT_EQ(dynamic_cast<const Derived&>(*back).inherited, "base");
}

// A hand-written pair of converters, registered as before declared types existed.
struct Note : connector::Message {
  std::string text;
};

TEST(DeclaredTypesRoundTrip, HandWrittenConvertersKeepWorkingBesideDeclaredTypes) {
  const OrderTypes types;
  auto serializer = serializerWith(types);
  serializer->registerType(
      "test/Note", typeid(Note),
      [](const MessagePtr& m) {
        Poco::JSON::Object::Ptr json = new Poco::JSON::Object;
        json->set("text", dynamic_cast<const Note&>(*m).text);
        return json;
      },
      [](Poco::JSON::Object::Ptr json) -> MessagePtr {
        auto note = std::make_unique<Note>();
        note->text = json->getValue<std::string>("text");
        return note;
      });
  auto note = std::make_unique<Note>();
  note->text = "by hand";

  const std::string noteText = serialized(*serializer, MessagePtr(std::move(note)));
  MessagePtr noteBack = readBack(*serializer, noteText);
  MessagePtr orderBack = readBack(*serializer, kSampleOrderText);

  EXPECT_EQ(noteText, R"({"text":"by hand","type":"test/Note"})");
  EXPECT_EQ(dynamic_cast<const Note&>(*noteBack).text, "by hand");
  EXPECT_EQ(dynamic_cast<const Order&>(*orderBack).id, "A-1");
}

TEST(DeclaredTypesRoundTrip, RegisterWithUsesTheNameAndTheClassOfTheDeclaration) {
  const OrderTypes types;
  auto serializer = serializerWith(types);

  EXPECT_EQ(serializer->getNamesOfType(typeid(Order)), std::vector<std::string>{"shop/Order"});
  EXPECT_EQ(types.order.name(), "shop/Order");
}

TEST(DeclaredTypesRoundTrip, ConvertersKeepTheMembersDeclaredWhenTheyWereMade) {
  json::MessageType<Order> order("shop/Order");
  order.field("id", &Order::id);
  const json::SerializerFn early = order.serializer();
  order.field("note", &Order::note);
  auto message = std::make_unique<Order>();
  message->id = "i";
  message->note = "n";

  Poco::JSON::Object::Ptr earlyJson = early(MessagePtr(std::move(message)));

  EXPECT_EQ(earlyJson->size(), 1U);
}

TEST(DeclaredTypesRoundTrip, AStructConvertsOnItsOwn) {
  const OrderTypes types;

  Poco::JSON::Object::Ptr json = types.item.toJson(Item{"LAMP-01", 2});
  const Item back = types.item.fromJson(*json);

  std::ostringstream text;
  json->stringify(text);
  EXPECT_EQ(text.str(), R"({"sku":"LAMP-01","quantity":2})");
  EXPECT_EQ(back, (Item{"LAMP-01", 2}));
}

TEST(DeclaredTypesRoundTrip, AnEnumMapsNamesAndValuesBothWays) {
  const OrderTypes types;

  EXPECT_EQ(*types.priority.nameOf(Priority::Normal), "normal");
  EXPECT_EQ(types.priority.valueOf("high"), Priority::High);
  EXPECT_EQ(types.priority.valueOf("urgent"), std::nullopt);
  EXPECT_EQ(types.priority.nameOf(static_cast<Priority>(7)), nullptr);
  EXPECT_EQ(types.priority.names(), (std::vector<std::string>{"low", "normal", "high"}));
}

TEST(DeclaredTypesRoundTrip, DeclarationMistakesAreRefusedWithTheirTexts) {
  json::MessageType<Order> order("shop/Order");
  order.field("id", &Order::id);
  json::Struct<Item> item;
  item.field("sku", &Item::sku);

  EXPECT_THROW_TEXT(order.field("id", &Order::note), std::invalid_argument,
                    "member \"id\" is declared twice");
  EXPECT_THROW_TEXT(order.field("type", &Order::note), std::invalid_argument,
                    "member \"type\" is reserved for the type name");
  EXPECT_THROW_TEXT(item.field("sku", &Item::quantity), std::invalid_argument,
                    "member \"sku\" is declared twice");
  EXPECT_THROW_TEXT(json::Enum<Priority>({}), std::invalid_argument,
                    "an enum needs at least one name");
  EXPECT_THROW_TEXT(json::Enum<Priority>({{Priority::Low, "x"}, {Priority::High, "x"}}),
                    std::invalid_argument, "enum name \"x\" is given twice");
  EXPECT_THROW_TEXT(json::Enum<Priority>({{Priority::Low, "x"}, {Priority::Low, "y"}}),
                    std::invalid_argument, "enum value 0 is given twice");
}

TEST(DeclaredTypesRoundTrip, ANestedStructMayDeclareAMemberNamedType) {
  struct Tagged {
    std::string type;
  };
  struct Holder : connector::Message {
    Tagged tag;
  };
  const auto tagged = json::Struct<Tagged>().field("type", &Tagged::type);
  json::MessageType<Holder> holder("test/Holder");
  holder.field("tag", &Holder::tag, tagged);
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  holder.registerWith(*serializer);

  MessagePtr back = readBack(*serializer, R"({"type":"test/Holder","tag":{"type":"inner"}})");

  EXPECT_EQ(dynamic_cast<const Holder&>(*back).tag.type, "inner");
}

}  // namespace
}  // namespace connector::typestest

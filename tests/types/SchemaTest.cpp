// The JSON Schema of declared types: its exact text for the documentation's Order, and
// agreement with a real validator (python3-jsonschema, Draft202012Validator): for every
// document below, the schema accepts it exactly when the reader (the streamed deserialize
// a peer's bytes go through) does; the documented differences are checked as such.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <connector/json.hpp>

#include "types/DeclaredOrder.hpp"
#include "types/DeclaredShipment.hpp"
#include "types/SchemaValidator.hpp"

namespace connector::typestest {
namespace {

std::string text(const Poco::JSON::Object::Ptr& schema) {
  std::ostringstream out;
  schema->stringify(out);
  return out.str();
}

TEST(Schema, TheOrdersSchemaDescribesTheWholeWireObject) {
  const OrderTypes types;

  EXPECT_EQ(text(types.order.schema()),
            R"({"$schema":"https://json-schema.org/draft/2020-12/schema","title":"shop/Order",)"
            R"("type":"object","properties":{"type":{"const":"shop/Order"},)"
            R"("id":{"type":"string"},"items":{"type":"array","items":{"type":"object",)"
            R"("properties":{"sku":{"type":"string"},"quantity":{"type":"integer",)"
            R"("minimum":-2147483648,"maximum":2147483647}},"required":["sku","quantity"]}},)"
            R"("note":{"anyOf":[{"type":"string"},{"type":"null"}]},)"
            R"("priority":{"enum":["low","normal","high"]},)"
            R"("weights":{"type":"object","additionalProperties":{"type":"number"}}},)"
            R"("required":["type","id","items","priority","weights"]})");
}

TEST(Schema, AdditionalPropertiesIsFalseExactlyWhereUnknownMembersAreRefused) {
  json::MessageType<Order> strict("shop/Order");
  const auto looseItem = json::Struct<Item>().field("sku", &Item::sku);
  strict.field("items", &Order::items, looseItem).rejectUnknownMembers();

  EXPECT_EQ(text(strict.schema()),
            R"({"$schema":"https://json-schema.org/draft/2020-12/schema","title":"shop/Order",)"
            R"("type":"object","properties":{"type":{"const":"shop/Order"},)"
            R"("items":{"type":"array","items":{"type":"object","properties":)"
            R"({"sku":{"type":"string"}},"required":["sku"]}}},"required":["type","items"],)"
            R"("additionalProperties":false})");
}

TEST(Schema, IntegerMembersCarryTheirTypesRange) {
  const OrderTypes types;
  const std::string schema = text(types.allKinds.schema());

  for (const char* range :
       {R"("i8":{"type":"integer","minimum":-128,"maximum":127})",
        R"("u8":{"type":"integer","minimum":0,"maximum":255})",
        R"("u32":{"type":"integer","minimum":0,"maximum":4294967295})",
        R"("i64":{"type":"integer","minimum":-9223372036854775808,"maximum":9223372036854775807})",
        R"("u64":{"type":"integer","minimum":0,"maximum":18446744073709551615})"}) {
    EXPECT_NE(schema.find(range), std::string::npos) << range << " in " << schema;
  }
}

TEST(Schema, AStructAndAnEnumHaveSchemasOfTheirOwn) {
  const OrderTypes types;

  EXPECT_EQ(text(types.item.schema()),
            R"({"$schema":"https://json-schema.org/draft/2020-12/schema","type":"object",)"
            R"("properties":{"sku":{"type":"string"},"quantity":{"type":"integer",)"
            R"("minimum":-2147483648,"maximum":2147483647}},"required":["sku","quantity"]})");
  EXPECT_EQ(text(types.priority.schema()),
            R"({"$schema":"https://json-schema.org/draft/2020-12/schema",)"
            R"("enum":["low","normal","high"]})");
}

// Whether the streamed deserialize by "type" reads the document as a T.
template <typename T>
bool readerAccepts(json::JsonSerializerImpl& serializer, const std::string& document) {
  auto bytes = std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
      common::DataBuffer(document));
  try {
    std::unique_ptr<Message> message = serializer.deserialize(bytes).get();
    return dynamic_cast<T*>(message.get()) != nullptr;
  } catch (const std::invalid_argument&) {
    return false;
  }
}

template <typename T>
void expectAgreement(const json::MessageType<T>& type, const std::vector<std::string>& documents) {
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  type.registerWith(*serializer);
  const std::vector<bool> schemaSays = validatedBySchema(type.schema(), documents);
  ASSERT_EQ(schemaSays.size(), documents.size());
  int accepted = 0;
  for (std::size_t i = 0; i < documents.size(); ++i) {
    const bool readerSays = readerAccepts<T>(*serializer, documents[i]);
    accepted += readerSays ? 1 : 0;
    EXPECT_EQ(schemaSays[i], readerSays) << documents[i];
  }
  // Both kinds of document are in the set.
  EXPECT_GT(accepted, 0);
  EXPECT_LT(accepted, static_cast<int>(documents.size()));
}

std::string order(const std::string& members) { return R"({"type":"shop/Order",)" + members + "}"; }

const char* const kMinimalOrder = R"("id":"A","items":[],"priority":"low","weights":{})";

TEST(Schema, TheValidatorAgreesWithTheReaderOnOrders) {
  const OrderTypes types;
  const std::string item = R"({"sku":"s","quantity":1})";
  expectAgreement(
      types.order,
      {
          order(kMinimalOrder),
          order(R"("id":"A","items":[)" + item + "," + item +
                R"(],"note":"n","priority":"high","weights":{"a":1,"b":-2.5,"c":1e300})"),
          order(R"("id":"A","items":[],"note":null,"priority":"normal","weights":{})"),
          order(R"("id":"A","items":[],"priority":"low","weights":{},"extra":{"x":[1]})"),
          order(R"("id":"A","items":[{"sku":"s","quantity":2147483647,"colour":1}],)"
                R"("priority":"low","weights":{})"),
          order(R"("id":"A","items":[{"sku":"s","quantity":-2147483648}],"priority":"low",)"
                R"("weights":{"w":18446744073709551615})"),
          order(R"("items":[],"priority":"low","weights":{})"),
          order(R"("id":5,"items":[],"priority":"low","weights":{})"),
          order(R"("id":null,"items":[],"priority":"low","weights":{})"),
          order(R"("id":"A","items":{},"priority":"low","weights":{})"),
          order(R"("id":"A","items":[null],"priority":"low","weights":{})"),
          order(R"("id":"A","items":[{"sku":"s"}],"priority":"low","weights":{})"),
          order(R"("id":"A","items":[{"sku":"s","quantity":"1"}],"priority":"low","weights":{})"),
          order(R"("id":"A","items":[{"sku":"s","quantity":true}],"priority":"low","weights":{})"),
          order(R"("id":"A","items":[{"sku":"s","quantity":2147483648}],"priority":"low",)"
                R"("weights":{})"),
          order(R"("id":"A","items":[{"sku":"s","quantity":-2147483649}],"priority":"low",)"
                R"("weights":{})"),
          order(R"("id":"A","items":[{"sku":"s","quantity":1.5}],"priority":"low","weights":{})"),
          order(R"("id":"A","items":[],"priority":"urgent","weights":{})"),
          order(R"("id":"A","items":[],"priority":null,"weights":{})"),
          order(R"("id":"A","items":[],"priority":"low","weights":{"w":"1"})"),
          order(R"("id":"A","items":[],"priority":"low","weights":{"w":null})"),
          order(R"("id":"A","items":[],"priority":"low","weights":[])"),
          order(R"("id":"A","items":[],"note":5,"priority":"low","weights":{})"),
          R"({"type":"shop/Other","id":"A","items":[],"priority":"low","weights":{}})",
          R"({"id":"A","items":[],"priority":"low","weights":{}})",
      });
}

TEST(Schema, TheValidatorAgreesWithTheReaderWhenUnknownMembersAreRefused) {
  json::MessageType<Order> strict("shop/Order");
  const auto strictItem = json::Struct<Item>()
                              .field("sku", &Item::sku)
                              .field("quantity", &Item::quantity)
                              .rejectUnknownMembers();
  strict.field("id", &Order::id)
      .field("items", &Order::items, strictItem)
      .field("note", &Order::note)
      .rejectUnknownMembers();
  expectAgreement(strict, {
                              order(R"("id":"A","items":[])"),
                              order(R"("id":"A","items":[],"note":"n")"),
                              order(R"("id":"A","items":[{"sku":"s","quantity":1}])"),
                              order(R"("id":"A","items":[],"extra":1)"),
                              order(R"("id":"A","items":[],"priority":"low")"),
                              order(R"("id":"A","items":[{"sku":"s","quantity":1,"x":0}])"),
                          });
}

// An AllKinds document: every member at a plain value, some replaced.
std::string allKinds(const std::map<std::string, std::string>& replaced = {}) {
  static const std::vector<std::pair<std::string, std::string>> members = {
      {"flag", "true"},
      {"i8", "0"},
      {"u8", "0"},
      {"i16", "0"},
      {"u16", "0"},
      {"i32", "0"},
      {"u32", "0"},
      {"i64", "0"},
      {"u64", "0"},
      {"f32", "0.5"},
      {"f64", "-1"},
      {"text", R"("t")"},
      {"priority", R"("low")"},
      {"item", R"({"sku":"s","quantity":1})"},
      {"priorities", "[]"},
      {"itemsByKey", "{}"},
      {"grid", "[]"},
      {"deep", "{}"},
      {"flags", "[]"},
  };
  std::string document = R"({"type":"test/AllKinds")";
  for (const auto& [name, value] : members) {
    const auto found = replaced.find(name);
    if (found != replaced.end() && found->second.empty()) continue;  // left out
    document += ",\"" + name + "\":" + (found == replaced.end() ? value : found->second);
  }
  for (const auto& [name, value] : replaced) {
    if (name == "maybeItem" || name == "twice") document += ",\"" + name + "\":" + value;
  }
  return document + "}";
}

TEST(Schema, TheValidatorAgreesWithTheReaderOnEveryMemberKindAndIntegerEdge) {
  const OrderTypes types;
  std::vector<std::string> documents = {
      allKinds(),
      allKinds({{"maybeItem", "null"}, {"twice", "null"}}),
      allKinds({{"maybeItem", R"({"sku":"m","quantity":0})"}, {"twice", "18446744073709551615"}}),
      allKinds({{"priorities", R"(["high","low"])"},
                {"itemsByKey", R"({"a/b":null,"c":{"sku":"x","quantity":2}})"},
                {"grid", "[[1,null],[],[null]]"},
                {"deep", R"({"k":[{"x":"normal"},{}]})"},
                {"flags", "[true,false]"}}),
      allKinds({{"flag", "1"}}),
      allKinds({{"flag", ""}}),
      allKinds({{"text", "null"}}),
      allKinds({{"f64", R"("1")"}}),
      allKinds({{"priorities", R"(["high",null])"}}),
      allKinds({{"itemsByKey", R"({"a":{"sku":"x"}})"}}),
      allKinds({{"itemsByKey", R"({"a":5})"}}),
      allKinds({{"grid", R"([[1,"2"]])"}}),
      allKinds({{"grid", "[1]"}}),
      allKinds({{"deep", R"({"k":[{"x":"none"}]})"}}),
      allKinds({{"flags", "[0]"}}),
      allKinds({{"maybeItem", "[]"}}),
      allKinds({{"twice", "-1"}}),
  };
  const std::vector<std::vector<std::string>> edges = {
      {"i8", "-128", "127", "-129", "128"},
      {"u8", "0", "255", "-1", "256"},
      {"i16", "-32768", "32767", "-32769", "32768"},
      {"u16", "0", "65535", "-1", "65536"},
      {"i32", "-2147483648", "2147483647", "-2147483649", "2147483648"},
      {"u32", "0", "4294967295", "-1", "4294967296"},
      {"i64", "-9223372036854775808", "9223372036854775807", "9223372036854775808"},
      {"u64", "0", "18446744073709551615", "-1", "18446744073709551616"},
  };
  for (const auto& edge : edges) {
    for (std::size_t i = 1; i < edge.size(); ++i)
      documents.push_back(allKinds({{edge[0], edge[i]}}));
  }

  expectAgreement(types.allKinds, documents);
}

// Documents the validator and the reader judge differently, each for its documented
// reason; `schemaValid` says which way.
void expectDifferences(const std::vector<std::pair<std::string, bool>>& documents) {
  const OrderTypes types;
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  types.allKinds.registerWith(*serializer);
  std::vector<std::string> texts;
  for (const auto& document : documents) texts.push_back(document.first);

  const std::vector<bool> schemaSays = validatedBySchema(types.allKinds.schema(), texts);

  ASSERT_EQ(schemaSays.size(), documents.size());
  for (std::size_t i = 0; i < documents.size(); ++i) {
    const bool schemaValid = documents[i].second;
    EXPECT_EQ(schemaSays[i], schemaValid) << texts[i];
    EXPECT_EQ(readerAccepts<AllKinds>(*serializer, texts[i]), !schemaValid) << texts[i];
  }
}

TEST(Schema, AnIntegerWrittenWithAFractionOrAnExponentIsValidButRefusedByTheReader) {
  expectDifferences({{allKinds({{"i32", "1.0"}}), true},
                     {allKinds({{"u8", "1e2"}}), true},
                     {allKinds({{"i64", "-2E0"}}), true}});
}

TEST(Schema, IntegerLiteralsBeyondThe64BitRangeAreValidNumbersButRefusedByTheParser) {
  expectDifferences({{allKinds({{"f64", "100000000000000000000"}}), true},
                     {allKinds({{"f32", "18446744073709551616"}}), true},
                     {allKinds({{"f32", "-9223372036854775810"}}), true}});
}

TEST(Schema, OnePastTheInt64MinimumIsInvalidButTheParserReadsItAsTheMinimum) {
  expectDifferences({{allKinds({{"i64", "-9223372036854775809"}}), false}});
}

// A shipment document: every required member at a plain value, some replaced ("" leaves
// one out), others added.
std::string shipment(const std::map<std::string, std::string>& replaced = {}) {
  static const std::vector<std::pair<std::string, std::string>> members = {
      {"id", R"("1")"},
      {"sku", R"("LAMP-01")"},
      {"parcels", R"([{"sku":"s"}])"},
      {"shippedAt", R"("2026-11-23T19:16:18Z")"},
      {"timeout", R"("1.5s")"},
      {"legs", "{}"},
      {"payload", R"("")"},
      {"tags", "[]"},
      {"groups", "[]"},
      {"position", "[0,0,0]"},
      {"counters", "{}"},
      {"shape", R"({"kind":"circle","radius":1})"},
      {"extraShapes", "[]"},
      {"shapesByName", "{}"},
  };
  std::string document = R"({"type":"test/Shipment")";
  for (const auto& [name, value] : members) {
    const auto found = replaced.find(name);
    if (found != replaced.end() && found->second.empty()) continue;
    document += ",\"" + name + "\":" + (found == replaced.end() ? value : found->second);
  }
  for (const auto& [name, value] : replaced) {
    const bool listed = std::any_of(members.begin(), members.end(),
                                    [&](const auto& member) { return member.first == name; });
    if (!listed) document += ",\"" + name + "\":" + value;
  }
  return document + "}";
}

std::string parcels(int count) {
  std::string out = "[";
  for (int i = 0; i < count; ++i) out += std::string(i > 0 ? "," : "") + R"({"sku":"s"})";
  return out + "]";
}

TEST(Schema, TheValidatorAgreesWithTheReaderOnEveryOptionAndNewKind) {
  const ShipmentTypes types;
  expectAgreement(types.shipment,
                  {
                      shipment(),
                      shipment({{"id", R"("18446744073709551615")"}}),
                      shipment({{"id", "18446744073709551615"}}),
                      shipment({{"id", R"("18446744073709551616")"}}),
                      shipment({{"id", R"("01")"}}),
                      shipment({{"id", R"("-0")"}}),
                      shipment({{"id", R"("-1")"}}),
                      shipment({{"id", "-1"}}),
                      shipment({{"id", R"("1e3")"}}),
                      shipment({{"id", ""}, {"shipmentId", R"("7")"}}),
                      shipment({{"shipmentId", "7"}}),
                      shipment({{"id", ""}}),
                      shipment({{"quantity", "1"}}),
                      shipment({{"quantity", "1000"}}),
                      shipment({{"quantity", "0"}}),
                      shipment({{"quantity", "1001"}}),
                      shipment({{"quantity", "null"}}),
                      shipment({{"quantity", "2.5"}}),
                      shipment({{"sku", R"("AB-1")"}}),
                      shipment({{"sku", R"("ab-1")"}}),
                      shipment({{"sku", R"("A-")"}}),
                      shipment({{"sku", R"("ABCDEFGHIJKLMNOPQR-1")"}}),
                      shipment({{"sku", R"("ABCDEFGHIJKLMNOPQ-1")"}}),
                      shipment({{"parcels", "[]"}}),
                      shipment({{"parcels", parcels(100)}}),
                      shipment({{"parcels", parcels(101)}}),
                      shipment({{"parcels", R"([{"sku":"s","quantity":2147483648}])"}}),
                      shipment({{"parcels", R"([{"sku":"s","colour":[1]}])"}}),
                      shipment({{"shippedAt", R"("2026-11-23T20:16:18.5+01:00")"}}),
                      shipment({{"shippedAt", R"("2024-02-29t00:00:00z")"}}),
                      shipment({{"shippedAt", R"("2000-02-29T23:59:60-23:59")"}}),
                      shipment({{"shippedAt", R"("2023-02-29T00:00:00Z")"}}),
                      shipment({{"shippedAt", R"("1900-02-29T00:00:00Z")"}}),
                      shipment({{"shippedAt", R"("2026-04-31T00:00:00Z")"}}),
                      shipment({{"shippedAt", R"("2026-11-23 19:16:18Z")"}}),
                      shipment({{"shippedAt", R"("2026-11-23T19:16:18")"}}),
                      shipment({{"shippedAt", R"("2026-11-23T19:16:18.1234567890Z")"}}),
                      shipment({{"shippedAt", R"("2026-11-23T19:16:18.1234567891Z")"}}),
                      shipment({{"shippedAt", R"("2026-11-23T19:16:18.Z")"}}),
                      shipment({{"shippedAt", "1795461378"}}),
                      shipment({{"deliveredAt", "null"}}),
                      shipment({{"deliveredAt", R"("2026-11-23T19:16:18+24:00")"}}),
                      shipment({{"timeout", R"("-0.001s")"}}),
                      shipment({{"timeout", R"("1.000000000s")"}}),
                      shipment({{"timeout", R"("1.0001s")"}}),
                      shipment({{"timeout", R"("1.0000000000s")"}}),
                      shipment({{"timeout", R"("1.5")"}}),
                      shipment({{"timeout", R"(".5s")"}}),
                      shipment({{"legs", R"({"a":"0.000000001s","b":"-12s"})"}}),
                      shipment({{"legs", R"({"a":"1e3s"})"}}),
                      shipment({{"payload", R"("AAEC/w==")"}}),
                      shipment({{"payload", R"("AR==")"}}),
                      shipment({{"payload", R"("AAE")"}}),
                      shipment({{"payload", R"("AA-_")"}}),
                      shipment({{"tags", R"(["a","b"])"}}),
                      shipment({{"tags", R"(["a","a"])"}}),
                      shipment({{"tags", R"(["\u00e9","é"])"}}),
                      shipment({{"groups", "[[1,2],[1,2]]"}}),
                      shipment({{"groups", "[[1,1]]"}}),
                      shipment({{"groups", "[[0,-0]]"}}),
                      shipment({{"position", "[1,2]"}}),
                      shipment({{"position", "[1,2,3,4]"}}),
                      shipment({{"position", R"([1,"2",3])"}}),
                      shipment({{"counters", R"({"a":"-9223372036854775808","b":1})"}}),
                      shipment({{"counters", R"({"a":"9223372036854775808"})"}}),
                      shipment({{"counters", R"({"a":"1.0"})"}}),
                      shipment({{"ratio", "0"}}),
                      shipment({{"ratio", "1"}}),
                      shipment({{"ratio", "1.5"}}),
                      shipment({{"ratio", "-0.1"}}),
                      shipment({{"shape", R"({"kind":"square","side":1,"label":null})"}}),
                      shipment({{"shape", R"({"radius":1,"kind":"circle","extra":2})"}}),
                      shipment({{"shape", R"({"kind":"triangle"})"}}),
                      shipment({{"shape", R"({"radius":1})"}}),
                      shipment({{"shape", R"({"kind":"circle"})"}}),
                      shipment({{"shape", R"({"kind":1,"radius":1})"}}),
                      shipment({{"extraShapes",
                                 R"([{"kind":"square","side":1},{"kind":"circle","radius":0}])"}}),
                      shipment({{"extraShapes", R"([{"kind":"square","radius":1}])"}}),
                      shipment({{"maybeShape", "null"}}),
                      shipment({{"shapesByName", R"({"a":{"kind":"circle","radius":"1"}})"}}),
                      shipment({{"unknownToThisVersion", R"({"x":[true]})"}}),
                  });
}

// Shipment documents the validator and the reader judge differently, each for its
// documented reason; `schemaValid` says which way.
void expectShipmentDifferences(const std::vector<std::pair<std::string, bool>>& documents) {
  const ShipmentTypes types;
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  types.shipment.registerWith(*serializer);
  std::vector<std::string> texts;
  for (const auto& document : documents) texts.push_back(document.first);
  const std::vector<bool> schemaSays = validatedBySchema(types.shipment.schema(), texts);
  ASSERT_EQ(schemaSays.size(), documents.size());
  for (std::size_t i = 0; i < documents.size(); ++i) {
    EXPECT_EQ(schemaSays[i], documents[i].second) << texts[i];
    EXPECT_EQ(readerAccepts<Shipment>(*serializer, texts[i]), !documents[i].second) << texts[i];
  }
}

TEST(Schema, TimesAndDurationsBeyondTheirTypesRangeMatchThePatternButAreRefused) {
  expectShipmentDifferences({{shipment({{"shippedAt", R"("9999-12-31T23:59:59Z")"}}), true},
                             {shipment({{"shippedAt", R"("1677-09-21T00:12:43Z")"}}), true},
                             {shipment({{"timeout", R"("9223372036854776s")"}}), true},
                             {shipment({{"legs", R"({"a":"9223372037s"})"}}), true}});
}

TEST(Schema, PythonsDollarAlsoMatchesBeforeAFinalLineFeed) {
  // ECMAScript's "$" (what JSON Schema specifies and the reader follows) matches only at
  // the end; Python's regular expressions, which the validator uses, also match before a
  // final "\n".
  expectShipmentDifferences({{shipment({{"id", R"("1\n")"}}), true},
                             {shipment({{"sku", R"("LAMP-01\n")"}}), true},
                             {shipment({{"timeout", R"("1s\n")"}}), true}});
}

}  // namespace
}  // namespace connector::typestest

// json::Api: the OpenAPI 3.1.0 document of the shop's operations: every operation's
// request and answer schemas, examples that the reader (and a real JSON Schema validator)
// accepts, the error answers per status, bearer security with and without tokens, and
// every declaration error with its exact text.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "shop/ShopMessages.hpp"
#include "shop/ShopTypes.hpp"
#include "support/ExpectThrow.hpp"
#include "types/ReadBothWays.hpp"
#include "types/SchemaValidator.hpp"

namespace connector::typestest {
namespace {

using Poco::JSON::Object;

std::string text(const Poco::Dynamic::Var& value) {
  std::ostringstream out;
  Poco::JSON::Stringifier::stringify(value, out);
  return out.str();
}

json::Api shopApi() {
  const shop::ShopTypes& types = shop::shopTypes();
  json::Api api("shop", "1.0.0");
  api.operation(shop::kReserveItem, types.reserveItem, types.reservation,
                "Reserve pieces of an item");
  api.operation(shop::kCancelOrder, types.cancelOrder, types.orderCancelled,
                "Cancel a reservation");
  return api;
}

Object::Ptr at(const Object::Ptr& object, std::initializer_list<const char*> path) {
  Object::Ptr here = object;
  for (const char* key : path) {
    here = here->getObject(key);
    if (here.isNull()) {
      ADD_FAILURE() << "no object at " << key;
      return new Object;
    }
  }
  return here;
}

std::vector<std::string> keys(const Object::Ptr& object) {
  return object->getNames();  // in the order the members were set
}

TEST(Api, TheDocumentIsOpenApi310WithTitleAndVersion) {
  const Object::Ptr document = shopApi().openApi();

  EXPECT_EQ(document->getValue<std::string>("openapi"), "3.1.0");
  EXPECT_EQ(text(document->get("info")), R"({"title":"shop","version":"1.0.0"})");
  EXPECT_EQ(keys(document), (std::vector<std::string>{"openapi", "info", "paths", "components"}));
}

TEST(Api, EachOperationIsAPostAtItsAddressWithItsRequestAndAnswerSchemas) {
  const Object::Ptr document = shopApi().openApi();

  EXPECT_EQ(keys(document->getObject("paths")),
            (std::vector<std::string>{"/shop/ReserveItem", "/shop/CancelOrder"}));
  const Object::Ptr reserve = at(document, {"paths", "/shop/ReserveItem", "post"});
  EXPECT_EQ(reserve->getValue<std::string>("operationId"), "shop/ReserveItem");
  EXPECT_EQ(reserve->getValue<std::string>("summary"), "Reserve pieces of an item");
  EXPECT_TRUE(at(reserve, {"requestBody"})->getValue<bool>("required"));
  EXPECT_EQ(text(at(reserve, {"requestBody", "content", "application/json"})->get("schema")),
            R"({"$ref":"#/components/schemas/shop.ReserveItem"})");
  EXPECT_EQ(text(at(reserve, {"responses", "200", "content", "application/json"})->get("schema")),
            R"({"$ref":"#/components/schemas/shop.Reservation"})");
  const Object::Ptr cancel = at(document, {"paths", "/shop/CancelOrder", "post"});
  EXPECT_EQ(text(at(cancel, {"responses", "200", "content", "application/json"})->get("schema")),
            R"({"$ref":"#/components/schemas/shop.OrderCancelled"})");
}

TEST(Api, ComponentSchemasAreTheDeclaredSchemasKeyedWithDotsForSlashes) {
  const shop::ShopTypes& types = shop::shopTypes();
  const Object::Ptr schemas = at(shopApi().openApi(), {"components", "schemas"});

  EXPECT_EQ(keys(schemas),
            (std::vector<std::string>{"shop.ReserveItem", "shop.Reservation", "shop.CancelOrder",
                                      "shop.OrderCancelled", "Error"}));
  EXPECT_EQ(text(schemas->get("shop.ReserveItem")), text(types.reserveItem.schema()));
  EXPECT_EQ(text(schemas->get("shop.Reservation")), text(types.reservation.schema()));
  EXPECT_EQ(text(schemas->get("shop.CancelOrder")), text(types.cancelOrder.schema()));
  EXPECT_EQ(text(schemas->get("shop.OrderCancelled")), text(types.orderCancelled.schema()));
  EXPECT_EQ(text(schemas->get("Error")),
            R"({"title":"Error","description":"Why the request was not answered",)"
            R"("type":"object","properties":{"error":{"type":"string"}},"required":["error"]})");
}

TEST(Api, ATypeUsedTwiceHasOneSchema) {
  const shop::ShopTypes& types = shop::shopTypes();
  json::Api api("shop", "2");
  api.operation("a", types.reserveItem, types.reservation, "first");
  api.operation("b", types.reserveItem, types.reservation, "second");

  EXPECT_EQ(keys(at(api.openApi(), {"components", "schemas"})),
            (std::vector<std::string>{"shop.ReserveItem", "shop.Reservation", "Error"}));
}

TEST(Api, TheExampleIsTheDefaultRequestWithTypeFirst) {
  const Object::Ptr reserve =
      at(shopApi().openApi(),
         {"paths", "/shop/ReserveItem", "post", "requestBody", "content", "application/json"});

  EXPECT_EQ(text(reserve->get("example")), R"({"type":"shop/ReserveItem","sku":"","quantity":0})");
  EXPECT_EQ(shopApi().operations()[1].example, R"({"type":"shop/CancelOrder","orderId":""})");
}

TEST(Api, BothReadersAcceptEveryExample) {
  const shop::ShopTypes& types = shop::shopTypes();
  const json::Api api = shopApi();

  ASSERT_EQ(api.operations().size(), 2U);
  EXPECT_EQ(ReadBothWays(types.reserveItem).refusal(api.operations()[0].example), "(accepted)");
  EXPECT_EQ(ReadBothWays(types.cancelOrder).refusal(api.operations()[1].example), "(accepted)");
  EXPECT_NE(dynamic_cast<shop::ReserveItem*>(
                ReadBothWays(types.reserveItem).read(api.operations()[0].example).get()),
            nullptr);
}

TEST(Api, EveryExampleValidatesAgainstItsRequestSchema) {
  const Object::Ptr document = shopApi().openApi();
  const Object::Ptr schemas = at(document, {"components", "schemas"});
  for (const auto& [path, name] :
       {std::pair<const char*, const char*>{"/shop/ReserveItem", "shop.ReserveItem"},
        {"/shop/CancelOrder", "shop.CancelOrder"}}) {
    const Object::Ptr media =
        at(document, {"paths", path, "post", "requestBody", "content", "application/json"});
    EXPECT_EQ(validatedBySchema(schemas->getObject(name), {text(media->get("example"))}),
              std::vector<bool>{true})
        << path;
  }
}

TEST(Api, ARequestWhoseDefaultIsNotReadBackHasNoExample) {
  json::MessageType<shop::ReserveItem> strict("shop/ReserveItem");
  strict.field("sku", &shop::ReserveItem::sku, json::Field().minLength(1))
      .field("quantity", &shop::ReserveItem::quantity);
  json::Api api("shop", "1");
  api.operation("shop/ReserveItem", strict, shop::shopTypes().reservation, "strict");

  EXPECT_EQ(api.operations()[0].example, "");
  EXPECT_FALSE(at(api.openApi(), {"paths", "/shop/ReserveItem", "post", "requestBody", "content",
                                  "application/json"})
                   ->has("example"));
}

enum class Mood { Calm = 1, Busy = 2 };
struct MoodRequest : Message {
  Mood mood{};  // 0: a value without a name, which cannot be written
};

TEST(Api, ARequestWhoseDefaultCannotBeWrittenHasNoExample) {
  json::MessageType<MoodRequest> moods("test/Mood");
  moods.field("mood", &MoodRequest::mood,
              json::Enum<Mood>({{Mood::Calm, "calm"}, {Mood::Busy, "busy"}}));
  json::Api api("moods", "1");
  api.operation("test/mood", moods, shop::shopTypes().reservation, "mood");

  EXPECT_EQ(api.operations()[0].example, "");
  EXPECT_NE(api.operations()[0].requestSchema.find(R"("enum":["calm","busy"])"), std::string::npos)
      << api.operations()[0].requestSchema;
}

TEST(Api, WithoutTokensTheErrorsAre400And404And413And415And503And504And500) {
  const Object::Ptr document = shopApi().openApi();
  const Object::Ptr responses = at(document, {"paths", "/shop/ReserveItem", "post", "responses"});

  EXPECT_EQ(keys(responses),
            (std::vector<std::string>{"200", "400", "404", "413", "415", "503", "504", "500"}));
  const std::vector<std::pair<std::string, std::string>> named = {
      {"400", "BadRequest"},           {"404", "NotFound"},           {"413", "PayloadTooLarge"},
      {"415", "UnsupportedMediaType"}, {"503", "ServiceUnavailable"}, {"504", "GatewayTimeout"},
      {"500", "InternalServerError"}};
  for (const auto& [status, name] : named) {
    EXPECT_EQ(text(responses->get(status)), R"({"$ref":"#/components/responses/)" + name + R"("})");
    const Object::Ptr response = at(document, {"components", "responses", name.c_str()});
    EXPECT_FALSE(response->getValue<std::string>("description").empty()) << name;
    EXPECT_EQ(text(at(response, {"content", "application/json"})->get("schema")),
              R"({"$ref":"#/components/schemas/Error"})");
  }
  EXPECT_FALSE(at(document, {"components", "responses"})->has("Unauthorized"));
  EXPECT_FALSE(document->has("security"));
  EXPECT_FALSE(document->getObject("components")->has("securitySchemes"));
}

TEST(Api, WithBearerTokensEveryOperationAsksForOneAndMayAnswer401) {
  const Object::Ptr document = shopApi().openApi(json::Api::Security::BearerTokens);

  EXPECT_EQ(text(document->get("security")), R"([{"bearer":[]}])");
  EXPECT_EQ(text(at(document, {"components"})->get("securitySchemes")),
            R"({"bearer":{"type":"http","scheme":"bearer"}})");
  for (const char* path : {"/shop/ReserveItem", "/shop/CancelOrder"}) {
    const Object::Ptr responses = at(document, {"paths", path, "post", "responses"});
    EXPECT_EQ(keys(responses), (std::vector<std::string>{"200", "400", "401", "404", "413", "415",
                                                         "503", "504", "500"}));
    EXPECT_EQ(text(responses->get("401")), R"({"$ref":"#/components/responses/Unauthorized"})");
  }
  EXPECT_EQ(
      text(at(document, {"components", "responses", "Unauthorized", "content", "application/json"})
               ->get("schema")),
      R"({"$ref":"#/components/schemas/Error"})");
}

TEST(Api, EachCallMakesANewDocument) {
  const json::Api api = shopApi();
  const Object::Ptr first = api.openApi();
  first->getObject("info")->set("title", "changed");

  EXPECT_EQ(at(api.openApi(), {"info"})->getValue<std::string>("title"), "shop");
}

TEST(Api, AnEmptyApiHasNoPathsAndTheErrorSchema) {
  EXPECT_EQ(text(json::Api("none", "0").openApi()->get("paths")), "{}");
}

TEST(Api, DeclaringAnAddressTwiceThrowsAndKeepsTheFirst) {
  const shop::ShopTypes& types = shop::shopTypes();
  json::Api api = shopApi();

  EXPECT_THROW_TEXT(api.operation(shop::kReserveItem, types.cancelOrder, types.orderCancelled, "x"),
                    std::invalid_argument, "address \"shop/ReserveItem\" is declared twice");
  ASSERT_EQ(api.operations().size(), 2U);
  EXPECT_EQ(api.operations()[0].requestType, "shop/ReserveItem");
}

TEST(Api, AddressesThatNoPathCanHoldAreRefused) {
  const shop::ShopTypes& types = shop::shopTypes();
  json::Api api("shop", "1");

  EXPECT_THROW_TEXT(api.operation("", types.reserveItem, types.reservation, ""),
                    std::invalid_argument, "an operation's address is empty");
  EXPECT_THROW_TEXT(api.operation("/shop/X", types.reserveItem, types.reservation, ""),
                    std::invalid_argument, "address \"/shop/X\" starts with '/'");
  EXPECT_THROW_TEXT(api.operation("shop/{id}", types.reserveItem, types.reservation, ""),
                    std::invalid_argument, "address \"shop/{id}\": '{' cannot stand in a URL path");
  EXPECT_THROW_TEXT(api.operation("a b", types.reserveItem, types.reservation, ""),
                    std::invalid_argument, "address \"a b\": ' ' cannot stand in a URL path");
  EXPECT_THROW_TEXT(api.operation("a?b", types.reserveItem, types.reservation, ""),
                    std::invalid_argument, "address \"a?b\": '?' cannot stand in a URL path");
  EXPECT_THROW_TEXT(api.operation("a\tb", types.reserveItem, types.reservation, ""),
                    std::invalid_argument, "address \"a\tb\": '\\x09' cannot stand in a URL path");
  EXPECT_TRUE(api.operations().empty());
}

TEST(Api, TypeNamesThatGiveNoComponentNameAreRefused) {
  json::MessageType<shop::CancelOrder> spaced("shop/Cancel Order");
  json::Api api("shop", "1");

  EXPECT_THROW_TEXT(
      api.operation("cancel", spaced, shop::shopTypes().orderCancelled, ""), std::invalid_argument,
      "type \"shop/Cancel Order\" gives no component name: only letters, digits, '.', '-', '_' "
      "and '/' are allowed");
  EXPECT_THROW_TEXT(json::Api::componentName(""), std::invalid_argument,
                    "type \"\" gives no component name: only letters, digits, '.', '-', '_' "
                    "and '/' are allowed");
  EXPECT_EQ(json::Api::componentName("a/b/c-d_e.f"), "a.b.c-d_e.f");
  EXPECT_TRUE(api.operations().empty());
}

TEST(Api, TwoTypeNamesWithOneComponentNameAreRefused) {
  json::MessageType<shop::CancelOrder> dotted("shop.CancelOrder");
  const shop::ShopTypes& types = shop::shopTypes();
  json::Api api = shopApi();

  EXPECT_THROW_TEXT(api.operation("dotted", dotted, types.orderCancelled, ""),
                    std::invalid_argument,
                    "types \"shop/CancelOrder\" and \"shop.CancelOrder\" both give the component "
                    "name \"shop.CancelOrder\"");
  json::MessageType<shop::OrderCancelled> answer("shop.CancelOrder");
  json::Api single("shop", "1");
  EXPECT_THROW_TEXT(single.operation("x", types.cancelOrder, answer, ""), std::invalid_argument,
                    "types \"shop/CancelOrder\" and \"shop.CancelOrder\" both give the component "
                    "name \"shop.CancelOrder\"");
  EXPECT_EQ(api.operations().size(), 2U);
}

TEST(Api, OneTypeNameWithTwoSchemasIsRefused) {
  json::MessageType<shop::CancelOrder> other("shop/CancelOrder");
  other.field("orderId", &shop::CancelOrder::orderId).rejectUnknownMembers();
  json::Api api = shopApi();

  EXPECT_THROW_TEXT(api.operation("other", other, shop::shopTypes().orderCancelled, ""),
                    std::invalid_argument,
                    "type \"shop/CancelOrder\" is declared twice with different schemas");
  EXPECT_EQ(api.operations().size(), 2U);
}

TEST(Api, ATypeNamedErrorIsRefused) {
  json::MessageType<shop::OrderCancelled> error("Error");
  json::Api api("shop", "1");

  EXPECT_THROW_TEXT(api.operation("x", shop::shopTypes().cancelOrder, error, ""),
                    std::invalid_argument,
                    "type \"Error\" takes the name of the error answers' schema");
}

}  // namespace
}  // namespace connector::typestest

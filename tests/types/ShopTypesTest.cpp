// The shop example's declared types: what GET /schemas is to serve, and the texts a
// client of the shop's bridge sees for a malformed request.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "shop/ShopMessages.hpp"
#include "shop/ShopNodes.hpp"
#include "shop/ShopTypes.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::typestest {
namespace {

TEST(ShopTypes, TheSchemasNameEveryShopTypeWithItsSchema) {
  Poco::JSON::Object::Ptr schemas = shop::shopSchemas();
  std::ostringstream reserveItem;
  schemas->getObject("shop/ReserveItem")->stringify(reserveItem);

  std::vector<std::string> names;
  for (const auto& entry : *schemas) names.push_back(entry.first);
  EXPECT_EQ(names, (std::vector<std::string>{"shop/CancelOrder", "shop/OrderCancelled",
                                             "shop/Reservation", "shop/ReserveItem"}));
  EXPECT_EQ(
      reserveItem.str(),
      R"({"$schema":"https://json-schema.org/draft/2020-12/schema",)"
      R"("title":"shop/ReserveItem","type":"object","properties":{"type":)"
      R"({"const":"shop/ReserveItem"},"sku":{"type":"string"},"quantity":{"type":"integer",)"
      R"("minimum":-2147483648,"maximum":2147483647}},"required":["type","sku","quantity"]})");
}

TEST(ShopTypes, AReservationCrossesTheBridgeInDeclarationOrder) {
  shop::ShopNodes nodes;
  std::ostringstream out;

  nodes.clientSerializer->serialize(std::make_unique<shop::Reservation>("R-1", "LAMP-01", 2, true),
                                    out);

  EXPECT_EQ(out.str(), R"({"reservationId":"R-1","sku":"LAMP-01","quantity":2,"accepted":true,)"
                       R"("type":"shop/Reservation"})");
}

TEST(ShopTypes, ARequestWithoutAQuantityIsRefusedNamingTheMember) {
  shop::ShopNodes nodes;
  Poco::JSON::Parser parser;
  Poco::JSON::Object::Ptr request = parser.parse(R"({"type":"shop/ReserveItem","sku":"LAMP-01"})")
                                        .extract<Poco::JSON::Object::Ptr>();

  EXPECT_THROW_TEXT(nodes.farSerializer->deserialize(std::move(request)), std::invalid_argument,
                    R"(Parsing error for type 'shop/ReserveItem': member "/quantity" is missing)");
}

}  // namespace
}  // namespace connector::typestest

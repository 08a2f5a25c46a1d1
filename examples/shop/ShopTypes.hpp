// The shop's message types, each declared once (json::MessageType): their converters for
// a serializer's registry and their JSON Schemas, under the names "shop/ReserveItem",
// "shop/Reservation", "shop/CancelOrder" and "shop/OrderCancelled".
//
//   auto serializer = std::make_shared<connector::json::JsonSerializerImpl>();
//   shop::registerShopTypes(*serializer);
//   std::ostringstream out;
//   serializer->serialize(std::make_unique<shop::ReserveItem>("LAMP-01", 2), out);
//   // {"sku":"LAMP-01","quantity":2,"type":"shop/ReserveItem"}
//   Poco::JSON::Object::Ptr schemas = shop::shopSchemas();   // for GET /schemas
//   options.api = std::make_shared<connector::json::Api>(shop::shopApi());   // /openapi.json
//
// Reading refuses a request whose members are missing or of the wrong kind with the
// declared types' texts, e.g. deserialize(object) throws std::invalid_argument
// "Parsing error for type 'shop/ReserveItem': member \"/quantity\" is missing".
// Unknown members are ignored.
//
// Thread-safety: the declarations are built once, on first use, and then only read;
// registration locks the serializer's registry.
#pragma once

#include <Poco/JSON/Object.h>

#include <connector/json.hpp>

#include "shop/ShopMessages.hpp"

namespace shop {

struct ShopTypes {
  connector::json::MessageType<ReserveItem> reserveItem{"shop/ReserveItem"};
  connector::json::MessageType<Reservation> reservation{"shop/Reservation"};
  connector::json::MessageType<CancelOrder> cancelOrder{"shop/CancelOrder"};
  connector::json::MessageType<OrderCancelled> orderCancelled{"shop/OrderCancelled"};
};

// The shop's declarations, built on first use.
const ShopTypes& shopTypes();

// Registers the four types on serializer (replacing converters of the same names).
void registerShopTypes(connector::json::JsonSerializer& serializer);

// {"shop/ReserveItem":<schema>,"shop/Reservation":<schema>,"shop/CancelOrder":<schema>,
//  "shop/OrderCancelled":<schema>}: the JSON Schema (draft 2020-12) of each type the
// shop's services take or answer with. A new object on every call.
Poco::JSON::Object::Ptr shopSchemas();

// The shop's operations ("shop" 1.0.0): "shop/ReserveItem" takes a shop/ReserveItem and
// answers a shop/Reservation, "shop/CancelOrder" takes a shop/CancelOrder and answers a
// shop/OrderCancelled. For GET /openapi.json and /docs, and for NATS discovery.
connector::json::Api shopApi();

}  // namespace shop

// registerShopTypes: registers the shop's message types and their JSON converters on a
// serializer, under the names "shop/ReserveItem", "shop/Reservation", "shop/CancelOrder"
// and "shop/OrderCancelled".
//
//   auto serializer = std::make_shared<connector::json::JsonSerializerImpl>();
//   shop::registerShopTypes(*serializer);
//   std::ostringstream out;
//   serializer->serialize(std::make_unique<shop::ReserveItem>("LAMP-01", 2), out);
//   // {"sku":"LAMP-01","quantity":2,"type":"shop/ReserveItem"}
//
// The converters throw std::invalid_argument "shop/ReserveItem needs the member 'sku'"
// (and likewise for every member) when a JSON object lacks a member.
//
// Thread-safety: registration is thread-safe (the serializer locks its registry); the
// converters keep no state.
#pragma once

#include <connector/json.hpp>

namespace shop {

void registerShopTypes(connector::json::JsonSerializer& serializer);

}  // namespace shop

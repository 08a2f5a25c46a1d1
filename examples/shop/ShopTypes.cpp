#include "shop/ShopTypes.hpp"

namespace shop {

namespace {

ShopTypes declare() {
  ShopTypes types;
  types.reserveItem.field("sku", &ReserveItem::sku).field("quantity", &ReserveItem::quantity);
  types.reservation.field("reservationId", &Reservation::reservationId)
      .field("sku", &Reservation::sku)
      .field("quantity", &Reservation::quantity)
      .field("accepted", &Reservation::accepted);
  types.cancelOrder.field("orderId", &CancelOrder::orderId);
  types.orderCancelled.field("orderId", &OrderCancelled::orderId);
  return types;
}

}  // namespace

const ShopTypes& shopTypes() {
  static const ShopTypes types = declare();
  return types;
}

void registerShopTypes(connector::json::JsonSerializer& serializer) {
  const ShopTypes& types = shopTypes();
  types.reserveItem.registerWith(serializer);
  types.reservation.registerWith(serializer);
  types.cancelOrder.registerWith(serializer);
  types.orderCancelled.registerWith(serializer);
}

Poco::JSON::Object::Ptr shopSchemas() {
  const ShopTypes& types = shopTypes();
  Poco::JSON::Object::Ptr schemas = new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
  schemas->set(types.reserveItem.name(), types.reserveItem.schema());
  schemas->set(types.reservation.name(), types.reservation.schema());
  schemas->set(types.cancelOrder.name(), types.cancelOrder.schema());
  schemas->set(types.orderCancelled.name(), types.orderCancelled.schema());
  return schemas;
}

connector::json::Api shopApi() {
  const ShopTypes& types = shopTypes();
  connector::json::Api api("shop", "1.0.0");
  api.operation(kReserveItem, types.reserveItem, types.reservation,
                "Reserve pieces of an item (answers accepted false when too few are left)");
  api.operation(kCancelOrder, types.cancelOrder, types.orderCancelled,
                "Cancel a reservation by its id");
  return api;
}

}  // namespace shop

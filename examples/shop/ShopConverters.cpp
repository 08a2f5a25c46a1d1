#include "shop/ShopConverters.hpp"

#include <memory>
#include <stdexcept>
#include <string>

#include <Poco/JSON/Object.h>

#include "shop/ShopMessages.hpp"

namespace shop {
namespace {

using ObjectPtr = Poco::SharedPtr<Poco::JSON::Object>;
using MessagePtr = std::unique_ptr<connector::Message>;

// Members keep the order in which the converter sets them, so the JSON reads naturally.
ObjectPtr newObject() { return new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER); }

template <typename T>
T member(const ObjectPtr& object, const char* typeName, const char* name) {
  if (!object->has(name)) {
    throw std::invalid_argument(std::string(typeName) + " needs the member '" + name + "'");
  }
  return object->getValue<T>(name);
}

template <typename M>
const M& as(const MessagePtr& message) {
  return dynamic_cast<const M&>(*message);
}

}  // namespace

void registerShopTypes(connector::json::JsonSerializer& serializer) {
  serializer.registerType(
      "shop/ReserveItem", typeid(ReserveItem),
      [](const MessagePtr& message) {
        const auto& request = as<ReserveItem>(message);
        ObjectPtr object = newObject();
        object->set("sku", request.sku);
        object->set("quantity", request.quantity);
        return object;
      },
      [](ObjectPtr object) -> MessagePtr {
        return std::make_unique<ReserveItem>(member<std::string>(object, "shop/ReserveItem", "sku"),
                                             member<int>(object, "shop/ReserveItem", "quantity"));
      });

  serializer.registerType(
      "shop/Reservation", typeid(Reservation),
      [](const MessagePtr& message) {
        const auto& answer = as<Reservation>(message);
        ObjectPtr object = newObject();
        object->set("reservationId", answer.reservationId);
        object->set("sku", answer.sku);
        object->set("quantity", answer.quantity);
        object->set("accepted", answer.accepted);
        return object;
      },
      [](ObjectPtr object) -> MessagePtr {
        return std::make_unique<Reservation>(
            member<std::string>(object, "shop/Reservation", "reservationId"),
            member<std::string>(object, "shop/Reservation", "sku"),
            member<int>(object, "shop/Reservation", "quantity"),
            member<bool>(object, "shop/Reservation", "accepted"));
      });

  serializer.registerType(
      "shop/CancelOrder", typeid(CancelOrder),
      [](const MessagePtr& message) {
        ObjectPtr object = newObject();
        object->set("orderId", as<CancelOrder>(message).orderId);
        return object;
      },
      [](ObjectPtr object) -> MessagePtr {
        return std::make_unique<CancelOrder>(
            member<std::string>(object, "shop/CancelOrder", "orderId"));
      });

  serializer.registerType(
      "shop/OrderCancelled", typeid(OrderCancelled),
      [](const MessagePtr& message) {
        ObjectPtr object = newObject();
        object->set("orderId", as<OrderCancelled>(message).orderId);
        return object;
      },
      [](ObjectPtr object) -> MessagePtr {
        return std::make_unique<OrderCancelled>(
            member<std::string>(object, "shop/OrderCancelled", "orderId"));
      });
}

}  // namespace shop

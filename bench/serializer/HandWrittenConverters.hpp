// The baseline of the declared-types bench: converters written by hand with Poco, as the
// shop example had them before its types were declared, and the same for the nested
// Order of the declared types' documentation.
//
//   serializer->registerType("shop/ReserveItem", typeid(shop::ReserveItem),
//                            handwritten::reserveItemToJson, handwritten::reserveItemFromJson);
//
// Thread-safety: stateless functions.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <connector/json.hpp>

#include "shop/ShopMessages.hpp"

namespace handwritten {

using ObjectPtr = Poco::SharedPtr<Poco::JSON::Object>;
using MessagePtr = std::unique_ptr<connector::Message>;

struct Item {
  std::string sku;
  int quantity = 0;
};
enum class Priority { Low, Normal, High };
struct Order : connector::Message {
  std::string id;
  std::vector<Item> items;
  std::optional<std::string> note;
  Priority priority = Priority::Normal;
  std::map<std::string, double> weights;
};

inline ObjectPtr newObject() { return new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER); }

// The member, or std::invalid_argument "<type> needs the member '<name>'".
template <typename T>
T member(const ObjectPtr& object, const char* typeName, const char* name) {
  if (!object->has(name)) {
    throw std::invalid_argument(std::string(typeName) + " needs the member '" + name + "'");
  }
  return object->getValue<T>(name);
}

inline ObjectPtr reserveItemToJson(const MessagePtr& message) {
  const auto& request = dynamic_cast<const shop::ReserveItem&>(*message);
  ObjectPtr object = newObject();
  object->set("sku", request.sku);
  object->set("quantity", request.quantity);
  return object;
}

inline MessagePtr reserveItemFromJson(ObjectPtr object) {
  return std::make_unique<shop::ReserveItem>(member<std::string>(object, "shop/ReserveItem", "sku"),
                                             member<int>(object, "shop/ReserveItem", "quantity"));
}

inline ObjectPtr reservationToJson(const MessagePtr& message) {
  const auto& answer = dynamic_cast<const shop::Reservation&>(*message);
  ObjectPtr object = newObject();
  object->set("reservationId", answer.reservationId);
  object->set("sku", answer.sku);
  object->set("quantity", answer.quantity);
  object->set("accepted", answer.accepted);
  return object;
}

inline MessagePtr reservationFromJson(ObjectPtr object) {
  return std::make_unique<shop::Reservation>(
      member<std::string>(object, "shop/Reservation", "reservationId"),
      member<std::string>(object, "shop/Reservation", "sku"),
      member<int>(object, "shop/Reservation", "quantity"),
      member<bool>(object, "shop/Reservation", "accepted"));
}

inline const char* priorityName(Priority priority) {
  switch (priority) {
    case Priority::Low:
      return "low";
    case Priority::Normal:
      return "normal";
    case Priority::High:
      return "high";
  }
  throw std::invalid_argument("priority without a name");
}

inline Priority priorityFrom(const std::string& name) {
  if (name == "low") return Priority::Low;
  if (name == "normal") return Priority::Normal;
  if (name == "high") return Priority::High;
  throw std::invalid_argument("unknown priority '" + name + "'");
}

inline ObjectPtr orderToJson(const MessagePtr& message) {
  const auto& order = dynamic_cast<const Order&>(*message);
  ObjectPtr object = newObject();
  object->set("id", order.id);
  Poco::JSON::Array::Ptr items = new Poco::JSON::Array;
  for (const Item& item : order.items) {
    ObjectPtr json = newObject();
    json->set("sku", item.sku);
    json->set("quantity", item.quantity);
    items->add(json);
  }
  object->set("items", items);
  if (order.note) object->set("note", *order.note);
  object->set("priority", std::string(priorityName(order.priority)));
  ObjectPtr weights = new Poco::JSON::Object;
  for (const auto& [key, weight] : order.weights) weights->set(key, weight);
  object->set("weights", weights);
  return object;
}

inline MessagePtr orderFromJson(ObjectPtr object) {
  auto order = std::make_unique<Order>();
  order->id = member<std::string>(object, "shop/Order", "id");
  Poco::JSON::Array::Ptr items = object->getArray("items");
  if (items.isNull()) throw std::invalid_argument("shop/Order needs the member 'items'");
  for (std::size_t i = 0; i < items->size(); ++i) {
    ObjectPtr item = items->getObject(static_cast<unsigned>(i));
    if (item.isNull()) throw std::invalid_argument("shop/Order needs objects in 'items'");
    order->items.push_back({member<std::string>(item, "shop/Item", "sku"),
                            member<int>(item, "shop/Item", "quantity")});
  }
  if (object->has("note") && !object->isNull("note")) {
    order->note = object->getValue<std::string>("note");
  }
  order->priority = priorityFrom(member<std::string>(object, "shop/Order", "priority"));
  ObjectPtr weights = object->getObject("weights");
  if (weights.isNull()) throw std::invalid_argument("shop/Order needs the member 'weights'");
  for (const auto& [key, weight] : *weights) order->weights[key] = weight.convert<double>();
  return order;
}

}  // namespace handwritten

// The typed messages of the shop example: an inventory that reserves items and cancels
// orders. They are plain C++ classes; ShopTypes.hpp declares them for JSON.
//
//   std::unique_ptr<connector::Message> request = std::make_unique<shop::ReserveItem>("LAMP-01",
//   2); auto answer = clientNode->deliver(std::move(request),
//   connector::Address(shop::kReserveItem)); auto& reservation =
//   dynamic_cast<shop::Reservation&>(*answer.get());
//
// Thread-safety: plain values, owned by one holder at a time.
#pragma once

#include <string>
#include <utility>

#include <connector/json.hpp>

namespace shop {

// Addresses served by the inventory (and, on the client node, by the JSON bridge).
inline constexpr const char* kReserveItem = "shop/ReserveItem";
inline constexpr const char* kCancelOrder = "shop/CancelOrder";

// "shop/ReserveItem": reserve `quantity` pieces of `sku`.
struct ReserveItem : connector::Message {
  ReserveItem() = default;
  ReserveItem(std::string sku, int quantity) : sku(std::move(sku)), quantity(quantity) {}
  std::string sku;
  int quantity = 0;
};

// "shop/Reservation": the answer to ReserveItem. A refused reservation has accepted
// false and an empty reservationId.
struct Reservation : connector::Message {
  Reservation() = default;
  Reservation(std::string reservationId, std::string sku, int quantity, bool accepted)
      : reservationId(std::move(reservationId)),
        sku(std::move(sku)),
        quantity(quantity),
        accepted(accepted) {}
  std::string reservationId;
  std::string sku;
  int quantity = 0;
  bool accepted = false;
};

// "shop/CancelOrder": cancel the reservation `orderId`.
struct CancelOrder : connector::Message {
  CancelOrder() = default;
  explicit CancelOrder(std::string orderId) : orderId(std::move(orderId)) {}
  std::string orderId;
};

// "shop/OrderCancelled": the answer to a successful CancelOrder.
struct OrderCancelled : connector::Message {
  OrderCancelled() = default;
  explicit OrderCancelled(std::string orderId) : orderId(std::move(orderId)) {}
  std::string orderId;
};

}  // namespace shop

// shop::Inventory: the stock of the shop example, with reservations and cancellations.
//
//   shop::Inventory inventory({{"LAMP-01", 10}});
//   shop::Reservation r = inventory.reserve("LAMP-01", 2);   // accepted, "R-000001"
//   inventory.cancel(r.reservationId);                        // the 2 lamps are back
//   inventory.cancel("ORD-404");   // throws StatusError 404 "order not found: ORD-404"
//
// Thread-safety: every operation may be called from any thread; one mutex guards the
// stock and the reservations.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include "shop/ShopMessages.hpp"

namespace shop {

class Inventory {
 public:
  explicit Inventory(std::map<std::string, long> stock);

  // A few SKUs with a million pieces each: enough for any demo run.
  static std::map<std::string, long> demoStock();

  // Takes `quantity` pieces of `sku` off the stock. Refused (accepted false, empty id)
  // for an unknown SKU, a quantity below 1, or not enough stock. Never throws.
  Reservation reserve(const std::string& sku, int quantity);

  // Puts the pieces of reservation `orderId` back. Throws
  // connector::transport::StatusError(404, "order not found: <orderId>", the same text)
  // for an unknown or already cancelled reservation: the HTTP gateway and the NATS
  // listener answer it 404 {"error":"order not found: <orderId>"}.
  OrderCancelled cancel(const std::string& orderId);

  // Pieces of `sku` on the shelf (0 for an unknown SKU).
  long available(const std::string& sku) const;

 private:
  mutable std::mutex mutex;
  std::unordered_map<std::string, long> stock;                                // guarded by mutex
  std::unordered_map<std::string, std::pair<std::string, int>> reservations;  // guarded by mutex
  long nextReservation = 1;                                                   // guarded by mutex
};

}  // namespace shop

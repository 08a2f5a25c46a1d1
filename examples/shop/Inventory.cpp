#include "shop/Inventory.hpp"

#include <cstdio>

#include <connector/transport/StatusError.hpp>

namespace shop {

Inventory::Inventory(std::map<std::string, long> initial) : stock(initial.begin(), initial.end()) {}

std::map<std::string, long> Inventory::demoStock() {
  return {{"LAMP-01", 1000000}, {"DESK-02", 1000000}, {"CHAIR-03", 1000000}};
}

Reservation Inventory::reserve(const std::string& sku, int quantity) {
  std::lock_guard<std::mutex> lock(mutex);
  auto shelf = stock.find(sku);
  if (quantity < 1 || shelf == stock.end() || shelf->second < quantity) {
    return Reservation("", sku, quantity, false);
  }
  shelf->second -= quantity;
  char id[32];
  std::snprintf(id, sizeof id, "R-%06ld", nextReservation++);
  reservations.emplace(id, std::make_pair(sku, quantity));
  return Reservation(id, sku, quantity, true);
}

OrderCancelled Inventory::cancel(const std::string& orderId) {
  std::lock_guard<std::mutex> lock(mutex);
  auto found = reservations.find(orderId);
  if (found == reservations.end()) {
    // A status of its own, so that every transport answers an unknown order 404.
    const std::string text = "order not found: " + orderId;
    throw connector::transport::StatusError(404, text, text);
  }
  stock[found->second.first] += found->second.second;
  reservations.erase(found);
  return OrderCancelled(orderId);
}

long Inventory::available(const std::string& sku) const {
  std::lock_guard<std::mutex> lock(mutex);
  auto shelf = stock.find(sku);
  return shelf == stock.end() ? 0 : shelf->second;
}

}  // namespace shop

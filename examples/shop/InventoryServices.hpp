// The inventory's typed services: ReserveItemService answers "shop/ReserveItem" with a
// "shop/Reservation"; CancelOrderService answers "shop/CancelOrder" with a
// "shop/OrderCancelled", or fails with connector::transport::StatusError 404
// "order not found: <id>" (answered 404 by the HTTP gateway and the NATS listener).
//
//   auto inventory = std::make_shared<shop::Inventory>(shop::Inventory::demoStock());
//   services->bind(connector::Address(shop::kReserveItem),
//                  std::make_shared<shop::ReserveItemService>(inventory));
//   services->bind(connector::Address(shop::kCancelOrder),
//                  std::make_shared<shop::CancelOrderService>(inventory));
//
// Both answer through the returned future (ready or failed); a request of another type
// fails it with std::invalid_argument "shop/ReserveItem expects a ReserveItem request"
// (or "shop/CancelOrder expects a CancelOrder request").
//
// Thread-safety: deliver may run on any number of threads; the services share only the
// inventory, which locks itself.
#pragma once

#include <memory>

#include <connector/json.hpp>

#include "shop/Inventory.hpp"

namespace shop {

class ReserveItemService : public connector::ServiceProvider {
 public:
  explicit ReserveItemService(std::shared_ptr<Inventory> inventory);
  void start() override {}
  void stop() override {}
  connector::Future<std::unique_ptr<connector::Message>> deliver(
      std::unique_ptr<connector::Message>&& message, connector::Address&& address,
      std::shared_ptr<connector::Context>&& context) override;

 private:
  std::shared_ptr<Inventory> inventory;
};

class CancelOrderService : public connector::ServiceProvider {
 public:
  explicit CancelOrderService(std::shared_ptr<Inventory> inventory);
  void start() override {}
  void stop() override {}
  connector::Future<std::unique_ptr<connector::Message>> deliver(
      std::unique_ptr<connector::Message>&& message, connector::Address&& address,
      std::shared_ptr<connector::Context>&& context) override;

 private:
  std::shared_ptr<Inventory> inventory;
};

}  // namespace shop

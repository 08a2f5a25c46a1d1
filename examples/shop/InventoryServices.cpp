#include "shop/InventoryServices.hpp"

#include <exception>
#include <stdexcept>
#include <utility>

namespace shop {
namespace {

using MessagePtr = std::unique_ptr<connector::Message>;

connector::Future<MessagePtr> fail(std::exception_ptr error) {
  return connector::makeFailedFuture<MessagePtr>(std::move(error));
}

}  // namespace

ReserveItemService::ReserveItemService(std::shared_ptr<Inventory> inventory)
    : inventory(std::move(inventory)) {}

connector::Future<MessagePtr> ReserveItemService::deliver(MessagePtr&& message,
                                                          connector::Address&&,
                                                          std::shared_ptr<connector::Context>&&) {
  auto* request = dynamic_cast<ReserveItem*>(message.get());
  if (request == nullptr) {
    return fail(std::make_exception_ptr(
        std::invalid_argument("shop/ReserveItem expects a ReserveItem request")));
  }
  return connector::makeReadyFuture<MessagePtr>(
      std::make_unique<Reservation>(inventory->reserve(request->sku, request->quantity)));
}

CancelOrderService::CancelOrderService(std::shared_ptr<Inventory> inventory)
    : inventory(std::move(inventory)) {}

connector::Future<MessagePtr> CancelOrderService::deliver(MessagePtr&& message,
                                                          connector::Address&&,
                                                          std::shared_ptr<connector::Context>&&) {
  auto* request = dynamic_cast<CancelOrder*>(message.get());
  if (request == nullptr) {
    return fail(std::make_exception_ptr(
        std::invalid_argument("shop/CancelOrder expects a CancelOrder request")));
  }
  try {
    return connector::makeReadyFuture<MessagePtr>(
        std::make_unique<OrderCancelled>(inventory->cancel(request->orderId)));
  } catch (...) {
    return fail(std::current_exception());
  }
}

}  // namespace shop

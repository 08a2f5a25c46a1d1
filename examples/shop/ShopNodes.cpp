#include "shop/ShopNodes.hpp"

#include <utility>

#include "shop/InventoryServices.hpp"
#include "shop/ShopMessages.hpp"
#include "shop/ShopTypes.hpp"

namespace shop {

ShopNodes::ShopNodes(LinkWrapper wrapLink, std::shared_ptr<Inventory> stock)
    : inventory(std::move(stock)),
      farSerializer(std::make_shared<connector::json::JsonSerializerImpl>()),
      clientSerializer(std::make_shared<connector::json::JsonSerializerImpl>()),
      services(std::make_shared<connector::Router>()),
      gateway(std::make_shared<connector::Router>()),
      client(std::make_shared<connector::Router>()) {
  using connector::Address;
  registerShopTypes(*farSerializer);
  registerShopTypes(*clientSerializer);

  services->bind(Address(kReserveItem), std::make_shared<ReserveItemService>(inventory));
  services->bind(Address(kCancelOrder), std::make_shared<CancelOrderService>(inventory));

  using connector::json::JsonDeserializerServiceProvider;
  using connector::json::JsonSerializerServiceProvider;
  for (const char* address : {kReserveItem, kCancelOrder}) {
    gateway->bind(Address(address),
                  std::make_shared<JsonDeserializerServiceProvider>(farSerializer),
                  services->context());
  }

  std::shared_ptr<connector::Context> link = std::make_shared<connector::InProcessLink>(gateway);
  if (wrapLink) {
    link = wrapLink(std::move(link));
  }
  for (const char* address : {kReserveItem, kCancelOrder}) {
    client->bind(Address(address),
                 std::make_shared<JsonSerializerServiceProvider>(clientSerializer), link);
  }
  start();
}

void ShopNodes::start() {
  services->start();
  gateway->start();
  client->start();
}

void ShopNodes::stop() {
  client->stop();
  gateway->stop();
  services->stop();
}

}  // namespace shop

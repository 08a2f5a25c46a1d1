// shop::ShopNodes: the shop example wired as two nodes joined by the JSON bridge.
//
//   client node                         far node
//   -----------                         --------
//   client router                       gateway router                services router
//   "shop/ReserveItem" -> JSON     link  "shop/ReserveItem" -> JSON    "shop/ReserveItem" ->
//   "shop/CancelOrder" -> serializer ==> "shop/CancelOrder" -> deseri-  ReserveItemService,
//                         provider        alizer provider  ---------->  CancelOrderService
//
//   shop::ShopNodes nodes;                       // all three routers started
//   auto answer = nodes.client->deliver(std::make_unique<shop::ReserveItem>("LAMP-01", 2),
//                                       connector::Address(shop::kReserveItem));
//
// Each node has its own serializer with the shop's types registered, shared by that
// node's bridge providers. The same address means "the bridge" on the client router and
// "the real service" on the services router: each binding's next hop leads one step on.
// `wrapLink` (optional) receives the in-process link to the gateway and returns the
// context the client's bridge providers use, so a caller can watch what crosses.
//
// Thread-safety: the routers are thread-safe; deliver from any number of threads.
// Destroying the nodes stops every provider.
#pragma once

#include <functional>
#include <memory>

#include <connector/json.hpp>

#include "shop/Inventory.hpp"

namespace shop {

struct ShopNodes {
  using LinkWrapper =
      std::function<std::shared_ptr<connector::Context>(std::shared_ptr<connector::Context>)>;

  explicit ShopNodes(
      LinkWrapper wrapLink = nullptr,
      std::shared_ptr<Inventory> inventory = std::make_shared<Inventory>(Inventory::demoStock()));

  // Starts (stops) the three routers, far side first (client side first).
  void start();
  void stop();

  std::shared_ptr<Inventory> inventory;
  std::shared_ptr<connector::json::JsonSerializerImpl> farSerializer;
  std::shared_ptr<connector::json::JsonSerializerImpl> clientSerializer;
  std::shared_ptr<connector::Router> services;  // far node: the typed services
  std::shared_ptr<connector::Router> gateway;   // far node: where the link arrives
  std::shared_ptr<connector::Router> client;    // client node: the bridge
};

}  // namespace shop

// LinkedShop<Link>: a shop client node whose bridge providers send through one link of
// type Link (an HttpLink, a NatsLink) to a far shop in another process or thread. The
// transports' fixtures derive their ClientShop from it, adding how the link is made.
//
//   struct ClientShop : connector::testing::LinkedShop<connector::net::HttpLink> { ... };
//   auto answer = client.reserve("LAMP-01", 2);   // a typed request across the link
//
// Thread-safety: the node and the link are thread-safe.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "shop/ShopMessages.hpp"
#include "shop/ShopNodes.hpp"

namespace connector::testing {

template <typename Link>
struct LinkedShop {
  explicit LinkedShop(std::shared_ptr<Link> made)
      : link(std::move(made)), nodes([this](std::shared_ptr<Context>) { return link; }) {}

  std::unique_ptr<Message> reserve(const std::string& sku, int quantity) {
    return nodes.client
        ->deliver(std::make_unique<shop::ReserveItem>(sku, quantity), Address(shop::kReserveItem))
        .get();
  }

  std::shared_ptr<Link> link;  // made before the nodes, whose providers send through it
  shop::ShopNodes nodes;
};

}  // namespace connector::testing

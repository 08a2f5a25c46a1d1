// connector::InProcessLink: a context that hands messages to another node in the same
// process, for tests and demos of two nodes joined by the JSON bridge.
//
//   auto farNode = std::make_shared<connector::Router>();
//   auto link = std::make_shared<connector::InProcessLink>(farNode);
//   clientNode->bind(connector::Address("shop/ReserveItem"),
//                    std::make_shared<connector::json::JsonSerializerServiceProvider>(serializer),
//                    link);   // the bridge's opaque messages cross into farNode
//
// The message (typically an OpaqueMessage carrying JSON bytes) is moved into the far
// router's deliver together with its address: its payload is never copied, and the
// answer future comes back unchanged.
//
// Thread-safety: deliver() may be called from any number of threads at once; the link
// keeps no state besides the far router, which is itself thread-safe. Lifetime: the link
// owns the far router (shared). Two routers linked to each other in both directions
// therefore keep each other alive until one of the bindings is removed.
#pragma once

#include <memory>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/Address.hpp"
#include "connector/host/Context.hpp"
#include "connector/host/Message.hpp"
#include "connector/host/Router.hpp"

namespace connector {

class CONNECTOR_API InProcessLink : public Context {
 public:
  // Throws std::invalid_argument "InProcessLink needs a far router" for a null router.
  explicit InProcessLink(std::shared_ptr<Router> farRouter);
  ~InProcessLink() override;

  // Moves the message and the address into the far router's deliver and returns its
  // future. Never throws; failures (such as an address the far node does not serve)
  // arrive through the future, as Router::deliver reports them.
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                           Address&& address) override;

  const std::shared_ptr<Router>& farRouter() const noexcept { return far; }

 private:
  std::shared_ptr<Router> far;
};

}  // namespace connector

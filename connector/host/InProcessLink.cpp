#include "connector/host/InProcessLink.hpp"

#include <stdexcept>
#include <utility>

namespace connector {

InProcessLink::InProcessLink(std::shared_ptr<Router> farRouter) : far(std::move(farRouter)) {
  if (!far) {
    throw std::invalid_argument("InProcessLink needs a far router");
  }
}

InProcessLink::~InProcessLink() = default;

Future<std::unique_ptr<Message>> InProcessLink::deliver(std::unique_ptr<Message>&& message,
                                                        Address&& address) {
  return far->deliver(std::move(message), std::move(address));
}

}  // namespace connector

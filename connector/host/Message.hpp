// connector::Message: the polymorphic base of every routed message.
//
//   struct ReserveItem : connector::Message { std::string sku; int quantity = 0; };
//   std::unique_ptr<connector::Message> m = std::make_unique<ReserveItem>();
//
// Messages are owned through std::unique_ptr and moved along the delivery path; the
// registry and the typed dispatch find a message's concrete class with typeid and
// dynamic_cast, so the type information is exported from the host library.
//
// Thread-safety: a message is owned by one holder at a time; the base has no state.
#pragma once

#include "connector/Export.hpp"

namespace connector {

class CONNECTOR_API Message {
 public:
  Message();
  Message(const Message&) = default;
  Message& operator=(const Message&) = default;
  virtual ~Message();
};

}  // namespace connector

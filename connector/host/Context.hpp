// connector::Context: what a service uses to send messages on during one delivery.
//
//   Future<std::unique_ptr<Message>> answer =
//       context->deliver(std::move(request), Address("shop/ReserveItem"));
//   std::unique_ptr<Message> reply = answer.get();
//
// Hosts implement deliver(); a provider may block on the answer on the delivering
// thread, so a host must be able to answer while that thread waits.
//
// Thread-safety: contexts are shared through std::shared_ptr; implementations say
// whether one context may be used from several threads at once.
#pragma once

#include <memory>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/Address.hpp"
#include "connector/host/Message.hpp"

namespace connector {

class CONNECTOR_API Context {
 public:
  Context();
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  virtual ~Context();

  // Fire and forget: sends the message on and drops the answer (and its error).
  virtual void post(std::unique_ptr<Message>&& message, Address&& address);

  // Sends the message on to `address`; the future carries the answer.
  virtual Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                                   Address&& address) = 0;
};

}  // namespace connector

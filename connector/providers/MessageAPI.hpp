// connector::MessageAPI<M, P>: the typed half of the dispatch. A message class M that P
// handles derives from MessageAPI<M, P>; deliverTo turns the generic message pointer into
// std::unique_ptr<M> and calls P::handle.
//
//   class OpaqueMessage : public connector::MessageAPI<OpaqueMessage, OpaqueServiceProvider> {};
//   // deliverTo(provider, std::move(self), ...) -> provider.handle(std::unique_ptr<OpaqueMessage>,
//   ...)
//
// Thread-safety: no state of its own; runs on the delivering thread.
#pragma once

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>

#include "connector/Export.hpp"
#include "connector/futures/MakeFuture.hpp"
#include "connector/providers/ServiceMessage.hpp"

namespace connector {

template <typename M, typename P>
class CONNECTOR_API MessageAPI : public ServiceMessage<P> {
 public:
  // When `self` owns this very message: releases it into std::unique_ptr<M> and returns
  // what provider->handle returns (its exceptions propagate, the message destroyed).
  // Otherwise returns a failed future with std::invalid_argument "Unable to deliver to
  // service. Incorrect message type. Expected: <this type> but found <self's type>"
  // (raw encoded type names); neither message is consumed. A null `self` throws
  // std::bad_typeid.
  Future<std::unique_ptr<Message>> deliverTo(std::shared_ptr<ServiceProvider> provider,
                                             std::unique_ptr<Message>&& self, Address&& address,
                                             std::shared_ptr<Context>&& context) override {
    if (self.get() == static_cast<Message*>(this)) {
      // The identity test and the dispatch's dynamic_cast guarantee the type.
      std::unique_ptr<M> typed(static_cast<M*>(self.release()));
      return static_cast<P*>(provider.get())
          ->handle(std::move(typed), std::move(address), std::move(context));
    }
    const Message* raw = self.get();
    const char* found = typeid(*raw).name();  // std::bad_typeid for a null self
    std::string text = "Unable to deliver to service. Incorrect message type. Expected: ";
    text += typeid(*this).name();
    text += " but found ";
    text += found;
    return makeFailedFuture<std::unique_ptr<Message>>(
        std::make_exception_ptr(std::invalid_argument(text)));
  }
};

}  // namespace connector

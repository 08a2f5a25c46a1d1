// connector::ServiceProviderAPI<P>: a provider that accepts only ServiceMessage<P>.
//
//   class PingProvider : public connector::ServiceProviderAPI<PingProvider> {
//    public:
//     virtual Future<std::unique_ptr<Message>> handle(std::unique_ptr<Ping>&&, Address&&,
//                                                     std::shared_ptr<Context>&&) = 0;
//   };
//
// deliver refuses, in this order: any delivery while the provider is not running
// (failed future, std::runtime_error "Service exists but is not running."), a message
// that is not a ServiceMessage<P> (failed future, std::invalid_argument "Incorrect
// message type. Expected: <raw name of ServiceMessage<P>> but found <raw name>"). Then
// the message hands itself to the provider through deliverTo.
//
// Thread-safety: deliver may run concurrently on any thread; it keeps no state. The
// running flag is read with a plain load, so whoever starts and stops the provider must
// not do so while deliveries are in flight.
#pragma once

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>

#include "connector/Export.hpp"
#include "connector/futures/MakeFuture.hpp"
#include "connector/host/ServiceProvider.hpp"
#include "connector/providers/ServiceMessage.hpp"

namespace connector {

template <typename P>
class CONNECTOR_API ServiceProviderAPI : public ServiceProvider {
 public:
  // Lifecycle operations: nothing to start or stop.
  void start() override {}
  void stop() override {}

  // The typed dispatch described above. Throws std::bad_typeid for a null message while
  // running, and std::bad_weak_ptr when the provider is not owned by a std::shared_ptr.
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&& address,
                                           std::shared_ptr<Context>&& context) override {
    if (!running) {
      return makeFailedFuture<std::unique_ptr<Message>>(
          std::make_exception_ptr(std::runtime_error("Service exists but is not running.")));
    }
    auto* typed = dynamic_cast<ServiceMessage<P>*>(message.get());
    if (typed == nullptr) {
      const Message* raw = message.get();
      const char* found = typeid(*raw).name();  // std::bad_typeid for null
      std::string text = "Incorrect message type. Expected: ";
      text += typeid(ServiceMessage<P>).name();
      text += " but found ";
      text += found;
      return makeFailedFuture<std::unique_ptr<Message>>(
          std::make_exception_ptr(std::invalid_argument(text)));
    }
    std::shared_ptr<ServiceProvider> self = shared_from_this();
    return typed->deliverTo(std::move(self), std::move(message), std::move(address),
                            std::move(context));
  }
};

}  // namespace connector

// connector::ServiceMessage<P>: a message that knows how to hand itself to a provider of
// type P.
//
//   class Ping : public connector::MessageAPI<Ping, PingProvider> {};  // implements deliverTo
//   // ServiceProviderAPI<PingProvider>::deliver admits only ServiceMessage<PingProvider>
//
// Thread-safety: a message is owned by one holder at a time; deliverTo keeps no state.
#pragma once

#include <memory>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/Address.hpp"
#include "connector/host/Context.hpp"
#include "connector/host/Message.hpp"
#include "connector/host/ServiceProvider.hpp"

namespace connector {

template <typename P>
class CONNECTOR_API ServiceMessage : public Message {
 public:
  ~ServiceMessage() override = default;

  // Hands this message, owned by `self`, to `provider`'s typed handle. Called by the
  // typed dispatch of ServiceProviderAPI<P>::deliver only.
  virtual Future<std::unique_ptr<Message>> deliverTo(std::shared_ptr<ServiceProvider> provider,
                                                     std::unique_ptr<Message>&& self,
                                                     Address&& address,
                                                     std::shared_ptr<Context>&& context) = 0;
};

}  // namespace connector

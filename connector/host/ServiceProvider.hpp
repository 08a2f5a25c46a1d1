// connector::ServiceProvider: the polymorphic base of every service.
//
//   class Echo : public connector::ServiceProvider {
//     void start() override {}
//     void stop() override {}
//     Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& m, Address&&,
//                                              std::shared_ptr<Context>&&) override {
//       return makeReadyFuture(std::move(m));
//     }
//   };
//
// Providers are always owned by std::shared_ptr (deliveries call shared_from_this()).
//
// Thread-safety: deliver() may be called concurrently from any host thread; each
// implementation says what it shares between deliveries.
#pragma once

#include <memory>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/Address.hpp"
#include "connector/host/Context.hpp"
#include "connector/host/Lifecycle.hpp"
#include "connector/host/Message.hpp"

namespace connector {

class CONNECTOR_API ServiceProvider : public common::Lifecycle,
                                      public std::enable_shared_from_this<ServiceProvider> {
 public:
  ServiceProvider();
  ~ServiceProvider() override;

  // Hands a message, its destination and its delivery context to the service; the
  // future carries the answer.
  virtual Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                                   Address&& address,
                                                   std::shared_ptr<Context>&& context) = 0;
};

}  // namespace connector

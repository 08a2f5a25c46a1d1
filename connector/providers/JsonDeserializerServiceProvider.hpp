// connector::json::JsonDeserializerServiceProvider: the service-side end of the JSON
// bridge.
//
//   auto gateway = std::make_shared<JsonDeserializerServiceProvider>(serializer);
//   gateway->setRunning(true);                       // deliveries are refused until then
//   router->bind(Address("shop/ReserveItem"), gateway, servicesRouter->context());
//
// An OpaqueMessage delivered to it is turned into the typed message its JSON names, sent
// on through the context to the same address; the typed answer is serialized and returned
// as an OpaqueMessage that echoes the request's content type, in a future that is
// already resolved.
//
// Thread-safety: handle may run concurrently on any threads; calls share only the
// serializer. Each call blocks its thread three times (deserializing the request, waiting
// for the answering service, joining the answer's JSON), without time-outs.
#pragma once

#include <memory>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/providers/OpaqueMessage.hpp"
#include "connector/providers/OpaqueServiceProvider.hpp"
#include "connector/serializer/JsonSerializer.hpp"

namespace connector::json {

class CONNECTOR_API JsonDeserializerServiceProvider : public OpaqueServiceProvider {
 public:
  // Keeps a share of the serializer for its whole life; a null serializer is not checked.
  explicit JsonDeserializerServiceProvider(std::shared_ptr<JsonSerializer> serializer);
  ~JsonDeserializerServiceProvider() override;

  // Lifecycle operations: nothing to start or stop.
  void start() override;
  void stop() override;

  // Serves one opaque request; normally reached through deliver (which checks running
  // and the message type). Moves the request's payload out. Every failure is thrown
  // synchronously: the deserialization error of the payload (nothing is sent on then),
  // std::runtime_error "Future state isn't valid!" for an invalid future, whatever the
  // context or the answering service fails with, the answer's serialization error.
  Future<std::unique_ptr<Message>> handle(std::unique_ptr<OpaqueMessage>&& message,
                                          Address&& address,
                                          std::shared_ptr<Context>&& context) override;

 private:
  std::shared_ptr<JsonSerializer> serializer;
};

}  // namespace connector::json

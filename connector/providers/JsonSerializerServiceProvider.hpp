// connector::json::JsonSerializerServiceProvider: the client-side end of the JSON bridge.
//
//   auto bridge = std::make_shared<JsonSerializerServiceProvider>(serializer);
//   router->bind(Address("shop/ReserveItem"), bridge, linkToFarNode);
//   // a typed request delivered to it leaves as an "application/json" OpaqueMessage
//   // to the same address; the opaque answer comes back as a typed message.
//
// deliver serializes the request, sends the bytes on through the context, waits for the
// opaque answer and returns the serializer's future of the answer turned back into a
// typed message. It accepts any message type and does not look at the running flag.
//
// Thread-safety: deliver may run concurrently on any threads; deliveries share only the
// serializer. Each delivery blocks its thread twice (until the request's JSON is joined,
// until the far side answers), without time-outs.
#pragma once

#include <memory>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/ServiceProvider.hpp"
#include "connector/serializer/JsonSerializer.hpp"

namespace connector::json {

class CONNECTOR_API JsonSerializerServiceProvider : public ServiceProvider {
 public:
  // Keeps a share of the serializer for its whole life; a null serializer is not checked.
  explicit JsonSerializerServiceProvider(std::shared_ptr<JsonSerializer> serializer);
  ~JsonSerializerServiceProvider() override;

  // Lifecycle operations: nothing to start or stop.
  void start() override;
  void stop() override;

  // Sends `message` as JSON to `address` through `context` and returns the typed answer.
  // Thrown synchronously: the serializer's errors for the request (e.g. an unregistered
  // type), std::runtime_error "Future state isn't valid!" for an invalid future from the
  // join or from the context, whatever the context's deliver throws, and the far side's
  // failure from the answer future. The answer's deserialization fails through the
  // returned future. The answer must be an OpaqueMessage (the bridge's contract).
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&& address,
                                           std::shared_ptr<Context>&& context) override;

 private:
  std::shared_ptr<JsonSerializer> serializer;
};

}  // namespace connector::json

// connector::json::OpaqueServiceProvider: a provider that accepts only OpaqueMessage.
//
//   class Gateway : public connector::json::OpaqueServiceProvider {
//     Future<std::unique_ptr<Message>> handle(std::unique_ptr<OpaqueMessage>&& request,
//                                             Address&& to, std::shared_ptr<Context>&& ctx)
//                                             override;
//   };
//
// deliver (inherited) refuses deliveries while not running and messages that are not
// opaque; see ServiceProviderAPI.
//
// Thread-safety: as ServiceProviderAPI; handle may run concurrently.
#pragma once

#include <memory>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/Address.hpp"
#include "connector/host/Context.hpp"
#include "connector/providers/ServiceProviderAPI.hpp"

namespace connector::json {

class OpaqueMessage;

class CONNECTOR_API OpaqueServiceProvider : public ServiceProviderAPI<OpaqueServiceProvider> {
 public:
  // Serves one opaque request; reached through deliver.
  virtual Future<std::unique_ptr<Message>> handle(std::unique_ptr<OpaqueMessage>&& message,
                                                  Address&& address,
                                                  std::shared_ptr<Context>&& context) = 0;
};

}  // namespace connector::json

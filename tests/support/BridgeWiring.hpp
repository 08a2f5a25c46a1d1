// Hand-wired contexts for bridge tests inside one process, without a router:
//
//   client -> JsonSerializerServiceProvider -> ProviderContext(JsonDeserializerServiceProvider,
//                                               next = ServiceContext(answer typed requests))
//
//   auto far = std::make_shared<ServiceContext>(answer);
//   auto link = std::make_shared<ProviderContext>(deserializerProvider, far);
//   clientProvider->deliver(std::move(request), Address("x"), link);
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include <connector/json.hpp>

namespace connector::testing {

// Delivers to a provider, handing it `next` as the context of that delivery.
class ProviderContext : public Context {
 public:
  ProviderContext(std::shared_ptr<ServiceProvider> target, std::shared_ptr<Context> next)
      : target(std::move(target)), next(std::move(next)) {}

  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                           Address&& address) override {
    return target->deliver(std::move(message), std::move(address), std::shared_ptr<Context>(next));
  }

 private:
  std::shared_ptr<ServiceProvider> target;
  std::shared_ptr<Context> next;
};

// Answers typed requests with a function (the "real service" at the far end).
class ServiceContext : public Context {
 public:
  using Service =
      std::function<Future<std::unique_ptr<Message>>(std::unique_ptr<Message>&&, const Address&)>;

  explicit ServiceContext(Service service) : service(std::move(service)) {}

  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                           Address&& address) override {
    return service(std::move(message), address);
  }

 private:
  Service service;
};

}  // namespace connector::testing

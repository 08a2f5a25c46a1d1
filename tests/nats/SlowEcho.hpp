// SlowEcho: a service that answers an OpaqueMessage with the same content type and bytes
// after a pause, so that tests can hold requests in flight for a while; and a router that
// serves it at "test/slow".
//
//   auto router = natstest::slowEchoRouter(std::chrono::milliseconds(5));
//   NatsListener listener(router, natstest::listenerOptions(url));
//
// Thread-safety: deliver may run on any number of threads; it only sleeps and copies.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <connector/json.hpp>

namespace natstest {

class SlowEcho : public connector::ServiceProvider {
 public:
  explicit SlowEcho(std::chrono::milliseconds pause) : pause(pause) {}
  void start() override {}
  void stop() override {}
  connector::Future<std::unique_ptr<connector::Message>> deliver(
      std::unique_ptr<connector::Message>&& message, connector::Address&&,
      std::shared_ptr<connector::Context>&&) override {
    ++started;
    std::this_thread::sleep_for(pause);
    auto& request = dynamic_cast<connector::json::OpaqueMessage&>(*message);
    return connector::makeReadyFuture<std::unique_ptr<connector::Message>>(
        std::make_unique<connector::json::OpaqueMessage>(request.contentType,
                                                         std::move(request.payload)));
  }

  std::atomic<int> started{0};

 private:
  const std::chrono::milliseconds pause;
};

inline std::shared_ptr<connector::Router> slowEchoRouter(std::shared_ptr<SlowEcho> echo) {
  auto router = std::make_shared<connector::Router>();
  router->bind(connector::Address("test/slow"), std::move(echo));
  router->start();
  return router;
}

}  // namespace natstest

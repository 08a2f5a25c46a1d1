// A gateway in front of one echoing service whose pace a test controls: a body starting
// with {"hold" waits until release() (at most 10 s), {"sleep":<ms>} sleeps that long,
// any other body is echoed at once (the gateway delivers JSON objects only, so the
// markers are objects too). For the gateway's limit, deadline and drain tests.
//
//   HttpGatewayOptions options;
//   options.deliveryTimeout = std::chrono::milliseconds(200);
//   nettest::EchoGateway echo(options);     // started; POST /echo
//   echo.service->waitEntered(1);           // a delivery is running
//   echo.service->release();                // held deliveries answer
//
// Thread-safety: the service is delivered to from the gateway's workers; release() and
// waitEntered() from any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <connector/json.hpp>
#include <connector/net/HttpGateway.hpp>
#include <connector/transport/MetricsRegistry.hpp>

namespace nettest {

// The bodies ControlledEcho acts on: kHold, and {"sleep":<ms>}.
inline constexpr const char* kHold = R"({"hold":1})";
inline constexpr const char* kHoldPrefix = R"({"hold")";
inline constexpr const char* kSleepPrefix = R"({"sleep":)";

// {"sleep":<ms>}
inline std::string sleepFor(int millis) { return kSleepPrefix + std::to_string(millis) + "}"; }

class ControlledEcho : public connector::ServiceProvider {
 public:
  void start() override {}
  void stop() override {}
  connector::Future<std::unique_ptr<connector::Message>> deliver(
      std::unique_ptr<connector::Message>&& message, connector::Address&&,
      std::shared_ptr<connector::Context>&&) override {
    auto* opaque = dynamic_cast<connector::json::OpaqueMessage*>(message.get());
    const std::string body = opaque != nullptr ? std::string(opaque->payload.view()) : "";
    {
      std::lock_guard<std::mutex> lock(mutex);
      ++entered;
    }
    changed.notify_all();
    if (body.rfind(kHoldPrefix, 0) == 0) {
      std::unique_lock<std::mutex> lock(mutex);
      changed.wait_for(lock, std::chrono::seconds(10), [this] { return released; });
    } else if (body.rfind(kSleepPrefix, 0) == 0) {
      const std::string millis = body.substr(std::string(kSleepPrefix).size());
      std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(millis)));
    }
    {
      std::lock_guard<std::mutex> lock(mutex);
      ++finished;
    }
    changed.notify_all();
    return connector::makeReadyFuture(std::move(message));
  }

  void release() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      released = true;
    }
    changed.notify_all();
  }

  // Waits (at most 10 s) until `count` deliveries have begun; returns whether they did.
  bool waitEntered(int count) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(10), [&] { return entered >= count; });
  }

  // Deliveries begun so far.
  int deliveries() {
    std::lock_guard<std::mutex> lock(mutex);
    return entered;
  }

  // Waits (at most 10 s) until `count` deliveries have ended.
  bool waitFinished(int count) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(10), [&] { return finished >= count; });
  }

 private:
  std::mutex mutex;
  std::condition_variable changed;
  int entered = 0;   // guarded by mutex
  int finished = 0;  // guarded by mutex
  bool released = false;
};

struct EchoGateway {
  explicit EchoGateway(connector::net::HttpGatewayOptions options = {}) {
    router->bind(connector::Address("echo"), service);
    router->start();
    gateway = std::make_unique<connector::net::HttpGateway>(router, options);
    gateway->start();
  }
  ~EchoGateway() {
    service->release();  // nothing stays held past the test
    gateway.reset();
  }
  std::uint16_t port() const { return gateway->port(); }

  // connector_gateway_rejected_total{reason=...} once it reaches `expected` (a close is
  // seen by the client a moment before the gateway counts it), or after 2 s.
  double rejected(const std::string& reason, double expected) const {
    auto counter =
        gateway->metrics()->counter("connector_gateway_rejected_total", "", {{"reason", reason}});
    for (int i = 0; i < 200 && counter.value() < expected; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return counter.value();
  }

  std::shared_ptr<ControlledEcho> service = std::make_shared<ControlledEcho>();
  std::shared_ptr<connector::Router> router = std::make_shared<connector::Router>();
  std::unique_ptr<connector::net::HttpGateway> gateway;
};

}  // namespace nettest

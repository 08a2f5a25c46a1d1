// Fixtures of the NATS tests: a nats-server per test suite, the shop's far node served by
// a NatsListener, a client shop node whose bridge crosses a NatsLink, and short options.
//
//   class MyTest : public natstest::NatsSuite {};     // one server for the suite
//   TEST_F(MyTest, Something) {
//     FarShop far(url());                              // listener serving, services started
//     ClientShop client(url());                        // typed requests cross over NATS
//     auto answer = client.reserve("LAMP-01", 2);
//   }
//
// Thread-safety: the nodes, listener and link are thread-safe.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <connector/json.hpp>
#include <connector/nats/NatsLink.hpp>
#include <connector/nats/NatsListener.hpp>

#include "shop/ShopMessages.hpp"
#include "shop/ShopNodes.hpp"
#include "support/LinkedShop.hpp"
#include "support/NatsServerProcess.hpp"

namespace natstest {

using connector::testing::NatsServerProcess;

// One nats-server for all tests of a suite, started before the first and stopped after
// the last.
class NatsSuite : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    server = std::make_unique<NatsServerProcess>();
    server->start();
  }
  static void TearDownTestSuite() { server.reset(); }
  static std::string url() { return server->url(); }

  static inline std::unique_ptr<NatsServerProcess> server;
};

// Link options for tests: this URL, a request time-out of `timeout`.
inline connector::nats::NatsLinkOptions linkOptions(
    const std::string& url, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
  connector::nats::NatsLinkOptions options;
  options.url = url;
  options.requestTimeout = timeout;
  options.reconnectWait = std::chrono::milliseconds(50);
  return options;
}

inline connector::nats::NatsListenerOptions listenerOptions(const std::string& url) {
  connector::nats::NatsListenerOptions options;
  options.url = url;
  options.threads = 4;
  options.reconnectWait = std::chrono::milliseconds(50);
  options.drainTimeout = std::chrono::seconds(5);
  return options;
}

// The shop's far node (gateway router -> deserializer providers -> inventory services)
// served by a NatsListener.
struct FarShop {
  explicit FarShop(const std::string& url) : FarShop(listenerOptions(url)) {}
  explicit FarShop(const connector::nats::NatsListenerOptions& options)
      : nodes(std::make_unique<shop::ShopNodes>()),
        listener(std::make_unique<connector::nats::NatsListener>(nodes->gateway, options)) {
    listener->start();
  }

  std::unique_ptr<shop::ShopNodes> nodes;
  std::unique_ptr<connector::nats::NatsListener> listener;
};

// A shop client node whose bridge providers send through a NatsLink.
struct ClientShop : connector::testing::LinkedShop<connector::nats::NatsLink> {
  explicit ClientShop(const std::string& url) : ClientShop(linkOptions(url)) {}
  explicit ClientShop(const connector::nats::NatsLinkOptions& options)
      : LinkedShop(std::make_shared<connector::nats::NatsLink>(options)) {}
};

// {"n":<i>}: a body that tells requests apart and that a listener delivers (it delivers
// JSON objects only).
inline std::string numbered(int i) { return "{\"n\":" + std::to_string(i) + "}"; }

// The <i> of a numbered(i) body.
inline std::size_t numberOf(const std::string& body) {
  return std::stoul(body.substr(std::string("{\"n\":").size()));
}

// An OpaqueMessage request of `contentType` and `body`.
inline std::unique_ptr<connector::Message> opaque(
    const std::string& body, const std::string& contentType = "application/json") {
  return std::make_unique<connector::json::OpaqueMessage>(
      contentType, connector::common::DataBuffer(std::string_view(body)));
}

// The payload of an OpaqueMessage answer as text (fails the test for another type).
inline std::string textOf(const std::unique_ptr<connector::Message>& message) {
  auto* answer = dynamic_cast<connector::json::OpaqueMessage*>(message.get());
  EXPECT_NE(answer, nullptr);
  return answer != nullptr ? std::string(answer->payload.view()) : std::string();
}

inline std::string contentTypeOf(const std::unique_ptr<connector::Message>& message) {
  auto* answer = dynamic_cast<connector::json::OpaqueMessage*>(message.get());
  EXPECT_NE(answer, nullptr);
  return answer != nullptr ? answer->contentType : std::string();
}

}  // namespace natstest

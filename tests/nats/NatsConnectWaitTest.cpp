// A link or listener started before its server: with initialConnectWait it keeps trying
// and serves once the server is up; without, or when the wait runs out, it fails with
// the text of a missing server. A server that refuses is never waited for.
#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "NatsFixtures.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using connector::nats::NatsLink;
using connector::nats::NatsListener;
using connector::testing::NatsServerProcess;
using Clock = std::chrono::steady_clock;

// A server started and stopped again, so that its port is known and free.
std::unique_ptr<NatsServerProcess> stoppedServer(const std::string& config = "") {
  auto server = std::make_unique<NatsServerProcess>(config);
  server->start();
  server->stop();
  return server;
}

TEST(NatsConnectWaitTest, ALinkAndAListenerStartedBeforeTheServerServeOnceItIsUp) {
  auto server = stoppedServer();
  // Both constructors run at once, so each tells under the lock.
  std::mutex toldLock;
  std::vector<std::string> told;
  auto listen = natstest::listenerOptions(server->url());
  listen.initialConnectWait = std::chrono::seconds(20);
  listen.onConnectWait = [&](const std::string& url) {
    const std::lock_guard<std::mutex> hold(toldLock);
    told.push_back("listener " + url);
  };
  auto link = natstest::linkOptions(server->url());
  link.initialConnectWait = std::chrono::seconds(20);
  link.onConnectWait = [&](const std::string& url) {
    const std::lock_guard<std::mutex> hold(toldLock);
    told.push_back("link " + url);
  };

  // Both constructors wait on threads of their own; the server starts 300 ms later.
  auto far =
      std::async(std::launch::async, [&] { return std::make_unique<natstest::FarShop>(listen); });
  auto client =
      std::async(std::launch::async, [&] { return std::make_unique<natstest::ClientShop>(link); });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  server->start();
  const auto farShop = far.get();
  const auto clientShop = client.get();
  const std::unique_ptr<connector::Message> answer = clientShop->reserve("LAMP-01", 3);
  auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
  ASSERT_NE(reservation, nullptr);
  EXPECT_TRUE(reservation->accepted);
  EXPECT_EQ(farShop->nodes->inventory->available("LAMP-01"), 1000000 - 3);
  std::sort(told.begin(), told.end());
  EXPECT_EQ(told, (std::vector<std::string>{"link " + server->url(), "listener " + server->url()}));
}

TEST(NatsConnectWaitTest, AWaitThatRunsOutFailsWithTheTextOfAMissingServer) {
  auto server = stoppedServer();
  int told = 0;
  auto options =
      natstest::linkOptions("nats://secret-tok@127.0.0.1:" + std::to_string(server->port()));
  options.initialConnectWait = std::chrono::milliseconds(400);
  options.onConnectWait = [&told](const std::string&) { ++told; };
  const auto begin = Clock::now();
  EXPECT_THROW_TEXT(
      NatsLink link(options), std::runtime_error,
      "NatsLink cannot connect to " + server->url() + ": No server available for connection");
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(400));
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
  EXPECT_EQ(told, 1);
}

TEST(NatsConnectWaitTest, WithoutAWaitAMissingServerFailsAtOnceAndNothingIsTold) {
  auto server = stoppedServer();
  int told = 0;
  auto options = natstest::listenerOptions(server->url());
  options.onConnectWait = [&told](const std::string&) { ++told; };
  EXPECT_THROW_TEXT(
      NatsListener(std::make_shared<connector::Router>(), options), std::runtime_error,
      "NatsListener cannot connect to " + server->url() + ": No server available for connection");
  EXPECT_EQ(told, 0);
}

TEST(NatsConnectWaitTest, AServerThatRefusesTheCredentialsIsNotWaitedFor) {
  NatsServerProcess server("authorization { token: \"tok-right-1f\" }");
  server.start();
  int told = 0;
  auto options =
      natstest::linkOptions("nats://tok-wrong-2e@127.0.0.1:" + std::to_string(server.port()));
  options.initialConnectWait = std::chrono::seconds(20);
  options.onConnectWait = [&told](const std::string&) { ++told; };
  const auto begin = Clock::now();
  EXPECT_THROW_TEXT(NatsLink link(options), std::runtime_error,
                    "NatsLink cannot connect to " + server.url() +
                        ": the server refused the credentials (Authorization Violation)");
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(2));
  EXPECT_EQ(told, 0);
}

TEST(NatsConnectWaitTest, AnExceptionFromTheNoticeFailsTheConstructor) {
  auto server = stoppedServer();
  auto options = natstest::linkOptions(server->url());
  options.initialConnectWait = std::chrono::seconds(20);
  options.onConnectWait = [](const std::string&) { throw std::logic_error("told to stop"); };
  EXPECT_THROW_TEXT(NatsLink link(options), std::logic_error, "told to stop");
}

TEST(NatsConnectWaitTest, ANegativeWaitIsRefused) {
  auto options = natstest::linkOptions("nats://127.0.0.1:1");
  options.initialConnectWait = std::chrono::milliseconds(-1);
  EXPECT_THROW_TEXT(NatsLink link(options), std::invalid_argument,
                    "NatsLink initial connect wait must not be negative");
}

}  // namespace

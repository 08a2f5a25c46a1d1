// A NATS server that goes away and comes back on the same port: the requests in flight
// fail at once and clearly, and the link and the listener reconnect by themselves.
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <connector/transport/StatusError.hpp>

#include "NatsFixtures.hpp"
#include "SlowEcho.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using connector::Address;
using connector::nats::NatsLink;
using connector::nats::NatsListener;
using connector::testing::NatsServerProcess;
using Clock = std::chrono::steady_clock;
using MessageFuture = connector::Future<std::unique_ptr<connector::Message>>;

const char* const kAgain = R"({"again":true})";

// Sends to "test/slow" every 20 ms until an answer comes back, at most `limit`.
bool answeredWithin(NatsLink& link, std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  while (Clock::now() < deadline) {
    try {
      if (natstest::textOf(link.deliver(natstest::opaque(kAgain), Address("test/slow")).get()) ==
          kAgain) {
        return true;
      }
    } catch (const std::exception&) {
      // not yet: no responder, or the server still away
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

void restartFailsRequestsInFlightAndLaterOnesSucceed(bool kill) {
  NatsServerProcess server;
  server.start();
  auto echo = std::make_shared<natstest::SlowEcho>(std::chrono::milliseconds(300));
  NatsListener listener(natstest::slowEchoRouter(echo), natstest::listenerOptions(server.url()));
  listener.start();
  NatsLink link(natstest::linkOptions(server.url(), std::chrono::seconds(10)));
  ASSERT_TRUE(answeredWithin(link, std::chrono::seconds(5)));

  std::vector<MessageFuture> inFlight;
  for (int i = 0; i < 3; ++i)
    inFlight.push_back(link.deliver(natstest::opaque("{}"), Address("test/slow")));
  const auto deadline = Clock::now() + std::chrono::seconds(5);
  while (echo->started < 4 && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  const auto begin = Clock::now();
  server.stop(kill);
  for (MessageFuture& future : inFlight) {
    EXPECT_THROW_TEXT(future.get(), connector::transport::StatusError,
                      "NATS request to connector.test.slow failed: connection lost");
  }
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));

  server.start();  // same port
  EXPECT_TRUE(answeredWithin(link, std::chrono::seconds(10)));
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(
        natstest::textOf(
            link.deliver(natstest::opaque(natstest::numbered(i)), Address("test/slow")).get()),
        natstest::numbered(i));
  }
  EXPECT_EQ(link.requestsInFlight(), 0u);
}

TEST(NatsReconnectTest, AServerStoppedAndStartedAgainFailsRequestsInFlightThenServesAgain) {
  restartFailsRequestsInFlightAndLaterOnesSucceed(false);
}

TEST(NatsReconnectTest, AServerKilledAndStartedAgainFailsRequestsInFlightThenServesAgain) {
  restartFailsRequestsInFlightAndLaterOnesSucceed(true);
}

TEST(NatsReconnectTest, ALinkThatGaveUpReconnectingFailsEveryRequestAtOnce) {
  NatsServerProcess server;
  server.start();
  auto options = natstest::linkOptions(server.url(), std::chrono::milliseconds(300));
  options.maxReconnects = 1;
  options.connectTimeout = std::chrono::milliseconds(200);
  NatsLink link(options);
  server.stop();
  // nats.c tries once more, then closes the connection for good.
  const auto deadline = Clock::now() + std::chrono::seconds(5);
  std::string text;
  while (Clock::now() < deadline) {
    try {
      link.deliver(natstest::opaque("{}"), Address("test/slow")).get();
    } catch (const std::exception& error) {
      text = error.what();
      if (text.find("connection closed") != std::string::npos) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(text, "NATS request to connector.test.slow failed: connection closed");
  EXPECT_THROW_TEXT(link.deliver(natstest::opaque("{}"), Address("test/other")).get(),
                    connector::transport::StatusError,
                    "NATS request to connector.test.other failed: connection closed");
}

}  // namespace

// HttpGateway while its services block: with every delivery it may run at once stuck in
// a service (the first one on the event loop's own thread), it still accepts, answers
// GET /healthz at once, keeps every deadline and refuses further requests in time; and a
// blocked delivery is still answered once its service returns.
#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "EchoGateway.hpp"
#include "RawClient.hpp"

namespace {

using connector::net::HttpGatewayOptions;
using nettest::EchoGateway;
using nettest::RawClient;
using nettest::Reply;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

const milliseconds kAnswerWait{5000};

// Options of a gateway with one event loop and `threads` deliveries at once.
HttpGatewayOptions blockable(int threads) {
  HttpGatewayOptions options;
  options.ioThreads = 1;
  options.threads = threads;
  return options;
}

// Sends `count` held deliveries, each on its own connection, and waits until all of them
// are inside the service.
std::vector<std::unique_ptr<RawClient>> block(EchoGateway& echo, int count) {
  std::vector<std::unique_ptr<RawClient>> held;
  for (int i = 0; i < count; ++i) {
    held.push_back(std::make_unique<RawClient>(echo.port()));
    EXPECT_TRUE(held.back()->send(nettest::post("/echo", nettest::kHold)));
  }
  EXPECT_TRUE(echo.service->waitEntered(count));
  return held;
}

// A new connection's GET /healthz: its answer and how long it took.
std::optional<Reply> probeHealth(std::uint16_t port, Clock::duration& took) {
  const auto begin = Clock::now();
  RawClient probe(port);
  if (!probe.send(nettest::get("/healthz"))) return std::nullopt;
  std::optional<Reply> reply = probe.readReply(kAnswerWait);
  took = Clock::now() - begin;
  return reply;
}

TEST(GatewayBlockedServicesTest, HealthIsAnsweredAtOnceWhileEveryDeliveryIsBlocked) {
  EchoGateway echo(blockable(2));
  auto held = block(echo, 2);
  std::vector<Clock::duration> took;
  for (int i = 0; i < 5; ++i) {
    Clock::duration one{};
    std::optional<Reply> reply = probeHealth(echo.port(), one);
    ASSERT_TRUE(reply) << "no answer to GET /healthz while the deliveries are blocked";
    EXPECT_EQ(reply->status, 200);
    EXPECT_EQ(reply->body, R"({"status":"ok"})");
    took.push_back(one);
  }
  std::sort(took.begin(), took.end());
  EXPECT_LT(took[2], milliseconds(100)) << "median of 5 answers";
}

TEST(GatewayBlockedServicesTest, NewConnectionsAreAcceptedAndServedWhileEveryDeliveryIsBlocked) {
  EchoGateway echo(blockable(2));
  auto held = block(echo, 2);
  std::vector<std::unique_ptr<RawClient>> fresh;
  for (int i = 0; i < 20; ++i) {
    fresh.push_back(std::make_unique<RawClient>(echo.port()));
    ASSERT_TRUE(fresh.back()->send(nettest::get("/")));
  }
  for (auto& client : fresh) {
    std::optional<Reply> reply = client->readReply(kAnswerWait);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, 200);
    EXPECT_EQ(reply->body, R"({"addresses":["echo"]})");
  }
}

TEST(GatewayBlockedServicesTest,
     ARequestBeyondTheBlockedDeliveriesGets504AtItsDeadlineUndelivered) {
  HttpGatewayOptions options = blockable(2);
  options.deliveryTimeout = milliseconds(300);
  EchoGateway echo(options);
  auto held = block(echo, 2);
  RawClient extra(echo.port());
  const auto begin = Clock::now();
  ASSERT_TRUE(extra.send(nettest::post("/echo", R"({"n":3})")));
  std::optional<Reply> reply = extra.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 504);
  EXPECT_EQ(reply->body, R"({"error":"No answer from 'echo' within 300 ms"})");
  EXPECT_GE(Clock::now() - begin, milliseconds(250));
  // It waited for a free delivery and never got one: once the blocked ones return, it is
  // not delivered late.
  echo.service->release();
  ASSERT_TRUE(echo.service->waitFinished(2));
  ASSERT_TRUE(extra.send(nettest::post("/echo", R"({"n":4})")));
  reply = extra.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->body, R"({"n":4})");
  EXPECT_EQ(echo.service->deliveries(), 3);
}

TEST(GatewayBlockedServicesTest,
     HeaderBodyAndKeepAliveDeadlinesAreKeptWhileEveryDeliveryIsBlocked) {
  HttpGatewayOptions options = blockable(1);
  options.headerTimeout = milliseconds(300);
  options.bodyTimeout = milliseconds(300);
  options.keepAliveTimeout = milliseconds(300);
  EchoGateway echo(options);
  auto held = block(echo, 1);

  RawClient kept(echo.port());  // answered, then idle
  ASSERT_TRUE(kept.send(nettest::get("/healthz")));
  ASSERT_TRUE(kept.readReply(kAnswerWait));
  RawClient slowHeader(echo.port());
  ASSERT_TRUE(slowHeader.send("POST /echo HTTP/1.1\r\nHost: t\r\nContent-Le"));
  RawClient slowBody(echo.port());
  ASSERT_TRUE(slowBody.send("POST /echo HTTP/1.1\r\nHost: t\r\nContent-Length: 10\r\n\r\n{\"a\""));

  EXPECT_TRUE(kept.closedWithin(kAnswerWait));
  EXPECT_TRUE(slowHeader.closedWithin(kAnswerWait));
  EXPECT_TRUE(slowBody.closedWithin(kAnswerWait));
  EXPECT_EQ(echo.rejected("header_timeout", 1), 1);
  EXPECT_EQ(echo.rejected("body_timeout", 1), 1);
}

TEST(GatewayBlockedServicesTest, ABlockedDeliveryIsAnsweredOnceItsServiceReturns) {
  EchoGateway echo(blockable(2));
  auto held = block(echo, 1);
  // Its loop went on without it meanwhile.
  Clock::duration took{};
  std::optional<Reply> health = probeHealth(echo.port(), took);
  ASSERT_TRUE(health);
  EXPECT_EQ(health->status, 200);
  echo.service->release();
  std::optional<Reply> reply = held.front()->readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->body, nettest::kHold);
  // The connection serves its next request as before.
  ASSERT_TRUE(held.front()->send(nettest::post("/echo", R"({"next":1})")));
  reply = held.front()->readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->body, R"({"next":1})");
}

TEST(GatewayBlockedServicesTest, QuickRequestsAreServedBesideADeliveryThatBlocks) {
  EchoGateway echo(blockable(4));
  auto held = block(echo, 1);
  RawClient client(echo.port());
  for (int i = 0; i < 200; ++i) {
    const std::string body = "{\"i\":" + std::to_string(i) + "}";
    ASSERT_TRUE(client.send(nettest::post("/echo", body)));
    std::optional<Reply> reply = client.readReply(kAnswerWait);
    ASSERT_TRUE(reply) << "request " << i;
    EXPECT_EQ(reply->status, 200);
    EXPECT_EQ(reply->body, body);
  }
}

TEST(GatewayBlockedServicesTest, EveryLoopOfSeveralKeepsServingWhileDeliveriesBlock) {
  HttpGatewayOptions options;
  options.ioThreads = 3;
  options.threads = 3;
  EchoGateway echo(options);
  // New connections join the loops in turn: each loop gets one that blocks.
  auto held = block(echo, 3);
  for (int i = 0; i < 6; ++i) {
    Clock::duration took{};
    std::optional<Reply> reply = probeHealth(echo.port(), took);
    ASSERT_TRUE(reply) << "probe " << i;
    EXPECT_EQ(reply->status, 200);
  }
}

}  // namespace

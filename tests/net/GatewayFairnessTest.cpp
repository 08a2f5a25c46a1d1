// HttpGateway under a burst of new connections: the listener takes every connection
// waiting in its backlog each time it is ready, and every one of them is served, beside
// connections that were there before.
#include <chrono>
#include <memory>
#include <string>
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

const milliseconds kAnswerWait{20000};

TEST(GatewayFairnessTest, EveryConnectionOfABurstIsAcceptedAndServed) {
  HttpGatewayOptions options;
  options.ioThreads = 2;  // the listener hands the connections to both loops in turn
  EchoGateway echo(options);
  RawClient before(echo.port());  // served before, during and after the burst
  ASSERT_TRUE(before.send(nettest::post("/echo", R"({"n":0})")));
  ASSERT_TRUE(before.readReply(kAnswerWait));

  // Opened one after the other without waiting for answers: most of them sit in the
  // backlog together when the listener next looks.
  constexpr int kBurst = 1500;
  std::vector<std::unique_ptr<RawClient>> burst;
  burst.reserve(kBurst);
  for (int i = 0; i < kBurst; ++i) {
    burst.push_back(std::make_unique<RawClient>(echo.port()));
    ASSERT_TRUE(burst.back()->send(nettest::post("/echo", "{\"i\":" + std::to_string(i) + "}")));
  }
  ASSERT_TRUE(before.send(nettest::post("/echo", R"({"n":1})")));
  std::optional<Reply> reply = before.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->body, R"({"n":1})");
  for (int i = 0; i < kBurst; ++i) {
    reply = burst[static_cast<std::size_t>(i)]->readReply(kAnswerWait);
    ASSERT_TRUE(reply) << "connection " << i << " of the burst got no answer";
    EXPECT_EQ(reply->status, 200);
    EXPECT_EQ(reply->body, "{\"i\":" + std::to_string(i) + "}");
  }
}

}  // namespace

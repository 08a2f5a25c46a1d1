// HttpGateway with deliveries in flight: pipelined answers keep their order, the
// in-flight budget makes requests wait or answers 503 (never a reset), a slow delivery
// gets its 504, and stop() drains.
#include <chrono>
#include <future>
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

const milliseconds kAnswerWait{5000};
// A JSON object of 60 bytes.
const std::string kSixtyBytes = R"({"n":")" + std::string(52, '7') + R"("})";

TEST(GatewayFlowTest, PipelinedRequestsAreAnsweredInOrderWhateverTheirPace) {
  HttpGatewayOptions options;
  options.threads = 4;
  EchoGateway echo(options);
  RawClient client(echo.port());
  // The first takes longest; the answers still come in request order.
  ASSERT_TRUE(client.send(nettest::post("/echo", nettest::sleepFor(200)) +
                          nettest::post("/echo", nettest::sleepFor(50)) + nettest::get("/healthz") +
                          nettest::post("/echo", "{\"n\":4}")));
  const std::vector<std::string> expected = {nettest::sleepFor(200), nettest::sleepFor(50),
                                             R"({"status":"ok"})", "{\"n\":4}"};
  for (const std::string& body : expected) {
    std::optional<Reply> reply = client.readReply(kAnswerWait);
    ASSERT_TRUE(reply) << "no answer for " << body;
    EXPECT_EQ(reply->status, 200);
    EXPECT_EQ(reply->body, body);
  }
}

TEST(GatewayFlowTest, AnAnswerLargerThanTheSocketTakesAtOnceArrivesWhole) {
  HttpGatewayOptions options;
  options.maxBodyBytes = std::size_t{8} << 20;
  options.maxInFlightBytes = std::size_t{16} << 20;
  EchoGateway echo(options);
  RawClient client(echo.port());
  // Sent, then read only after a pause: the gateway's first write fills the socket and
  // the rest waits until the client reads.
  // A JSON object of 6 MiB: {"x":"xxx...x"}.
  std::string large(std::size_t{6} << 20, 'x');
  large.replace(0, 6, R"({"x":")");
  large.replace(large.size() - 2, 2, R"("})");
  ASSERT_TRUE(client.send(nettest::post("/echo", large) + nettest::post("/echo", "{\"after\":1}")));
  std::this_thread::sleep_for(milliseconds(200));
  std::optional<Reply> reply = client.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->body.size(), large.size());
  EXPECT_TRUE(reply->body == large);
  reply = client.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->body, "{\"after\":1}");
}

TEST(GatewayFlowTest, BlockingDeliveriesRunSideBySideUpToTheDeliveryCount) {
  HttpGatewayOptions options;
  options.threads = 4;
  EchoGateway echo(options);
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 4; ++i) {
    clients.push_back(std::make_unique<RawClient>(echo.port()));
    ASSERT_TRUE(clients.back()->send(nettest::post("/echo", nettest::kHold)));
  }
  // All four are inside the service at once, none waits behind another.
  EXPECT_TRUE(echo.service->waitEntered(4));
  echo.service->release();
  for (auto& client : clients) {
    std::optional<Reply> reply = client->readReply(kAnswerWait);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, 200);
  }
}

TEST(GatewayFlowTest, ARequestOverTheInFlightBudgetWaitsForRoomAndIsServed) {
  HttpGatewayOptions options;
  options.maxInFlightBytes = 100;
  EchoGateway echo(options);
  RawClient first(echo.port());
  ASSERT_TRUE(
      first.send(nettest::post("/echo", nettest::kHold + std::string(70, ' '))));  // 80 bytes
  ASSERT_TRUE(echo.service->waitEntered(1));
  RawClient second(echo.port());
  ASSERT_TRUE(second.send(nettest::post("/echo", kSixtyBytes)));
  // It waits while the first holds the budget...
  EXPECT_FALSE(second.readReply(milliseconds(300)));
  EXPECT_FALSE(second.ended);
  echo.service->release();
  // ...and is served once the first is answered.
  std::optional<Reply> reply = first.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  reply = second.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->body, kSixtyBytes);
}

TEST(GatewayFlowTest, ARequestThatWaitsTooLongForTheBudgetGets503WithRetryAfterNotAReset) {
  HttpGatewayOptions options;
  options.maxInFlightBytes = 100;
  options.bodyTimeout = milliseconds(300);
  EchoGateway echo(options);
  RawClient first(echo.port());
  ASSERT_TRUE(first.send(nettest::post("/echo", nettest::kHold + std::string(70, ' '))));
  ASSERT_TRUE(echo.service->waitEntered(1));
  RawClient second(echo.port());
  ASSERT_TRUE(second.send(nettest::post("/echo", kSixtyBytes)));
  std::optional<Reply> reply = second.readReply(kAnswerWait);
  ASSERT_TRUE(reply) << (second.ended ? "closed without an answer" : "no answer");
  EXPECT_EQ(reply->status, 503);
  EXPECT_EQ(reply->header("retry-after"), "1");
  EXPECT_TRUE(reply->closes());
  EXPECT_EQ(reply->body, R"({"error":"The gateway is busy; try again later"})");
  EXPECT_EQ(echo.rejected("busy", 1), 1);
  echo.service->release();
  reply = first.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
}

TEST(GatewayFlowTest, ADeliveryPastItsTimeOutGets504AndTheLateAnswerIsDropped) {
  HttpGatewayOptions options;
  options.deliveryTimeout = milliseconds(200);
  EchoGateway echo(options);
  RawClient client(echo.port());
  ASSERT_TRUE(client.send(nettest::post("/echo", nettest::kHold)));
  std::optional<Reply> reply = client.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 504);
  EXPECT_EQ(reply->body, R"({"error":"No answer from 'echo' within 200 ms"})");
  EXPECT_FALSE(reply->closes());
  // The worker finishes the delivery; its answer never reaches the connection, which
  // serves the next request.
  echo.service->release();
  ASSERT_TRUE(echo.service->waitFinished(1));
  ASSERT_TRUE(client.send(nettest::post("/echo", "{\"next\":1}")));
  reply = client.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->body, "{\"next\":1}");
  EXPECT_EQ(echo.rejected("delivery_timeout", 1), 1);
}

TEST(GatewayFlowTest, DrainAnswersTheRequestInFlightRefusesNewConnectionsAndTurnsHealthTo503) {
  HttpGatewayOptions options;
  options.drainTimeout = milliseconds(5000);
  EchoGateway echo(options);
  const std::uint16_t port = echo.port();

  RawClient inFlight(port);
  ASSERT_TRUE(inFlight.send(nettest::post("/echo", nettest::kHold)));
  ASSERT_TRUE(echo.service->waitEntered(1));
  RawClient idle(port);  // kept alive after one answer
  ASSERT_TRUE(idle.send(nettest::get("/healthz")));
  std::optional<Reply> reply = idle.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->body, R"({"status":"ok"})");
  RawClient probe(port);  // half its header sent when the drain begins
  ASSERT_TRUE(probe.send("GET /healthz HTTP/1.1\r\nHost: t\r\n"));
  std::this_thread::sleep_for(milliseconds(50));  // the probe's bytes are read

  const auto begin = std::chrono::steady_clock::now();
  auto stopped = std::async(std::launch::async, [&] { echo.gateway->stop(); });

  // New connections are refused once the listener closes.
  bool refused = false;
  for (int attempt = 0; attempt < 100 && !refused; ++attempt) {
    const int fd = nettest::connectLoopback(port);
    refused = fd < 0;
    if (fd >= 0) {
      ::close(fd);
      std::this_thread::sleep_for(milliseconds(20));
    }
  }
  EXPECT_TRUE(refused);
  // The idle connection is closed at once.
  EXPECT_TRUE(idle.closedWithin(kAnswerWait));
  // The probe, read during the drain, sees 503 draining.
  ASSERT_TRUE(probe.send("\r\n"));
  reply = probe.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 503);
  EXPECT_EQ(reply->body, R"({"status":"draining"})");
  EXPECT_TRUE(reply->closes());
  // The request in flight is answered, with Connection: close.
  echo.service->release();
  reply = inFlight.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->body, nettest::kHold);
  EXPECT_TRUE(reply->closes());
  ASSERT_EQ(stopped.wait_for(kAnswerWait), std::future_status::ready);
  // Done well before the drain time-out: nothing was left to wait for.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(4000));
}

TEST(GatewayFlowTest, DrainClosesWhatRemainsAfterItsTimeOut) {
  HttpGatewayOptions options;
  options.drainTimeout = milliseconds(300);
  EchoGateway echo(options);
  RawClient inFlight(echo.port());
  ASSERT_TRUE(inFlight.send(nettest::post("/echo", nettest::kHold)));
  ASSERT_TRUE(echo.service->waitEntered(1));
  const auto begin = std::chrono::steady_clock::now();
  echo.gateway->stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(3000));
  EXPECT_TRUE(inFlight.closedWithin(kAnswerWait));
  echo.service->release();
  EXPECT_TRUE(echo.service->waitFinished(1));
}

}  // namespace

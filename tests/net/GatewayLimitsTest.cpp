// HttpGateway under clients that hold connections, send slowly or send too much: each
// is answered or closed by its limit, and the others are served meanwhile.
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

const milliseconds kAnswerWait{5000};

TEST(GatewayLimitsTest, IdleConnectionsDoNotDelayANewClient) {
  HttpGatewayOptions options;
  options.threads = 2;
  EchoGateway echo(options);
  // Far more idle connections than threads: half never sent a byte, half are
  // kept alive after an answer.
  std::vector<std::unique_ptr<RawClient>> idle;
  for (int i = 0; i < 100; ++i) {
    idle.push_back(std::make_unique<RawClient>(echo.port()));
    if (i % 2 == 0) {
      ASSERT_TRUE(idle.back()->send(nettest::post("/echo", "{}")));
      ASSERT_TRUE(idle.back()->readReply(kAnswerWait));
    }
  }
  RawClient fresh(echo.port());
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(fresh.send(nettest::post("/echo", R"({"a":1})")));
  std::optional<Reply> reply = fresh.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->body, R"({"a":1})");
  // The old thread-per-connection gateway made this client wait for a keep-alive
  // time-out (15 s); an answer takes milliseconds.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
}

TEST(GatewayLimitsTest, ASlowHeaderIsClosedAtItsDeadlineAndCounted) {
  HttpGatewayOptions options;
  options.headerTimeout = milliseconds(300);
  EchoGateway echo(options);
  RawClient slow(echo.port());
  RawClient silent(echo.port());
  ASSERT_TRUE(slow.send("POST /echo HTTP/1.1\r\nHost: t\r\nContent-Le"));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(slow.closedWithin(kAnswerWait));
  EXPECT_TRUE(silent.closedWithin(kAnswerWait));
  const auto waited = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(waited, milliseconds(200));
  EXPECT_LT(waited, milliseconds(3000));
  EXPECT_EQ(echo.rejected("header_timeout", 2), 2);
}

TEST(GatewayLimitsTest, AKeptAliveConnectionIsClosedAfterItsIdleTimeOut) {
  HttpGatewayOptions options;
  options.keepAliveTimeout = milliseconds(200);
  EchoGateway echo(options);
  RawClient client(echo.port());
  ASSERT_TRUE(client.send(nettest::post("/echo", "{}")));
  ASSERT_TRUE(client.readReply(kAnswerWait));
  EXPECT_TRUE(client.closedWithin(kAnswerWait));
}

TEST(GatewayLimitsTest, ABodyThatStallsIsClosedAtItsDeadlineAndCounted) {
  HttpGatewayOptions options;
  options.bodyTimeout = milliseconds(300);
  EchoGateway echo(options);
  RawClient client(echo.port());
  ASSERT_TRUE(client.send("POST /echo HTTP/1.1\r\nHost: t\r\nContent-Length: 10\r\n\r\n{\"a\""));
  EXPECT_TRUE(client.closedWithin(kAnswerWait));
  EXPECT_EQ(echo.rejected("body_timeout", 1), 1);
}

TEST(GatewayLimitsTest, A413ComesBeforeTheBodyIsRead) {
  HttpGatewayOptions options;
  options.maxBodyBytes = 1024;
  EchoGateway echo(options);
  RawClient client(echo.port());
  // Ten megabytes announced, not one byte of them sent: the answer cannot wait for them.
  ASSERT_TRUE(client.send("POST /echo HTTP/1.1\r\nHost: t\r\nContent-Length: 10485760\r\n\r\n"));
  std::optional<Reply> reply = client.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 413);
  EXPECT_EQ(reply->body, R"({"error":"Request body exceeds the limit of 1024 bytes"})");
  EXPECT_TRUE(reply->closes());
  EXPECT_EQ(echo.rejected("body_size", 1), 1);
}

TEST(GatewayLimitsTest, AChunkedBodyIsAnswered413AsSoonAsItPassesTheLimit) {
  HttpGatewayOptions options;
  options.maxBodyBytes = 1024;
  EchoGateway echo(options);
  RawClient client(echo.port());
  // 2000 bytes in one chunk; the rest of the body never comes.
  ASSERT_TRUE(
      client.send("POST /echo HTTP/1.1\r\nHost: t\r\nTransfer-Encoding: chunked\r\n\r\n"
                  "7d0\r\n" +
                  std::string(2000, ' ') + "\r\n"));
  std::optional<Reply> reply = client.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 413);
  EXPECT_TRUE(reply->closes());
}

TEST(GatewayLimitsTest, ATooLargeHeaderGets431) {
  EchoGateway echo;
  RawClient client(echo.port());
  ASSERT_TRUE(client.send("POST /echo HTTP/1.1\r\nHost: t\r\nX-Padding: " + std::string(9000, 'p') +
                          "\r\nContent-Length: 2\r\n\r\n{}"));
  std::optional<Reply> reply = client.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 431);
  EXPECT_EQ(reply->header("content-type"), "application/json");
  EXPECT_EQ(reply->body, R"({"error":"Request header exceeds the limit of 8192 bytes"})");
  EXPECT_TRUE(reply->closes());
  // A header just under the limit is served.
  RawClient fits(echo.port());
  ASSERT_TRUE(fits.send("POST /echo HTTP/1.1\r\nHost: t\r\nX-Padding: " + std::string(7000, 'p') +
                        "\r\nContent-Length: 2\r\n\r\n{}"));
  reply = fits.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
}

TEST(GatewayLimitsTest, ConnectionsPastMaxConnectionsGet503) {
  HttpGatewayOptions options;
  options.maxConnections = 3;
  EchoGateway echo(options);
  std::vector<std::unique_ptr<RawClient>> held;
  for (int i = 0; i < 3; ++i) {
    held.push_back(std::make_unique<RawClient>(echo.port()));
    ASSERT_TRUE(held.back()->send(nettest::post("/echo", "{}")));
    ASSERT_TRUE(held.back()->readReply(kAnswerWait));  // accepted and counted
  }
  RawClient extra(echo.port());
  extra.send(nettest::post("/echo", "{}"));
  std::optional<Reply> reply = extra.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 503);
  EXPECT_EQ(reply->body, R"x({"error":"Too many connections (limit 3)"})x");
  EXPECT_TRUE(reply->closes());
  EXPECT_TRUE(extra.closedWithin(kAnswerWait));
  // Once one leaves, a new connection is served again.
  held.front().reset();
  bool served = false;
  for (int attempt = 0; attempt < 50 && !served; ++attempt) {
    RawClient again(echo.port());
    again.send(nettest::post("/echo", "{}"));
    std::optional<Reply> next = again.readReply(kAnswerWait);
    served = next && next->status == 200;
    if (!served) std::this_thread::sleep_for(milliseconds(20));
  }
  EXPECT_TRUE(served);
  // The extra one, and any retry made before the gateway saw the first one leave.
  EXPECT_GE(echo.rejected("connections", 1), 1);
}

TEST(GatewayLimitsTest, ABodyCutShortIsAnswered400) {
  EchoGateway echo;
  RawClient client(echo.port());
  ASSERT_TRUE(client.send("POST /echo HTTP/1.1\r\nHost: t\r\nContent-Length: 50\r\n\r\n{}"));
  client.shutdownSending();
  std::optional<Reply> reply = client.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 400);
  EXPECT_EQ(reply->body, R"({"error":"Request ends before its body is complete"})");
}

TEST(GatewayLimitsTest, ReservedPathsAnswerGetOnly) {
  EchoGateway echo;
  RawClient client(echo.port());
  ASSERT_TRUE(client.send(nettest::get("/healthz")));
  std::optional<Reply> reply = client.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->body, R"({"status":"ok"})");
  ASSERT_TRUE(client.send(nettest::post("/metrics", "{}")));
  reply = client.readReply(kAnswerWait);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 405);
  EXPECT_EQ(reply->header("allow"), "GET");
  EXPECT_EQ(reply->body, R"({"error":"Method POST is not allowed on /metrics; use GET"})");
}

}  // namespace

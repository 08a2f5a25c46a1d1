// HttpGateway with bearer tokens: which requests need one, the 401 answer, the tokens
// file and its reload, and that a refusal never logs the token it carried.
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "EchoGateway.hpp"
#include "NetFixtures.hpp"
#include "RawClient.hpp"
#include "TestPki.hpp"
#include "support/ExpectThrow.hpp"
#include "support/LogCapture.hpp"

namespace {

using connector::net::HttpGateway;
using connector::net::HttpGatewayOptions;
using connector::net::HttpLinkOptions;
using nettest::EchoGateway;
using nettest::RawClient;
using nettest::Reply;
using nettest::testPki;
using nettest::writeFile;
using std::chrono::milliseconds;

const milliseconds kWait{5000};
const std::string kToken = "tok-3f9a2c41d7e8b5a6";

// A tokens file of its own per test, in the run's temporary folder.
std::string tokensFile(const std::string& text) {
  static int next = 0;
  const std::string path = testPki().file("tokens-" + std::to_string(++next));
  writeFile(path, text);
  return path;
}

HttpGatewayOptions withTokens(const std::string& text) {
  HttpGatewayOptions options;
  options.authTokensFile = tokensFile(text);
  return options;
}

std::string request(const std::string& method, const std::string& target,
                    const std::string& authorization, const std::string& body = "") {
  std::string text = method + " " + target + " HTTP/1.1\r\nHost: t\r\n";
  if (!authorization.empty()) text += "Authorization: " + authorization + "\r\n";
  if (!body.empty()) {
    text +=
        "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
  }
  return text + "\r\n" + body;
}

Reply exchange(std::uint16_t port, const std::string& bytes) {
  RawClient client(port);
  EXPECT_TRUE(client.send(bytes));
  std::optional<Reply> reply = client.readReply(kWait);
  if (!reply) throw std::runtime_error("no answer");
  return *reply;
}

TEST(GatewayTokensTest, ARequestWithoutATokenIsRefused401AndNotDelivered) {
  EchoGateway echo(withTokens(kToken + "\n"));
  const Reply reply = exchange(echo.port(), request("POST", "/echo", "", R"({"a":1})"));
  EXPECT_EQ(reply.status, 401);
  EXPECT_EQ(reply.header("www-authenticate"), "Bearer");
  EXPECT_EQ(reply.header("content-type"), "application/json");
  EXPECT_EQ(reply.body, R"({"error":"Missing bearer token"})");
  EXPECT_EQ(echo.rejected("auth", 1), 1);
  EXPECT_EQ(exchange(echo.port(), request("POST", "/echo", "Bearer " + kToken, "{}")).status, 200);
  // Only the accepted request reached the service.
  EXPECT_EQ(echo.service->deliveries(), 1);
}

TEST(GatewayTokensTest, AWrongTokenIsRefused401) {
  EchoGateway echo(withTokens(kToken + "\n"));
  const Reply reply = exchange(echo.port(), request("POST", "/echo", "Bearer wrong-token", "{}"));
  EXPECT_EQ(reply.status, 401);
  EXPECT_EQ(reply.header("www-authenticate"), "Bearer");
  EXPECT_EQ(reply.body, R"({"error":"Invalid bearer token"})");
  // A token that only starts like the right one is as wrong.
  const Reply prefix = exchange(
      echo.port(), request("POST", "/echo", "Bearer " + kToken.substr(0, kToken.size() - 1), "{}"));
  EXPECT_EQ(prefix.status, 401);
  const Reply longer =
      exchange(echo.port(), request("POST", "/echo", "Bearer " + kToken + "0", "{}"));
  EXPECT_EQ(longer.status, 401);
  EXPECT_EQ(echo.rejected("auth", 3), 3);
}

TEST(GatewayTokensTest, NothingIsDeliveredForARefusedRequest) {
  EchoGateway echo(withTokens(kToken + "\n"));
  for (const std::string& authorization : {std::string(), std::string("Bearer nope")}) {
    EXPECT_EQ(exchange(echo.port(), request("POST", "/echo", authorization, "hold")).status, 401);
  }
  // A delivery would have been held by the service and left these answers waiting.
  EXPECT_EQ(echo.service->deliveries(), 0);
  EXPECT_EQ(exchange(echo.port(), request("POST", "/echo", "Bearer " + kToken, "{}")).status, 200);
  EXPECT_EQ(echo.service->deliveries(), 1);
  const std::string metrics =
      exchange(echo.port(), request("GET", "/metrics", "Bearer " + kToken)).body;
  EXPECT_NE(metrics.find("connector_gateway_requests_total{status=\"401\"} 2"), std::string::npos)
      << metrics;
  EXPECT_NE(metrics.find("connector_gateway_requests_total{status=\"200\"} 1"), std::string::npos);
}

TEST(GatewayTokensTest, AnAuthorizationThatIsNoBearerTokenIsRefused) {
  EchoGateway echo(withTokens(kToken + "\n"));
  const std::string malformed = R"({"error":"The Authorization header must be 'Bearer <token>'"})";
  for (const std::string& authorization :
       {std::string("Basic dXNlcjpwYXNz"), std::string("Bearer"), "Bearer " + kToken + " extra",
        "Token " + kToken, "Bearer" + kToken}) {
    const Reply reply = exchange(echo.port(), request("POST", "/echo", authorization, "{}"));
    EXPECT_EQ(reply.status, 401) << authorization;
    EXPECT_EQ(reply.body, malformed) << authorization;
    EXPECT_EQ(reply.header("www-authenticate"), "Bearer");
  }
  // Two Authorization headers, one of them right: refused.
  const Reply twice =
      exchange(echo.port(), "POST /echo HTTP/1.1\r\nHost: t\r\nAuthorization: Bearer " + kToken +
                                "\r\nAuthorization: Bearer other\r\nContent-Length: 2\r\n\r\n{}");
  EXPECT_EQ(twice.status, 401);
  EXPECT_EQ(twice.body, malformed);
}

TEST(GatewayTokensTest, TheSchemeIsCaseInsensitiveAndBlanksAroundTheTokenAreIgnored) {
  EchoGateway echo(withTokens(kToken + "\n"));
  for (const std::string& authorization :
       {"bearer " + kToken, "BEARER " + kToken, "Bearer   " + kToken + "  "}) {
    EXPECT_EQ(exchange(echo.port(), request("POST", "/echo", authorization, "{}")).status, 200)
        << authorization;
  }
}

TEST(GatewayTokensTest, HealthIsOpenWithoutATokenAndEverythingElseNeedsOne) {
  EchoGateway echo(withTokens(kToken + "\n"));
  const Reply health = exchange(echo.port(), request("GET", "/healthz", ""));
  EXPECT_EQ(health.status, 200);
  EXPECT_EQ(health.body, R"({"status":"ok"})");
  EXPECT_EQ(exchange(echo.port(), request("GET", "/healthz?x=1", "")).status, 200);
  for (const auto& [method, target] : {std::pair<std::string, std::string>{"GET", "/"},
                                       {"GET", "/metrics"},
                                       {"POST", "/healthz"},
                                       {"DELETE", "/echo"},
                                       {"POST", "/nowhere"}}) {
    const Reply reply = exchange(echo.port(), request(method, target, ""));
    EXPECT_EQ(reply.status, 401) << method << " " << target;
  }
  EXPECT_EQ(exchange(echo.port(), request("GET", "/", "Bearer " + kToken)).status, 200);
  EXPECT_EQ(exchange(echo.port(), request("GET", "/metrics", "Bearer " + kToken)).status, 200);
  EXPECT_EQ(exchange(echo.port(), request("POST", "/nowhere", "Bearer " + kToken, "{}")).status,
            404);
  EXPECT_EQ(exchange(echo.port(), request("POST", "/healthz", "Bearer " + kToken)).status, 405);
}

TEST(GatewayTokensTest, ARefusedRequestWithABodyClosesItsConnectionAndOneWithoutKeepsIt) {
  EchoGateway echo(withTokens(kToken + "\n"));
  RawClient withBody(echo.port());
  ASSERT_TRUE(withBody.send(request("POST", "/echo", "", R"({"a":1})")));
  std::optional<Reply> refused = withBody.readReply(kWait);
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, 401);
  EXPECT_TRUE(refused->closes());
  EXPECT_TRUE(withBody.closedWithin(kWait));

  RawClient without(echo.port());
  ASSERT_TRUE(without.send(request("GET", "/", "")));
  std::optional<Reply> first = without.readReply(kWait);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->status, 401);
  EXPECT_FALSE(first->closes());
  ASSERT_TRUE(without.send(request("GET", "/", "Bearer " + kToken)));
  std::optional<Reply> second = without.readReply(kWait);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->status, 200);
}

TEST(GatewayTokensTest, TheLinkSendsItsTokenAndReportsARefusal) {
  nettest::FarShop far(withTokens("# the shop's clients\n\n" + kToken + "\r\n"));
  HttpLinkOptions right;
  right.bearerToken = kToken;
  nettest::ClientShop good(far.url(), right);
  EXPECT_TRUE(dynamic_cast<shop::Reservation&>(*good.reserve("LAMP-01", 1)).accepted);

  HttpLinkOptions wrong;
  wrong.bearerToken = "not-the-token";
  nettest::ClientShop bad(far.url(), wrong);
  EXPECT_THROW_TEXT(bad.reserve("LAMP-01", 1), std::runtime_error,
                    "POST " + far.url() +
                        "/shop/ReserveItem failed: HTTP 401 Unauthorized: Invalid bearer token");
  nettest::ClientShop none(far.url());
  EXPECT_THROW_TEXT(none.reserve("LAMP-01", 1), std::runtime_error,
                    "POST " + far.url() +
                        "/shop/ReserveItem failed: HTTP 401 Unauthorized: Missing bearer token");
}

TEST(GatewayTokensTest, TokensAndRefusalsWorkOverHttps) {
  HttpGatewayOptions options = withTokens(kToken + "\n");
  options.tlsCertificateFile = testPki().file("server.pem");
  options.tlsKeyFile = testPki().file("server.key");
  nettest::FarShop far(options);
  HttpLinkOptions link;
  link.caFile = testPki().file("ca.pem");
  link.bearerToken = kToken;
  nettest::ClientShop good(far.url(), link);
  EXPECT_TRUE(dynamic_cast<shop::Reservation&>(*good.reserve("LAMP-01", 2)).accepted);
  link.bearerToken = "wrong";
  nettest::ClientShop bad(far.url(), link);
  EXPECT_THROW_TEXT(bad.reserve("LAMP-01", 1), std::runtime_error,
                    "POST " + far.url() +
                        "/shop/ReserveItem failed: HTTP 401 Unauthorized: Invalid bearer token");
}

TEST(GatewayTokensTest, ARefusalIsLoggedWithoutTheTokenItCarried) {
  connector::testing::ModuleLogSwitch on(connector::testing::kModuleErrorBit);
  connector::testing::LogCapture capture;
  EchoGateway echo(withTokens(kToken + "\n"));
  const std::string carried = "sEcReT-carried-token";
  EXPECT_EQ(exchange(echo.port(),
                     request("POST", "/echo?access_token=" + carried, "Bearer " + carried, "{}"))
                .status,
            401);
  EXPECT_EQ(exchange(echo.port(), request("POST", "/echo", "Basic " + carried, "{}")).status, 401);
  ASSERT_EQ(echo.rejected("auth", 2), 2);
  std::vector<connector::testing::CapturedRecord> records;
  for (int i = 0; i < 200 && records.size() < 2; ++i) {
    records = capture.records();
    std::this_thread::sleep_for(milliseconds(5));
  }
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].channel, "connector::json");
  EXPECT_EQ(records[0].message.rfind("HttpGateway refused a client at 127.0.0.1:", 0), 0u);
  EXPECT_NE(records[0].message.find(": 401 POST /echo: Invalid bearer token"), std::string::npos)
      << records[0].message;
  EXPECT_NE(records[1].message.find(
                ": 401 POST /echo: The Authorization header must be 'Bearer <token>'"),
            std::string::npos)
      << records[1].message;
  for (const auto& record : records) {
    EXPECT_EQ(record.message.find(carried), std::string::npos) << record.message;
    EXPECT_EQ(record.message.find(kToken), std::string::npos) << record.message;
  }
}

// ---- the tokens file --------------------------------------------------------------

TEST(GatewayTokensTest, TheFileTakesOneTokenPerLineSkippingBlanksAndComments) {
  EchoGateway echo(withTokens("# rotated monthly\n\n  first-token  \r\nsecond/token+==\n\t\n"));
  for (const std::string token : {"first-token", "second/token+=="}) {
    EXPECT_EQ(exchange(echo.port(), request("POST", "/echo", "Bearer " + token, "{}")).status, 200)
        << token;
  }
  EXPECT_EQ(exchange(echo.port(), request("POST", "/echo", "Bearer rotated", "{}")).status, 401);
}

TEST(GatewayTokensTest, ReloadPutsTheRewrittenFileInForce) {
  HttpGatewayOptions options = withTokens("old-token\n");
  EchoGateway echo(options);
  EXPECT_EQ(exchange(echo.port(), request("GET", "/", "Bearer old-token")).status, 200);
  writeFile(options.authTokensFile, "new-token\nsecond-new-token\n");
  EXPECT_EQ(echo.gateway->reloadTokens(), 2u);
  EXPECT_EQ(exchange(echo.port(), request("GET", "/", "Bearer old-token")).status, 401);
  EXPECT_EQ(exchange(echo.port(), request("GET", "/", "Bearer new-token")).status, 200);
  EXPECT_EQ(exchange(echo.port(), request("GET", "/", "Bearer second-new-token")).status, 200);
}

TEST(GatewayTokensTest, AFailedReloadKeepsTheTokensInForce) {
  HttpGatewayOptions options = withTokens("kept-token\n");
  EchoGateway echo(options);
  writeFile(options.authTokensFile, "# emptied by mistake\n");
  EXPECT_THROW_TEXT(echo.gateway->reloadTokens(), std::runtime_error,
                    "HttpGateway: the tokens file '" + options.authTokensFile + "' holds no token");
  writeFile(options.authTokensFile, "good-token\nhas a space\n");
  EXPECT_THROW_TEXT(echo.gateway->reloadTokens(), std::runtime_error,
                    "HttpGateway: line 2 of the tokens file '" + options.authTokensFile +
                        "' is not a bearer token");
  std::remove(options.authTokensFile.c_str());
  EXPECT_THROW_TEXT(echo.gateway->reloadTokens(), std::runtime_error,
                    "HttpGateway cannot read the tokens file '" + options.authTokensFile +
                        "': No such file or directory");
  EXPECT_EQ(exchange(echo.port(), request("GET", "/", "Bearer kept-token")).status, 200);
  EXPECT_EQ(exchange(echo.port(), request("GET", "/", "Bearer good-token")).status, 401);
}

TEST(GatewayTokensTest, AGatewayWithoutATokensFileHasNothingToReload) {
  EchoGateway echo;
  EXPECT_THROW_TEXT(echo.gateway->reloadTokens(), std::logic_error,
                    "HttpGateway has no tokens file");
  EXPECT_EQ(exchange(echo.port(), request("GET", "/", "")).status, 200);
}

TEST(GatewayTokensTest, AMissingOrUnusableTokensFileFailsConstruction) {
  HttpGatewayOptions options;
  options.authTokensFile = testPki().file("no-such-tokens");
  EXPECT_THROW_TEXT(HttpGateway(std::make_shared<connector::Router>(), options), std::runtime_error,
                    "HttpGateway cannot read the tokens file '" + options.authTokensFile +
                        "': No such file or directory");
  options.authTokensFile = tokensFile("\n# nothing\n");
  EXPECT_THROW_TEXT(HttpGateway(std::make_shared<connector::Router>(), options), std::runtime_error,
                    "HttpGateway: the tokens file '" + options.authTokensFile + "' holds no token");
  options.authTokensFile = tokensFile("ok-token\nsecret\"quoted\n");
  EXPECT_THROW_TEXT(HttpGateway(std::make_shared<connector::Router>(), options), std::runtime_error,
                    "HttpGateway: line 2 of the tokens file '" + options.authTokensFile +
                        "' is not a bearer token");
}

}  // namespace

// HttpGateway and the content of a POST: JSON content types are delivered as sent, any
// other type is refused 415 and a body that is not a JSON object 400, undelivered.
#include <chrono>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "EchoGateway.hpp"
#include "RawClient.hpp"

namespace {

using nettest::EchoGateway;
using nettest::RawClient;
using nettest::Reply;
using std::chrono::milliseconds;

const milliseconds kAnswerWait{5000};
const std::string kNotJson = R"({"error":"Content-Type must be application/json"})";
const std::string kNotAnObject = R"({"error":"the request body must be a JSON object"})";

// "POST /echo" with this Content-Type field (none when empty), keep-alive.
std::string postTyped(const std::string& contentType, const std::string& body) {
  std::string request = "POST /echo HTTP/1.1\r\nHost: t\r\n";
  if (!contentType.empty()) request += "Content-Type: " + contentType + "\r\n";
  return request + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::optional<Reply> roundTrip(RawClient& client, const std::string& request) {
  if (!client.send(request)) return std::nullopt;
  return client.readReply(kAnswerWait);
}

TEST(GatewayContentTest, JsonContentTypesAreDeliveredWithTheTypeAsSent) {
  EchoGateway echo;
  RawClient client(echo.port());
  for (const std::string type :
       {"application/json", "application/json; charset=utf-8", "Application/JSON",
        "APPLICATION/JSON;charset=UTF-8", "application/vnd.shop+json",
        "application/Problem+JSON ; q=1", " application/json "}) {
    const auto reply = roundTrip(client, postTyped(type, R"({"n":1})"));
    ASSERT_TRUE(reply) << type;
    EXPECT_EQ(reply->status, 200) << type;
    EXPECT_EQ(reply->body, R"({"n":1})") << type;
    // The echo answers with the request's own message: its content type is the one sent.
    EXPECT_EQ(reply->header("content-type"),
              type.substr(type.find_first_not_of(' '),
                          type.find_last_not_of(' ') + 1 - type.find_first_not_of(' ')))
        << type;
  }
  EXPECT_EQ(echo.service->deliveries(), 7);
  EXPECT_EQ(echo.rejected("content_type", 0), 0);
}

TEST(GatewayContentTest, ARequestWithoutContentTypeIsDeliveredAsJson) {
  EchoGateway echo;
  RawClient client(echo.port());
  const auto reply = roundTrip(client, postTyped("", R"({"n":2})"));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->header("content-type"), "application/json");
  EXPECT_EQ(reply->body, R"({"n":2})");
  EXPECT_EQ(echo.service->deliveries(), 1);
}

TEST(GatewayContentTest, AnyOtherContentTypeIsAnswered415AndNothingIsDelivered) {
  EchoGateway echo;
  int refused = 0;
  for (const std::string type :
       {"text/plain", "text/json", "application/xml", "application/jsonx", "application/+json",
        "application/json+xml", "application/x-www-form-urlencoded", "multipart/form-data", "json",
        "application/", "application/ json"}) {
    RawClient client(echo.port());
    const auto reply = roundTrip(client, postTyped(type, R"({"n":3})"));
    ASSERT_TRUE(reply) << type;
    ++refused;
    EXPECT_EQ(reply->status, 415) << type;
    EXPECT_EQ(reply->header("content-type"), "application/json") << type;
    EXPECT_EQ(reply->body, kNotJson) << type;
    // The body was never read: the connection closes after the answer.
    EXPECT_TRUE(reply->closes()) << type;
    EXPECT_TRUE(client.closedWithin(kAnswerWait)) << type;
  }
  EXPECT_EQ(echo.service->deliveries(), 0);
  EXPECT_EQ(echo.rejected("content_type", refused), refused);
}

TEST(GatewayContentTest, A415WithoutABodyKeepsTheConnection) {
  EchoGateway echo;
  RawClient client(echo.port());
  const auto refused = roundTrip(client, postTyped("text/plain", ""));
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, 415);
  EXPECT_EQ(refused->body, kNotJson);
  EXPECT_FALSE(refused->closes());
  const auto served = roundTrip(client, nettest::post("/echo", R"({"n":4})"));
  ASSERT_TRUE(served);
  EXPECT_EQ(served->status, 200);
  EXPECT_EQ(served->body, R"({"n":4})");
  EXPECT_EQ(echo.service->deliveries(), 1);
  EXPECT_EQ(echo.rejected("content_type", 1), 1);
}

TEST(GatewayContentTest, GetRoutesIgnoreTheContentType) {
  EchoGateway echo;
  RawClient client(echo.port());
  const auto reply =
      roundTrip(client, "GET /healthz HTTP/1.1\r\nHost: t\r\nContent-Type: text/plain\r\n\r\n");
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 200);
  EXPECT_EQ(reply->body, R"({"status":"ok"})");
}

TEST(GatewayContentTest, ABodyThatIsNotAJsonObjectIsAnswered400AndTheConnectionServesOn) {
  EchoGateway echo;
  RawClient client(echo.port());
  for (const std::string body :
       {"[]", "[{\"n\":1}]", "\"text\"", "12", "true", "null", "hello", " \r\n\t[1]", "\v{}"}) {
    const auto reply = roundTrip(client, nettest::post("/echo", body));
    ASSERT_TRUE(reply) << body;
    EXPECT_EQ(reply->status, 400) << body;
    EXPECT_EQ(reply->header("content-type"), "application/json") << body;
    EXPECT_EQ(reply->body, kNotAnObject) << body;
    EXPECT_FALSE(reply->closes()) << body;
  }
  const auto served = roundTrip(client, nettest::post("/echo", " \r\n\t{\"n\":5}"));
  ASSERT_TRUE(served);
  EXPECT_EQ(served->status, 200);
  EXPECT_EQ(served->body, " \r\n\t{\"n\":5}");
  EXPECT_EQ(echo.service->deliveries(), 1);
}

TEST(GatewayContentTest, AnEmptyOrBlankBodyIsNotAJsonObject) {
  EchoGateway echo;
  RawClient client(echo.port());
  for (const std::string body : {"", "   "}) {
    const auto reply = roundTrip(client, nettest::post("/echo", body));
    ASSERT_TRUE(reply) << "'" << body << "'";
    EXPECT_EQ(reply->status, 400);
    EXPECT_EQ(reply->body, kNotAnObject);
  }
  // A chunked body that ends empty too.
  const auto chunked =
      roundTrip(client,
                "POST /echo HTTP/1.1\r\nHost: t\r\nContent-Type: application/json\r\n"
                "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n");
  ASSERT_TRUE(chunked);
  EXPECT_EQ(chunked->status, 400);
  EXPECT_EQ(chunked->body, kNotAnObject);
  EXPECT_EQ(echo.service->deliveries(), 0);
}

TEST(GatewayContentTest, AnUnboundAddressWithANonObjectBodyIsStillRefusedForItsBody) {
  // The body is judged before any service is looked for: nothing is delivered at all.
  EchoGateway echo;
  RawClient client(echo.port());
  const auto reply = roundTrip(client, nettest::post("/nowhere", "[]"));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->status, 400);
  EXPECT_EQ(reply->body, kNotAnObject);
}

}  // namespace

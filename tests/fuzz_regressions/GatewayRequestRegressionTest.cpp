// Requests found by the gateway's fuzz target, kept as tests: each is answered (the
// connection does not hang), and the gateway goes on serving the next request.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include <Poco/Net/NetException.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Timespan.h>

#include <connector/json.hpp>
#include <connector/net/HttpGateway.hpp>
#include <connector/transport/ErrorBody.hpp>

namespace connector::net {
namespace {

// Answers every typed request with itself.
class EchoContext : public Context {
 public:
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                           Address&& /*address*/) override {
    return makeReadyFuture<std::unique_ptr<Message>>(std::move(message));
  }
};

class GatewayRequestRegressionTest : public ::testing::Test {
 protected:
  GatewayRequestRegressionTest() {
    auto serializer = std::make_shared<json::JsonSerializerImpl>();
    router->bind(Address("fuzz/echo"),
                 std::make_shared<json::JsonDeserializerServiceProvider>(serializer),
                 std::make_shared<EchoContext>());
    router->start();
    HttpGatewayOptions options;
    options.threads = 2;
    gateway = std::make_unique<HttpGateway>(router, options);
    gateway->start();
  }

  // Sends the bytes, closes the sending side, and returns everything the gateway sends
  // back before it closes the connection (empty when it closes without a word).
  std::string exchange(const std::string& bytes) {
    Poco::Net::StreamSocket socket;
    socket.connect(Poco::Net::SocketAddress("127.0.0.1", gateway->port()));
    socket.setReceiveTimeout(Poco::Timespan(5, 0));
    socket.sendBytes(bytes.data(), static_cast<int>(bytes.size()));
    socket.shutdownSend();
    std::string answer;
    char buffer[4096];
    try {
      for (int n = socket.receiveBytes(buffer, sizeof buffer); n > 0;
           n = socket.receiveBytes(buffer, sizeof buffer)) {
        answer.append(buffer, static_cast<std::size_t>(n));
      }
    } catch (const Poco::TimeoutException&) {
      ADD_FAILURE() << "no answer within 5 s";
    } catch (const Poco::Net::NetException&) {
      // A reset after the answer.
    }
    return answer;
  }

  // A well-formed request is still served: 200 with the echoed message.
  void expectStillServing() {
    const std::string body = R"({"type":"connector/Message"})";
    const std::string answer = exchange(
        "POST /fuzz/echo HTTP/1.1\r\nHost: test\r\nContent-Type: application/json\r\n"
        "Content-Length: " +
        std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
    EXPECT_EQ(answer.compare(0, 13, "HTTP/1.1 200 "), 0) << answer;
    EXPECT_EQ(answer.substr(answer.size() - body.size()), body);
  }

  std::shared_ptr<Router> router = std::make_shared<Router>();
  std::unique_ptr<HttpGateway> gateway;
};

// The client closed its sending side before the declared body had arrived.
TEST_F(GatewayRequestRegressionTest, ABodyCutShortOfItsContentLengthIsAnsweredAndServingGoesOn) {
  const std::string answer = exchange(
      "POST /fuzz/echo HTTP/1.1\r\nHost: fuzz\r\nContent-Type: application/json\r\n"
      "Content-Length: 85\r\n\r\n[null, 1, \"1\", {}]\n");
  EXPECT_EQ(answer.compare(0, 9, "HTTP/1.1 "), 0) << answer;
  expectStillServing();
}

// A control character inside the protocol version of the request line.
TEST_F(GatewayRequestRegressionTest, AMalformedProtocolVersionIsAnswered400AndServingGoesOn) {
  const std::string answer = exchange(
      "POST /fuzz/echo HTTP/\v.1\r\nHost: fuzz\r\nContent-Type: application/json\r\n"
      "Content-Length: 2\r\n\r\n2@");
  EXPECT_NE(answer.find(" 400 "), std::string::npos) << answer;
  expectStillServing();
}

// A chunked body with a Content-Length beside it (here not even a number): which of the
// two ends the body is ambiguous, the classic way to smuggle a second request past a
// proxy, so the request is refused 400 and the connection closed; its body is never
// read as a request of its own.
TEST_F(GatewayRequestRegressionTest, AChunkedBodyWithAContentLengthBesideItIsRefused400) {
  const std::string answer = exchange(
      "POST /fuzz/echo HTTP/1.1\r\nHost: fuzz\r\nContent-Type: application/json\r\n"
      "Content-Length: \"count\",\r\nTransfer-Encoding: chunked\r\n\r\n"
      "1c\r\n{\"type\":\"connector/Message\"}\r\n0\r\n\r\n");
  EXPECT_EQ(answer.compare(0, 13, "HTTP/1.1 400 "), 0) << answer;
  EXPECT_NE(answer.find("Connection: close\r\n"), std::string::npos) << answer;
  EXPECT_EQ(answer.find("HTTP/1.1", 1), std::string::npos) << "a second answer: " << answer;
  const std::string body = R"({"error":"Malformed request: bad Content-Length"})";
  ASSERT_GE(answer.size(), body.size()) << answer;
  EXPECT_EQ(answer.substr(answer.size() - body.size()), body);
  expectStillServing();
}

// The same with a numeric Content-Length first, then the chunked encoding.
TEST_F(GatewayRequestRegressionTest, AContentLengthThenChunkedIsRefused400) {
  const std::string answer = exchange(
      "POST /fuzz/echo HTTP/1.1\r\nHost: fuzz\r\nContent-Length: 3\r\n"
      "Transfer-Encoding: chunked\r\n\r\n1c\r\n{\"type\":\"connector/Message\"}\r\n0\r\n\r\n");
  EXPECT_EQ(answer.compare(0, 13, "HTTP/1.1 400 "), 0) << answer;
  EXPECT_EQ(answer.find("HTTP/1.1", 1), std::string::npos) << "a second answer: " << answer;
  expectStillServing();
}

// An object whose value is a byte that is not UTF-8: the parser's error text quotes it,
// and the 400's body must still be JSON.
TEST_F(GatewayRequestRegressionTest, AnErrorQuotingBytesThatAreNotUtf8IsStillAJsonBody) {
  const std::string answer = exchange(
      "POST /fuzz/echo HTTP/1.1\r\nHost: fuzz\r\nContent-Type: application/json\r\n"
      "Content-Length: 7\r\n\r\n{\"a\":\xE5}");
  EXPECT_EQ(answer.compare(0, 13, "HTTP/1.1 400 "), 0) << answer;
  const std::size_t body = answer.find("\r\n\r\n");
  ASSERT_NE(body, std::string::npos) << answer;
  EXPECT_EQ(transport::errorText(answer.substr(body + 4)),
            "Parsing error: unexpected byte '\xEF\xBF\xBD' in value")
      << answer;
  expectStillServing();
}

// A Content-Type run together with the next header: not a JSON type, so 415 and nothing
// delivered; with no Content-Length left, the request has no body, and the bytes after
// its head are read as a next request, malformed, answered 400 with the connection closed.
TEST_F(GatewayRequestRegressionTest, AContentTypeRunTogetherWithTheNextHeaderIsAnswered415) {
  const std::string answer = exchange(
      "POST /fuzz/echo HTTP/1.1\r\nHost: fuzz\r\nContent-Type: application/jContent-Length: "
      "2\r\n\r\n{,");
  EXPECT_EQ(answer.compare(0, 13, "HTTP/1.1 415 "), 0) << answer;
  const std::string refused = R"({"error":"Content-Type must be application/json"})";
  const std::size_t second = answer.find("HTTP/1.1 400 ");
  ASSERT_NE(second, std::string::npos) << answer;
  EXPECT_EQ(answer.substr(second - refused.size(), refused.size()), refused) << answer;
  EXPECT_NE(answer.find("Connection: close\r\n", second), std::string::npos) << answer;
  expectStillServing();
}

}  // namespace
}  // namespace connector::net

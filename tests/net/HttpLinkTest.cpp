// HttpLink: POSTs of opaque messages, connection reuse, and every way an exchange fails.
#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/StreamCopier.h>

#include "NetFixtures.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using connector::Address;
using connector::Message;
using connector::common::DataBuffer;
using connector::json::OpaqueMessage;
using connector::net::HttpLink;
using connector::net::HttpLinkOptions;
using Clock = std::chrono::steady_clock;

std::unique_ptr<Message> opaque(const std::string& contentType, const std::string& text) {
  return std::make_unique<OpaqueMessage>(contentType, DataBuffer(text));
}

// A plain HTTP server that answers every request with its own body, content type
// prefixed by "echo/", and counts the connections it accepted.
class EchoHandler : public Poco::Net::HTTPRequestHandler {
 public:
  void handleRequest(Poco::Net::HTTPServerRequest& request,
                     Poco::Net::HTTPServerResponse& response) override {
    std::string body;
    Poco::StreamCopier::copyToString(request.stream(), body);
    response.setContentType("echo/" + request.getContentType());
    response.add("X-Target", request.getURI());
    response.sendBuffer(body.data(), body.size());
  }
};

class EchoFactory : public Poco::Net::HTTPRequestHandlerFactory {
 public:
  Poco::Net::HTTPRequestHandler* createRequestHandler(
      const Poco::Net::HTTPServerRequest&) override {
    return new EchoHandler;
  }
};

struct EchoServer {
  EchoServer()
      : socket(Poco::Net::SocketAddress("127.0.0.1", 0)),
        server(new EchoFactory, socket, new Poco::Net::HTTPServerParams) {
    server.start();
  }
  ~EchoServer() { server.stopAll(true); }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(socket.address().port()); }

  Poco::Net::ServerSocket socket;
  Poco::Net::HTTPServer server;
};

// A server that writes one canned reply (or resets) once it has read the request.
struct CannedServer {
  explicit CannedServer(std::string reply, bool reset = false)
      : socket(Poco::Net::SocketAddress("127.0.0.1", 0)) {
    worker = std::thread([this, reply = std::move(reply), reset] {
      Poco::Net::StreamSocket client = socket.acceptConnection();
      char buffer[4096];
      client.receiveBytes(buffer, sizeof buffer);
      if (reset) {
        client.setLinger(true, 0);
      } else {
        client.sendBytes(reply.data(), static_cast<int>(reply.size()));
      }
      client.close();
    });
  }
  ~CannedServer() { worker.join(); }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(socket.address().port()); }

  Poco::Net::ServerSocket socket;
  std::thread worker;
};

TEST(HttpLinkTest, PostsThePayloadWithItsContentTypeAndAnswersWithTheResponse) {
  EchoServer echo;
  HttpLink link(echo.url());
  std::unique_ptr<Message> answer =
      link.deliver(opaque("application/json", R"({"a":1})"), Address("shop/ReserveItem")).get();
  auto* reply = dynamic_cast<OpaqueMessage*>(answer.get());
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(reply->contentType, "echo/application/json");
  EXPECT_EQ(reply->payload.view(), R"({"a":1})");
}

TEST(HttpLinkTest, AnEmptyPayloadCrossesAsAnEmptyBody) {
  EchoServer echo;
  HttpLink link(echo.url());
  std::unique_ptr<Message> answer = link.deliver(opaque("text/plain", ""), Address("x")).get();
  EXPECT_EQ(dynamic_cast<OpaqueMessage&>(*answer).payload.size, 0u);
}

TEST(HttpLinkTest, ALargePayloadCrossesWhole) {
  EchoServer echo;
  HttpLink link(echo.url());
  std::string big(3 << 20, 'j');
  for (std::size_t i = 0; i < big.size(); i += 4093) big[i] = static_cast<char>('a' + i % 26);
  std::unique_ptr<Message> answer =
      link.deliver(opaque("application/json", big), Address("x")).get();
  EXPECT_EQ(dynamic_cast<OpaqueMessage&>(*answer).payload.view(), big);
}

TEST(HttpLinkTest, SequentialDeliveriesReuseOneConnection) {
  EchoServer echo;
  HttpLink link(echo.url());
  for (int i = 0; i < 5; ++i) {
    link.deliver(opaque("application/json", "{}"), Address("x")).get();
  }
  EXPECT_EQ(link.idleConnections(), 1u);
  EXPECT_EQ(echo.server.totalConnections(), 1);
}

TEST(HttpLinkTest, ZeroIdleConnectionsMeansANewConnectionPerDelivery) {
  EchoServer echo;
  HttpLinkOptions options;
  options.maxIdleConnections = 0;
  HttpLink link(echo.url(), options);
  for (int i = 0; i < 3; ++i) {
    link.deliver(opaque("application/json", "{}"), Address("x")).get();
  }
  EXPECT_EQ(link.idleConnections(), 0u);
  EXPECT_EQ(echo.server.totalConnections(), 3);
}

TEST(HttpLinkTest, AddressesAreAppendedToTheBasePathAndEncoded) {
  HttpLink link("http://example.test:8080/api/");
  EXPECT_EQ(link.urlFor(Address("shop/ReserveItem")),
            "http://example.test:8080/api/shop/ReserveItem");
  EXPECT_EQ(link.urlFor(Address("a b?c")), "http://example.test:8080/api/a%20b%3Fc");
  EXPECT_EQ(HttpLink("http://localhost").urlFor(Address("x")), "http://localhost:80/x");
}

TEST(HttpLinkTest, TheEncodedTargetReachesTheServer) {
  EchoServer echo;
  HttpLink link(echo.url() + "/v1");
  std::unique_ptr<Message> answer = link.deliver(opaque("a/b", "{}"), Address("a b/c")).get();
  EXPECT_EQ(dynamic_cast<OpaqueMessage&>(*answer).payload.view(), "{}");
}

TEST(HttpLinkTest, UrlsOtherThanHttpOrHttpsAreRefused) {
  EXPECT_THROW_TEXT(HttpLink("ftp://example.test"), std::invalid_argument,
                    "HttpLink needs an http:// or https:// URL, not 'ftp://example.test'");
  EXPECT_THROW_TEXT(HttpLink("example.test:80"), std::invalid_argument,
                    "HttpLink needs an http:// or https:// URL, not 'example.test:80'");
  EXPECT_THROW_TEXT(HttpLink("http://"), std::invalid_argument,
                    "HttpLink needs an http:// or https:// URL, not 'http://'");
  EXPECT_THROW_TEXT(HttpLink("https://"), std::invalid_argument,
                    "HttpLink needs an http:// or https:// URL, not 'https://'");
  EXPECT_THROW_TEXT(HttpLink("http://h/x?q=1"), std::invalid_argument,
                    "HttpLink needs an http:// or https:// URL, not 'http://h/x?q=1'");
}

TEST(HttpLinkTest, NonPositiveTimeOutsAreRefused) {
  HttpLinkOptions options;
  options.readTimeout = std::chrono::milliseconds(0);
  EXPECT_THROW_TEXT(HttpLink("http://h", options), std::invalid_argument,
                    "HttpLink time-outs must be positive");
  EXPECT_EQ(HttpLinkOptions().connectTimeout, std::chrono::milliseconds(5000));
  EXPECT_EQ(HttpLinkOptions().readTimeout, std::chrono::milliseconds(30000));
}

TEST(HttpLinkTest, AMessageThatIsNotOpaqueFailsTheFutureWithInvalidArgument) {
  HttpLink link("http://127.0.0.1:9");
  EXPECT_THROW_TEXT(link.deliver(std::make_unique<Message>(), Address("x")).get(),
                    std::invalid_argument,
                    "HttpLink delivers only an OpaqueMessage, not connector::Message");
  EXPECT_THROW_TEXT(link.deliver(nullptr, Address("x")).get(), std::invalid_argument,
                    "HttpLink delivers only an OpaqueMessage, not a null message");
}

TEST(HttpLinkTest, ARefusedConnectionFailsNamingTheUrlAndTheCause) {
  const std::uint16_t port = nettest::freePort();
  HttpLink link("http://127.0.0.1:" + std::to_string(port));
  EXPECT_THROW_TEXT(
      link.deliver(opaque("application/json", "{}"), Address("shop/ReserveItem")).get(),
      std::runtime_error,
      "POST http://127.0.0.1:" + std::to_string(port) +
          "/shop/ReserveItem failed: connection refused");
}

TEST(HttpLinkTest, AServerThatNeverAnswersFailsAfterTheReadTimeOut) {
  // Connections complete in the kernel's backlog; nobody ever reads or answers.
  Poco::Net::ServerSocket silent(Poco::Net::SocketAddress("127.0.0.1", 0));
  HttpLinkOptions options;
  options.readTimeout = std::chrono::milliseconds(200);
  const std::string url = "http://127.0.0.1:" + std::to_string(silent.address().port());
  HttpLink link(url, options);
  const Clock::time_point begin = Clock::now();
  EXPECT_THROW_TEXT(link.deliver(opaque("application/json", "{}"), Address("x")).get(),
                    std::runtime_error, "POST " + url + "/x failed: no response within 200 ms");
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
}

TEST(HttpLinkTest, AResetConnectionFailsNamingTheCause) {
  CannedServer server("", true);
  HttpLink link(server.url());
  EXPECT_THROW_TEXT(link.deliver(opaque("application/json", "{}"), Address("x")).get(),
                    std::runtime_error,
                    "POST " + server.url() + "/x failed: connection reset by peer");
}

TEST(HttpLinkTest, AConnectionClosedWithoutAnswerFailsNamingTheCause) {
  CannedServer server("");
  HttpLink link(server.url());
  EXPECT_THROW_TEXT(
      link.deliver(opaque("application/json", "{}"), Address("x")).get(), std::runtime_error,
      "POST " + server.url() + "/x failed: connection closed before a response arrived");
}

TEST(HttpLinkTest, AResponseCutShortFailsNamingHowMuchArrived) {
  CannedServer server("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n{\"a\"");
  HttpLink link(server.url());
  EXPECT_THROW_TEXT(
      link.deliver(opaque("application/json", "{}"), Address("x")).get(), std::runtime_error,
      "POST " + server.url() + "/x failed: connection closed after 4 of 10 response body bytes");
}

TEST(HttpLinkTest, ANon2xxStatusFailsWithTheStatusAndTheServersErrorText) {
  CannedServer server(
      "HTTP/1.1 404 Not Found\r\nContent-Type: application/json\r\nContent-Length: 23\r\n\r\n"
      "{\"error\":\"no such one\"}");
  HttpLink link(server.url());
  EXPECT_THROW_TEXT(link.deliver(opaque("application/json", "{}"), Address("x")).get(),
                    std::runtime_error,
                    "POST " + server.url() + "/x failed: HTTP 404 Not Found: no such one");
}

TEST(HttpLinkTest, ANon2xxStatusWithoutAnErrorBodyFailsWithTheStatusAlone) {
  CannedServer server(
      "HTTP/1.1 502 Bad Gateway\r\nContent-Type: text/html\r\nContent-Length: 5\r\n\r\n<b/>!");
  HttpLink link(server.url());
  EXPECT_THROW_TEXT(link.deliver(opaque("application/json", "{}"), Address("x")).get(),
                    std::runtime_error, "POST " + server.url() + "/x failed: HTTP 502 Bad Gateway");
}

TEST(HttpLinkTest, AChunkedResponseIsJoined) {
  CannedServer server(
      "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n"
      "3\r\n{\"a\r\n4\r\n\":1}\r\n0\r\n\r\n");
  HttpLink link(server.url());
  std::unique_ptr<Message> answer =
      link.deliver(opaque("application/json", "{}"), Address("x")).get();
  EXPECT_EQ(dynamic_cast<OpaqueMessage&>(*answer).payload.view(), "{\"a\":1}");
}

TEST(HttpLinkTest, AStoppedGatewayFailsWithinTheTimeOutThenARestartIsReachedAgain) {
  auto far = std::make_unique<nettest::FarShop>();
  const std::uint16_t port = far->port();
  HttpLinkOptions options;
  options.connectTimeout = std::chrono::milliseconds(1000);
  options.readTimeout = std::chrono::milliseconds(2000);
  nettest::ClientShop client(far->url(), options);
  ASSERT_NE(dynamic_cast<shop::Reservation*>(client.reserve("LAMP-01", 1).get()), nullptr);
  EXPECT_EQ(client.link->idleConnections(), 1u);

  far.reset();  // the gateway stops; its connection to the client is closed
  const Clock::time_point begin = Clock::now();
  EXPECT_THROW_TEXT(client.reserve("LAMP-01", 1), std::runtime_error,
                    "POST http://127.0.0.1:" + std::to_string(port) +
                        "/shop/ReserveItem failed: connection refused");
  EXPECT_LT(Clock::now() - begin, options.connectTimeout + options.readTimeout);

  connector::net::HttpGatewayOptions same;
  same.port = port;
  nettest::FarShop restarted(same);
  std::unique_ptr<Message> answer = client.reserve("DESK-02", 3);
  auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
  ASSERT_NE(reservation, nullptr);
  EXPECT_EQ(reservation->sku, "DESK-02");
  EXPECT_EQ(reservation->quantity, 3);
  EXPECT_TRUE(reservation->accepted);
}

TEST(HttpLinkTest, AGatewayRestartedBehindAnIdleConnectionIsReachedWithoutAnError) {
  auto far = std::make_unique<nettest::FarShop>();
  const std::uint16_t port = far->port();
  nettest::ClientShop client(far->url());
  client.reserve("LAMP-01", 1);
  far.reset();
  connector::net::HttpGatewayOptions same;
  same.port = port;
  nettest::FarShop restarted(same);
  // The pooled connection died with the old gateway; the link retries on a fresh one.
  std::unique_ptr<Message> answer = client.reserve("LAMP-01", 2);
  auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
  ASSERT_NE(reservation, nullptr);
  EXPECT_EQ(reservation->quantity, 2);
}

}  // namespace

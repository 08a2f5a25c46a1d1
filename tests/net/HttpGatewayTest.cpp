// HttpGateway: the HTTP face of a router, status by status.
#include <chrono>
#include <future>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "NetFixtures.hpp"
#include "shop/ShopTypes.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using connector::net::HttpGateway;
using connector::net::HttpGatewayOptions;
using nettest::FarShop;
using nettest::rawExchange;

const std::string kReserve = R"({"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2})";

std::string schemasOfTheShop() {
  std::ostringstream out;
  shop::shopSchemas()->stringify(out, 0, -1);
  return out.str();
}

TEST(HttpGatewayTest, PostOfJsonIsAnsweredWithTheTypedAnswersJson) {
  FarShop far;
  nettest::RawAnswer answer = rawExchange(far.port(), "POST", "/shop/ReserveItem", kReserve);
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.contentType, "application/json");
  EXPECT_EQ(answer.body,
            R"({"reservationId":"R-000001","sku":"LAMP-01","quantity":2,"accepted":true,)"
            R"("type":"shop/Reservation"})");
  EXPECT_EQ(far.nodes->inventory->available("LAMP-01"), 1000000 - 2);
}

TEST(HttpGatewayTest, TheAnswerEchoesTheRequestsContentType) {
  FarShop far;
  nettest::RawAnswer answer =
      rawExchange(far.port(), "POST", "/shop/ReserveItem", kReserve, "application/vnd.shop+json");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.contentType, "application/vnd.shop+json");
}

TEST(HttpGatewayTest, GetOfTheRootListsTheBoundAddresses) {
  FarShop far;
  nettest::RawAnswer answer = rawExchange(far.port(), "GET", "/");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.contentType, "application/json");
  EXPECT_EQ(answer.body, R"({"addresses":["shop/CancelOrder","shop/ReserveItem"]})");
}

TEST(HttpGatewayTest, GetOfSchemasAnswersTheDocumentItWasGiven) {
  HttpGatewayOptions options;
  options.schemas = schemasOfTheShop();
  FarShop far(options);
  nettest::RawAnswer answer = rawExchange(far.port(), "GET", "/schemas");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.contentType, "application/json");
  EXPECT_EQ(answer.body, options.schemas);
  Poco::JSON::Parser parser;
  const auto schemas = parser.parse(answer.body).extract<Poco::JSON::Object::Ptr>();
  EXPECT_EQ(schemas->getNames(),
            (std::vector<std::string>{"shop/CancelOrder", "shop/OrderCancelled", "shop/Reservation",
                                      "shop/ReserveItem"}));
  EXPECT_EQ(schemas->getObject("shop/ReserveItem")->getValue<std::string>("$schema"),
            "https://json-schema.org/draft/2020-12/schema");
}

TEST(HttpGatewayTest, GetOfSchemasWithoutADocumentAnswersAnEmptyObject) {
  FarShop far;
  nettest::RawAnswer answer = rawExchange(far.port(), "GET", "/schemas");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body, "{}");
}

TEST(HttpGatewayTest, SchemasIsAReservedPathAnsweredOnGetOnly) {
  FarShop far;
  nettest::RawAnswer answer = rawExchange(far.port(), "POST", "/schemas", kReserve);
  EXPECT_EQ(answer.status, 405);
  EXPECT_EQ(answer.allow, "GET");
  EXPECT_EQ(answer.body, R"({"error":"Method POST is not allowed on /schemas; use GET"})");
}

TEST(HttpGatewayTest, BytesThatAreNotJsonAreAnswered400WithTheParsersText) {
  FarShop far;
  nettest::RawAnswer answer = rawExchange(far.port(), "POST", "/shop/ReserveItem", "{not json");
  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.contentType, "application/json");
  const std::string text = nettest::errorOf(answer.body);
  EXPECT_FALSE(text.empty()) << answer.body;
}

TEST(HttpGatewayTest, JsonOfAnUnregisteredTypeIsAnswered400) {
  FarShop far;
  nettest::RawAnswer answer =
      rawExchange(far.port(), "POST", "/shop/ReserveItem", R"({"type":"shop/Unknown"})");
  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.body,
            R"({"error":"Error while parsing: No deserializer for type: shop/Unknown"})");
}

TEST(HttpGatewayTest, AnUnboundAddressIsAnswered404) {
  FarShop far;
  nettest::RawAnswer answer = rawExchange(far.port(), "POST", "/shop/Nothing", kReserve);
  EXPECT_EQ(answer.status, 404);
  EXPECT_EQ(answer.body, R"({"error":"No service bound at address 'shop/Nothing'"})");
}

TEST(HttpGatewayTest, PercentEncodedAddressesAreDecoded) {
  FarShop far;
  nettest::RawAnswer answer = rawExchange(far.port(), "POST", "/shop%2FReserveItem", kReserve);
  EXPECT_EQ(answer.status, 200);
}

TEST(HttpGatewayTest, AnyMethodButPostOnAnAddressIsAnswered405WithAllow) {
  FarShop far;
  nettest::RawAnswer get = rawExchange(far.port(), "GET", "/shop/ReserveItem");
  EXPECT_EQ(get.status, 405);
  EXPECT_EQ(get.allow, "POST");
  EXPECT_EQ(get.body, R"({"error":"Method GET is not allowed on /shop/ReserveItem; use POST"})");
  nettest::RawAnswer put = rawExchange(far.port(), "PUT", "/shop/ReserveItem", kReserve);
  EXPECT_EQ(put.status, 405);
  EXPECT_FALSE(put.keepAlive);  // its body was never read
}

TEST(HttpGatewayTest, PostOnTheRootIsAnswered405WithAllowGet) {
  FarShop far;
  nettest::RawAnswer answer = rawExchange(far.port(), "POST", "/", kReserve);
  EXPECT_EQ(answer.status, 405);
  EXPECT_EQ(answer.allow, "GET");
  EXPECT_EQ(answer.body, R"({"error":"Method POST is not allowed on /; use GET"})");
}

TEST(HttpGatewayTest, ABodyOverTheLimitIsAnswered413AndTheConnectionClosed) {
  HttpGatewayOptions options;
  options.maxBodyBytes = 64;
  FarShop far(options);
  nettest::RawAnswer answer =
      rawExchange(far.port(), "POST", "/shop/ReserveItem", std::string(65, ' '));
  EXPECT_EQ(answer.status, 413);
  EXPECT_EQ(answer.body, R"({"error":"Request body exceeds the limit of 64 bytes"})");
  EXPECT_FALSE(answer.keepAlive);
  // A body of exactly the limit is read and served.
  std::string padded = kReserve + std::string(64 - kReserve.size(), ' ');
  EXPECT_EQ(rawExchange(far.port(), "POST", "/shop/ReserveItem", padded).status, 200);
}

TEST(HttpGatewayTest, AMegabytesBodyOverTheLimitStillGetsIts413) {
  HttpGatewayOptions options;
  options.maxBodyBytes = 1024;
  FarShop far(options);
  // The client sends all of it before reading; the gateway drains it after answering.
  nettest::RawAnswer answer =
      rawExchange(far.port(), "POST", "/shop/ReserveItem", std::string(4 << 20, ' '));
  EXPECT_EQ(answer.status, 413);
}

TEST(HttpGatewayTest, TheDefaultsAreThoseOfACommonEdgeServer) {
  const HttpGatewayOptions defaults;
  EXPECT_EQ(defaults.bindAddress, "127.0.0.1");
  EXPECT_EQ(defaults.ioThreads, 1);
  EXPECT_EQ(defaults.maxConnections, 10000u);
  EXPECT_EQ(defaults.maxBodyBytes, 1024u * 1024);
  EXPECT_EQ(HttpGatewayOptions::kMaxHeaderBytes, 8192u);
  EXPECT_EQ(defaults.headerTimeout, std::chrono::seconds(10));
  EXPECT_EQ(defaults.bodyTimeout, std::chrono::seconds(30));
  EXPECT_EQ(defaults.keepAliveTimeout, std::chrono::seconds(75));
  EXPECT_EQ(defaults.deliveryTimeout, std::chrono::seconds(30));
  EXPECT_EQ(defaults.drainTimeout, std::chrono::seconds(10));
}

TEST(HttpGatewayTest, AStoppedServiceIsAnswered503) {
  FarShop far;
  far.nodes->gateway->stop();
  nettest::RawAnswer answer = rawExchange(far.port(), "POST", "/shop/ReserveItem", kReserve);
  EXPECT_EQ(answer.status, 503);
  EXPECT_EQ(answer.body, R"({"error":"Service exists but is not running."})");
}

TEST(HttpGatewayTest, AServiceFailureWithAStatusIsAnsweredWithThatStatusAndItsText) {
  FarShop far;
  nettest::RawAnswer answer = rawExchange(far.port(), "POST", "/shop/CancelOrder",
                                          R"({"type":"shop/CancelOrder","orderId":"ORD-404"})");
  EXPECT_EQ(answer.status, 404);
  EXPECT_EQ(answer.contentType, "application/json");
  EXPECT_EQ(answer.body, R"({"error":"order not found: ORD-404"})");
}

TEST(HttpGatewayTest, ErrorTextsAreJsonEscaped) {
  FarShop far;
  nettest::RawAnswer answer = rawExchange(far.port(), "POST", "/shop/CancelOrder",
                                          R"({"type":"shop/CancelOrder","orderId":"a\"b\\c"})");
  EXPECT_EQ(answer.status, 404);
  EXPECT_EQ(nettest::errorOf(answer.body), "order not found: a\"b\\c");
}

TEST(HttpGatewayTest, KeepsServingAfterEveryKindOfError) {
  HttpGatewayOptions options;
  options.maxBodyBytes = 128;
  FarShop far(options);
  EXPECT_EQ(rawExchange(far.port(), "POST", "/shop/ReserveItem", "[").status, 400);
  EXPECT_EQ(rawExchange(far.port(), "POST", "/nowhere", kReserve).status, 404);
  EXPECT_EQ(rawExchange(far.port(), "DELETE", "/shop/ReserveItem").status, 405);
  EXPECT_EQ(rawExchange(far.port(), "POST", "/shop/ReserveItem", std::string(200, 'x')).status,
            413);
  EXPECT_EQ(rawExchange(far.port(), "POST", "/shop/CancelOrder",
                        R"({"type":"shop/CancelOrder","orderId":"X"})")
                .status,
            404);
  EXPECT_EQ(rawExchange(far.port(), "POST", "/shop/ReserveItem", kReserve, "text/plain").status,
            415);
  EXPECT_EQ(rawExchange(far.port(), "POST", "/shop/ReserveItem", "[]").status, 400);
  EXPECT_EQ(rawExchange(far.port(), "POST", "/shop/ReserveItem", kReserve).status, 200);
  EXPECT_EQ(far.gateway->requestsServed(), 8u);
}

TEST(HttpGatewayTest, PortZeroPicksAFreePortAndUrlNamesIt) {
  FarShop far;
  EXPECT_NE(far.port(), 0);
  EXPECT_EQ(far.url(), "http://127.0.0.1:" + std::to_string(far.port()));
}

TEST(HttpGatewayTest, ATakenPortIsRefusedWithTheAddressInTheText) {
  FarShop far;
  HttpGatewayOptions options;
  options.port = far.port();
  try {
    HttpGateway second(far.nodes->gateway, options);
    ADD_FAILURE() << "a second gateway bound a taken port";
  } catch (const std::runtime_error& error) {
    const std::string prefix =
        "HttpGateway cannot listen on 127.0.0.1:" + std::to_string(far.port()) + ": ";
    EXPECT_EQ(std::string(error.what()).substr(0, prefix.size()), prefix) << error.what();
  }
}

TEST(HttpGatewayTest, BadOptionsAreRefused) {
  auto router = std::make_shared<connector::Router>();
  EXPECT_THROW_TEXT(HttpGateway(nullptr), std::invalid_argument, "HttpGateway needs a router");
  HttpGatewayOptions noThreads;
  noThreads.threads = 0;
  EXPECT_THROW_TEXT(HttpGateway(router, noThreads), std::invalid_argument,
                    "HttpGateway needs at least one thread");
  HttpGatewayOptions noIo;
  noIo.ioThreads = 0;
  EXPECT_THROW_TEXT(HttpGateway(router, noIo), std::invalid_argument,
                    "HttpGateway needs at least one I/O thread");
  HttpGatewayOptions noConnections;
  noConnections.maxConnections = 0;
  EXPECT_THROW_TEXT(HttpGateway(router, noConnections), std::invalid_argument,
                    "HttpGateway limits must be at least 1");
  HttpGatewayOptions noBudget;
  noBudget.maxInFlightBytes = 0;
  EXPECT_THROW_TEXT(HttpGateway(router, noBudget), std::invalid_argument,
                    "HttpGateway limits must be at least 1");
  HttpGatewayOptions noDrain;
  noDrain.drainTimeout = std::chrono::milliseconds(0);
  EXPECT_THROW_TEXT(HttpGateway(router, noDrain), std::invalid_argument,
                    "HttpGateway time-outs must be positive");
}

TEST(HttpGatewayTest, AStoppedGatewayCannotStartAgainButItsPortCanBeReused) {
  auto far = std::make_unique<FarShop>();
  const std::uint16_t port = far->port();
  far->gateway->stop();
  EXPECT_THROW_TEXT(far->gateway->start(), std::logic_error,
                    "HttpGateway cannot be started again after stop()");
  far.reset();
  HttpGatewayOptions options;
  options.port = port;
  FarShop again(options);
  EXPECT_EQ(rawExchange(port, "POST", "/shop/ReserveItem", kReserve).status, 200);
}

// A service that answers slowly, to catch a request in flight.
class SlowEcho : public connector::ServiceProvider {
 public:
  void start() override {}
  void stop() override {}
  connector::Future<std::unique_ptr<connector::Message>> deliver(
      std::unique_ptr<connector::Message>&& message, connector::Address&&,
      std::shared_ptr<connector::Context>&&) override {
    entered.set_value();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return connector::makeReadyFuture(std::move(message));
  }
  std::promise<void> entered;
};

TEST(HttpGatewayTest, StopLetsARequestInFlightFinishAndAnswer) {
  auto router = std::make_shared<connector::Router>();
  auto slow = std::make_shared<SlowEcho>();
  router->bind(connector::Address("slow"), slow);
  router->start();
  HttpGateway gateway(router);
  gateway.start();
  const std::uint16_t port = gateway.port();
  auto inFlight = std::async(std::launch::async,
                             [port] { return rawExchange(port, "POST", "/slow", "{\"a\":1}"); });
  slow->entered.get_future().wait();
  gateway.stop();
  nettest::RawAnswer answer = inFlight.get();
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body, "{\"a\":1}");
  EXPECT_THROW(rawExchange(port, "GET", "/"), Poco::Exception);
}

// Answers every delivery with the address it was sent to, or refuses "bad".
class AddressEcho : public connector::Context {
 public:
  connector::Future<std::unique_ptr<connector::Message>> deliver(
      std::unique_ptr<connector::Message>&& /*message*/, connector::Address&& address) override {
    if (address.str() == "bad") {
      return connector::makeFailedFuture<std::unique_ptr<connector::Message>>(
          std::make_exception_ptr(std::invalid_argument("refused")));
    }
    return connector::makeReadyFuture<std::unique_ptr<connector::Message>>(
        std::make_unique<connector::json::OpaqueMessage>(
            "text/plain", connector::common::DataBuffer(address.str())));
  }
};

TEST(HttpGatewayTest, AForwardingGatewayDeliversEveryPostToItsContext) {
  auto gateway = HttpGateway::forwarding(std::make_shared<AddressEcho>());
  gateway->start();
  nettest::RawAnswer answer = rawExchange(gateway->port(), "POST", "/any/where", "{}");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.contentType, "text/plain");
  EXPECT_EQ(answer.body, "any/where");
  answer = rawExchange(gateway->port(), "POST", "/bad", "{}");
  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.body, R"({"error":"refused"})");
  EXPECT_EQ(rawExchange(gateway->port(), "GET", "/").body, R"({"addresses":[]})");
  EXPECT_THROW_TEXT(HttpGateway::forwarding(nullptr), std::invalid_argument,
                    "HttpGateway needs a context to forward to");
}

}  // namespace

// NatsListener against a real nats-server, called by a plain NATS client: answers with
// their content type, failures with the gateway's statuses and texts, and serving goes on
// after each of them.
#include <chrono>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <connector/transport/MetricNames.hpp>

#include "NatsFixtures.hpp"
#include "RawNatsClient.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using connector::nats::NatsListener;
using connector::nats::NatsListenerOptions;
using natstest::FarShop;
using natstest::RawNatsClient;
using natstest::RawReply;

class NatsListenerTest : public natstest::NatsSuite {};

const char* const kReserve = R"({"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2})";

std::string status(const RawReply& reply) {
  return reply.headers.count("Connector-Status") != 0 ? reply.headers.at("Connector-Status") : "";
}

std::string contentType(const RawReply& reply) {
  return reply.headers.count("Content-Type") != 0 ? reply.headers.at("Content-Type") : "";
}

TEST_F(NatsListenerTest, ARequestIsServedByTheRouterAndAnsweredWithItsContentType) {
  FarShop far(url());
  RawNatsClient client(url());
  const RawReply reply = client.request("connector.shop.ReserveItem", kReserve);
  EXPECT_EQ(status(reply), "");
  EXPECT_EQ(contentType(reply), "application/json");
  EXPECT_EQ(reply.body,
            R"({"reservationId":"R-000001","sku":"LAMP-01","quantity":2,"accepted":true,)"
            R"("type":"shop/Reservation"})");
  EXPECT_EQ(far.nodes->inventory->available("LAMP-01"), 1000000 - 2);
  EXPECT_EQ(far.listener->requestsServed(), 1u);
  EXPECT_EQ(far.listener->subject(), "connector.>");
}

TEST_F(NatsListenerTest, ARequestWithoutAContentTypeCountsAsJson) {
  FarShop far(url());
  RawNatsClient client(url());
  const RawReply reply = client.request("connector.shop.ReserveItem", kReserve, {});
  EXPECT_EQ(status(reply), "");
  EXPECT_EQ(contentType(reply), "application/json");
}

TEST_F(NatsListenerTest, BytesThatAreNotJsonAreAnswered400AndServingGoesOn) {
  FarShop far(url());
  RawNatsClient client(url());
  const RawReply refused = client.request("connector.shop.ReserveItem", "{not json");
  EXPECT_EQ(status(refused), "400");
  EXPECT_EQ(contentType(refused), "application/json");
  EXPECT_EQ(refused.body.rfind(R"({"error":"Parsing error: )", 0), 0u) << refused.body;
  const RawReply binary =
      client.request("connector.shop.ReserveItem", std::string("\xff\x00\x01", 3));
  EXPECT_EQ(status(binary), "400");
  const RawReply served = client.request("connector.shop.ReserveItem", kReserve);
  EXPECT_EQ(status(served), "");
  EXPECT_EQ(served.body.rfind(R"({"reservationId":"R-000001")", 0), 0u) << served.body;
}

TEST_F(NatsListenerTest, ABodyThatIsNotAJsonObjectIsAnswered400AndNothingIsDelivered) {
  FarShop far(url());
  RawNatsClient client(url());
  for (const std::string body : {"[]", "\"text\"", "12", "null", "", "  \r\n"}) {
    const RawReply refused = client.request("connector.shop.ReserveItem", body);
    EXPECT_EQ(status(refused), "400") << body;
    EXPECT_EQ(contentType(refused), "application/json") << body;
    EXPECT_EQ(refused.body, R"({"error":"the request body must be a JSON object"})") << body;
    EXPECT_EQ(refused.headers.at("Nats-Service-Error-Code"), "400") << body;
    EXPECT_EQ(refused.headers.at("Nats-Service-Error"), "the request body must be a JSON object")
        << body;
  }
  // Nothing reached the inventory: the first reservation still gets the first id.
  const RawReply served =
      client.request("connector.shop.ReserveItem", std::string(" \n") + kReserve);
  EXPECT_EQ(status(served), "");
  EXPECT_EQ(served.body.rfind(R"({"reservationId":"R-000001")", 0), 0u) << served.body;
  EXPECT_EQ(far.nodes->inventory->available("LAMP-01"), 1000000 - 2);
}

TEST_F(NatsListenerTest, AnUnboundAddressIs404AndAServiceFailureKeepsItsStatusAndText) {
  FarShop far(url());
  RawNatsClient client(url());
  const RawReply unbound = client.request("connector.shop.Nothing", "{}");
  EXPECT_EQ(status(unbound), "404");
  EXPECT_EQ(unbound.body, R"({"error":"No service bound at address 'shop/Nothing'"})");
  const RawReply failed =
      client.request("connector.shop.CancelOrder", R"({"type":"shop/CancelOrder","orderId":"X"})");
  EXPECT_EQ(status(failed), "404");
  EXPECT_EQ(contentType(failed), "application/json");
  EXPECT_EQ(failed.body, R"({"error":"order not found: X"})");
}

TEST_F(NatsListenerTest, FailuresCarryTheErrorHeadersOfTheNatsServicesProtocolToo) {
  FarShop far(url());
  RawNatsClient client(url());
  const RawReply unbound = client.request("connector.shop.Nothing", "{}");
  EXPECT_EQ(unbound.headers,
            (std::map<std::string, std::string>{
                {"Connector-Status", "404"},
                {"Content-Type", "application/json"},
                {"Nats-Service-Error", "No service bound at address 'shop/Nothing'"},
                {"Nats-Service-Error-Code", "404"}}));
  const RawReply failed =
      client.request("connector.shop.CancelOrder", R"({"type":"shop/CancelOrder","orderId":"X"})");
  EXPECT_EQ(failed.headers.at("Nats-Service-Error-Code"), "404");
  EXPECT_EQ(failed.headers.at("Nats-Service-Error"), "order not found: X");
  const RawReply served = client.request("connector.shop.ReserveItem", kReserve);
  EXPECT_EQ(served.headers,
            (std::map<std::string, std::string>{{"Content-Type", "application/json"}}));
}

TEST_F(NatsListenerTest, AStoppedRouterIsAnswered503) {
  FarShop far(url());
  far.nodes->gateway->stop();
  RawNatsClient client(url());
  const RawReply reply = client.request("connector.shop.ReserveItem", kReserve);
  EXPECT_EQ(status(reply), "503");
  EXPECT_EQ(reply.body, R"({"error":"Service exists but is not running."})");
}

TEST_F(NatsListenerTest, ASubjectThatMapsToNoAddressIsAnswered400) {
  FarShop far(url());
  RawNatsClient client(url());
  const RawReply reply = client.request("connector.shop/x.y", "{}");
  EXPECT_EQ(status(reply), "400");
  EXPECT_EQ(
      reply.body,
      R"({"error":"Subject 'connector.shop/x.y' maps to no address: token 'shop/x' holds '/'"})");
}

TEST_F(NatsListenerTest, ARequestWithoutAReplySubjectIsDeliveredAndItsAnswerDropped) {
  FarShop far(url());
  RawNatsClient client(url());
  client.publish("connector.shop.ReserveItem", kReserve);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (far.listener->requestsServed() < 1 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(far.listener->requestsServed(), 1u);
  EXPECT_EQ(far.nodes->inventory->available("LAMP-01"), 1000000 - 2);
}

TEST_F(NatsListenerTest, AnswersAreCountedByStatusInTheSharedMetrics) {
  NatsListenerOptions options = natstest::listenerOptions(url());
  options.metrics = std::make_shared<connector::transport::MetricsRegistry>();
  FarShop far(options);
  EXPECT_EQ(far.listener->metrics(), options.metrics);
  RawNatsClient client(url());
  client.request("connector.shop.ReserveItem", kReserve);
  client.request("connector.shop.ReserveItem", kReserve);
  client.request("connector.shop.ReserveItem", "nope");
  client.request("connector.shop.Nothing", "{}");
  namespace metric = connector::transport::metric;
  auto counted = [&](const char* code) {
    return options.metrics
        ->counter(metric::kNatsRequests, metric::kNatsRequestsHelp, {{metric::kStatusLabel, code}})
        .value();
  };
  EXPECT_EQ(counted("200"), 2);
  EXPECT_EQ(counted("400"), 1);
  EXPECT_EQ(counted("404"), 1);
  EXPECT_EQ(counted("500"), 0);
  EXPECT_NE(options.metrics->exposition().find(R"(connector_nats_requests_total{status="200"} 2)"),
            std::string::npos);
}

TEST_F(NatsListenerTest, AnAnswerOverTheServersLimitIsReplacedByA500) {
  connector::testing::NatsServerProcess small("max_payload: 2048");
  small.start();
  auto services = std::make_shared<connector::Router>();
  struct Big : connector::ServiceProvider {
    void start() override {}
    void stop() override {}
    connector::Future<std::unique_ptr<connector::Message>> deliver(
        std::unique_ptr<connector::Message>&&, connector::Address&&,
        std::shared_ptr<connector::Context>&&) override {
      return connector::makeReadyFuture<std::unique_ptr<connector::Message>>(
          natstest::opaque(std::string(3000, 'x'), "text/plain"));
    }
  };
  services->bind(connector::Address("test/big"), std::make_shared<Big>());
  services->start();
  NatsListener listener(services, natstest::listenerOptions(small.url()));
  listener.start();
  RawNatsClient client(small.url());
  const RawReply reply = client.request("connector.test.big", "{}");
  EXPECT_EQ(status(reply), "500");
  EXPECT_EQ(reply.body,
            R"({"error":"Answer of 3038 bytes exceeds the NATS server's limit of 2048 bytes"})");
}

TEST_F(NatsListenerTest, OptionsThatCannotWorkAreRefusedAtConstruction) {
  auto router = std::make_shared<connector::Router>();
  EXPECT_THROW_TEXT(NatsListener(nullptr, natstest::listenerOptions(url())), std::invalid_argument,
                    "NatsListener needs a router");
  NatsListenerOptions options = natstest::listenerOptions(url());
  options.threads = 0;
  EXPECT_THROW_TEXT(NatsListener(router, options), std::invalid_argument,
                    "NatsListener needs at least one thread");
  for (const char* group : {"", "a b", "a\tb"}) {
    options = natstest::listenerOptions(url());
    options.queueGroup = group;
    EXPECT_THROW_TEXT(NatsListener(router, options), std::invalid_argument,
                      "NatsListener needs a queue group without whitespace");
  }
  options = natstest::listenerOptions(url());
  options.maxPendingMessages = 0;
  EXPECT_THROW_TEXT(NatsListener(router, options), std::invalid_argument,
                    "NatsListener pending limits must be at least 1");
  options = natstest::listenerOptions(url());
  options.drainTimeout = std::chrono::milliseconds(0);
  EXPECT_THROW_TEXT(NatsListener(router, options), std::invalid_argument,
                    "NatsListener drain time-out must be positive");
  options = natstest::listenerOptions(url());
  options.subjectPrefix = "a.*";
  EXPECT_THROW_TEXT(NatsListener(router, options), std::invalid_argument,
                    "NATS subject prefix 'a.*' is not valid: token '*' holds '*'");
  options = natstest::listenerOptions("nats://127.0.0.1:1");
  options.connectTimeout = std::chrono::milliseconds(500);
  EXPECT_THROW_TEXT(NatsListener(router, options), std::runtime_error,
                    "NatsListener cannot connect to nats://127.0.0.1:1: No server available for "
                    "connection");
}

TEST_F(NatsListenerTest, AStoppedListenerCannotStartAgainAndStopsOnlyOnce) {
  FarShop far(url());
  far.listener->start();  // already serving: nothing happens
  far.listener->stop();
  far.listener->stop();
  EXPECT_THROW_TEXT(far.listener->start(), std::logic_error,
                    "NatsListener cannot be started again after stop()");
  RawNatsClient client(url());
  EXPECT_TRUE(client.request("connector.shop.ReserveItem", kReserve).noResponders);
}

TEST_F(NatsListenerTest, AnotherPrefixAndQueueGroupServeOnlyTheirSubjects) {
  NatsListenerOptions options = natstest::listenerOptions(url());
  options.subjectPrefix = "eu.shop";
  options.queueGroup = "eu";
  FarShop far(options);
  EXPECT_EQ(far.listener->subject(), "eu.shop.>");
  RawNatsClient client(url());
  EXPECT_EQ(status(client.request("eu.shop.shop.ReserveItem", kReserve)), "");
  EXPECT_TRUE(client.request("connector.shop.ReserveItem", kReserve).noResponders);
}

}  // namespace

// An HTTP edge without services of its own: HttpGateway::forwarding over a NatsLink to
// listeners elsewhere answers with the same statuses and bodies as a gateway serving the
// services itself, 503 when nobody listens and 504 when the answer is late.
#include <chrono>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <connector/net/HttpGateway.hpp>

#include "NatsFixtures.hpp"
#include "RawNatsClient.hpp"
#include "SlowEcho.hpp"
#include "net/NetFixtures.hpp"

namespace {

using connector::net::HttpGateway;
using nettest::RawAnswer;
using nettest::rawExchange;

class NatsForwardingTest : public natstest::NatsSuite {
 protected:
  // An edge forwarding every request over NATS.
  std::unique_ptr<HttpGateway> edge(std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    auto gateway = HttpGateway::forwarding(
        std::make_shared<connector::nats::NatsLink>(natstest::linkOptions(url(), timeout)));
    gateway->start();
    return gateway;
  }
};

TEST_F(NatsForwardingTest, TheEdgeAnswersAsAGatewayServingTheServicesItself) {
  natstest::FarShop far(url());  // served over NATS
  nettest::FarShop local;        // the same services behind a gateway of their own
  auto forwarding = edge();
  const struct {
    const char* target;
    const char* body;
  } requests[] = {
      {"/shop/ReserveItem", R"({"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2})"},
      {"/shop/ReserveItem", "{not json"},
      {"/shop/ReserveItem", R"({"type":"shop/ReserveItem","sku":"LAMP-01","quantity":"two"})"},
      {"/shop/CancelOrder", R"({"type":"shop/CancelOrder","orderId":"ORD-404"})"},
      {"/shop/Nothing", "{}"},
  };
  for (const auto& request : requests) {
    SCOPED_TRACE(std::string(request.target) + " " + request.body);
    const RawAnswer viaNats = rawExchange(forwarding->port(), "POST", request.target, request.body);
    const RawAnswer direct = rawExchange(local.port(), "POST", request.target, request.body);
    EXPECT_EQ(viaNats.status, direct.status);
    EXPECT_EQ(viaNats.contentType, direct.contentType);
    EXPECT_EQ(viaNats.body, direct.body);
  }
  EXPECT_EQ(far.listener->requestsServed(), 5u);
}

TEST_F(NatsForwardingTest, NobodyListeningIs503) {
  auto forwarding = edge();
  const RawAnswer answer = rawExchange(forwarding->port(), "POST", "/shop/ReserveItem", "{}");
  EXPECT_EQ(answer.status, 503);
  EXPECT_EQ(answer.contentType, "application/json");
  EXPECT_EQ(answer.body, R"({"error":"No service is listening at 'shop/ReserveItem'"})");
}

TEST_F(NatsForwardingTest, ALateAnswerIs504AsTheGatewaysOwnTimeOut) {
  auto echo = std::make_shared<natstest::SlowEcho>(std::chrono::milliseconds(600));
  connector::nats::NatsListener listener(natstest::slowEchoRouter(echo),
                                         natstest::listenerOptions(url()));
  listener.start();
  auto forwarding = edge(std::chrono::milliseconds(150));
  const RawAnswer answer = rawExchange(forwarding->port(), "POST", "/test/slow", "{}");
  EXPECT_EQ(answer.status, 504);
  EXPECT_EQ(answer.body, R"({"error":"No answer from 'test/slow' within 150 ms"})");
}

TEST_F(NatsForwardingTest, TheEdgeSendsWhatIsLeftOfItsDeliveryTimeOut) {
  natstest::RawNatsClient far(url());
  far.respond("connector.test.wait", [](const natstest::RawRequest& request) {
    natstest::RawReply reply;
    reply.body = request.headers.count("Connector-Timeout-Ms") != 0
                     ? request.headers.at("Connector-Timeout-Ms")
                     : "none";
    return reply;
  });
  // The link would wait 30 s; the edge answers 504 after 2 s: what the far side hears.
  connector::net::HttpGatewayOptions options;
  options.deliveryTimeout = std::chrono::seconds(2);
  auto forwarding =
      HttpGateway::forwarding(std::make_shared<connector::nats::NatsLink>(
                                  natstest::linkOptions(url(), std::chrono::seconds(30))),
                              options);
  forwarding->start();
  const RawAnswer answer = rawExchange(forwarding->port(), "POST", "/test/wait", "{}");
  EXPECT_EQ(answer.status, 200);
  const int left = std::stoi(answer.body);
  EXPECT_LE(left, 2000);
  EXPECT_GT(left, 1000);
}

TEST_F(NatsForwardingTest, AnAddressWithoutASubjectIs400) {
  auto forwarding = edge();
  const RawAnswer answer = rawExchange(forwarding->port(), "POST", "/shop/a.b", "{}");
  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(
      answer.body,
      R"({"error":"Address 'shop/a.b' cannot map to a NATS subject: segment 'a.b' holds '.'"})");
}

}  // namespace

// Clients nobody here wrote: nats.js (the npm package nats, pinned by package.json) calls
// a C++ NatsListener and reads its errors the NATS services protocol's way, serves a C++
// NatsLink from the queue group, and finds C++ listeners with its services client.
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include <connector/transport/StatusError.hpp>

#include "NatsFixtures.hpp"
#include "RawNatsClient.hpp"
#include "shop/ShopTypes.hpp"
#include "support/ExpectThrow.hpp"
#include "support/NodeScript.hpp"

namespace {

using connector::Address;
using connector::nats::NatsLink;
using connector::testing::NodeScript;
using natstest::FarShop;
using Object = Poco::JSON::Object::Ptr;

class NatsJsClientsTest : public natstest::NatsSuite {};

// The script's one line of JSON on stdout, once it ended with status 0.
Object resultOf(NodeScript& script) {
  const int status = script.wait(std::chrono::seconds(60));
  EXPECT_EQ(status, 0) << script.errors();
  return Poco::JSON::Parser().parse(script.output()).extract<Object>();
}

TEST_F(NatsJsClientsTest, AJsClientCallsAListenerAndReadsItsErrorsAsServiceErrors) {
  FarShop far(url());
  NodeScript client("tests/nats/js/call_listener.mjs", {url()});
  const Object seen = resultOf(client);
  const Object reserve = seen->getObject("reserve");
  EXPECT_EQ(reserve->getValue<std::string>("data"),
            R"({"reservationId":"R-000001","sku":"LAMP-01","quantity":2,"accepted":true,)"
            R"("type":"shop/Reservation"})");
  EXPECT_EQ(reserve->getValue<std::string>("contentType"), "application/json");
  EXPECT_FALSE(reserve->getValue<bool>("isServiceError"));
  const Object cancel = seen->getObject("cancel");
  EXPECT_TRUE(cancel->getValue<bool>("isServiceError"));
  EXPECT_EQ(cancel->getValue<int>("code"), 404);
  EXPECT_EQ(cancel->getValue<std::string>("text"), "order not found: ORD-404");
  EXPECT_EQ(cancel->getValue<std::string>("data"), R"({"error":"order not found: ORD-404"})");
  const Object unbound = seen->getObject("unbound");
  EXPECT_TRUE(unbound->getValue<bool>("isServiceError"));
  EXPECT_EQ(unbound->getValue<int>("code"), 404);
  EXPECT_EQ(unbound->getValue<std::string>("text"), "No service bound at address 'shop/Nothing'");
  EXPECT_EQ(far.listener->requestsServed(), 3u);
}

TEST_F(NatsJsClientsTest, AJsServiceInTheQueueGroupAnswersANatsLink) {
  NodeScript service("tests/nats/js/serve_in_group.mjs", {url()});
  ASSERT_TRUE(service.waitForLine("ready", std::chrono::seconds(60))) << service.errors();
  NatsLink link(natstest::linkOptions(url(), std::chrono::seconds(5)));
  const auto answer =
      link.deliver(natstest::opaque("hello", "text/plain"), Address("test/js/echo")).get();
  EXPECT_EQ(natstest::textOf(answer), "hello");
  EXPECT_EQ(natstest::contentTypeOf(answer), "text/plain");
  EXPECT_THROW_TEXT(link.deliver(natstest::opaque("{}"), Address("test/js/fail")).get(),
                    connector::transport::StatusError,
                    "NATS request to connector.test.js.fail failed: status 422: quantity must be "
                    "positive");
  try {
    link.deliver(natstest::opaque("{}"), Address("test/js/fail")).get();
  } catch (const connector::transport::StatusError& error) {
    EXPECT_EQ(error.status(), 422);
    EXPECT_EQ(std::string(error.answerText()), "quantity must be positive");
  }
}

TEST_F(NatsJsClientsTest, TheJsServicesClientFindsListenersWithTheirEndpointsAndCounts) {
  auto options = natstest::listenerOptions(url());
  options.serviceName = "shop";
  options.serviceDescription = "inventory";
  options.api = std::make_shared<connector::json::Api>(shop::shopApi());
  FarShop one(options);
  {
    natstest::RawNatsClient client(url());
    for (int i = 0; i < 3; ++i) {
      client.request("connector.shop.ReserveItem",
                     R"({"type":"shop/ReserveItem","sku":"LAMP-01","quantity":1})");
    }
    client.request("connector.shop.CancelOrder",
                   R"({"type":"shop/CancelOrder","orderId":"ORD-9"})");
  }
  FarShop two(options);  // counts nothing yet
  const std::string id = one.listener->serviceId();
  NodeScript discover("tests/nats/js/discover.mjs", {url(), "shop", id});
  const Object found = resultOf(discover);

  const auto ping = found->getArray("ping");
  ASSERT_EQ(ping->size(), 2u);
  std::vector<std::string> ids;
  for (unsigned i = 0; i < ping->size(); ++i) {
    const Object entry = ping->getObject(i);
    EXPECT_EQ(entry->getValue<std::string>("type"), "io.nats.micro.v1.ping_response");
    EXPECT_EQ(entry->getValue<std::string>("name"), "shop");
    EXPECT_EQ(entry->getValue<std::string>("version"), CONNECTOR_PACKAGE_VERSION);
    ids.push_back(entry->getValue<std::string>("id"));
  }
  std::sort(ids.begin(), ids.end());
  std::vector<std::string> expected = {id, two.listener->serviceId()};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(ids, expected);
  ASSERT_EQ(found->getArray("pingOne")->size(), 1u);
  EXPECT_EQ(found->getArray("pingOne")->getObject(0)->getValue<std::string>("id"), id);

  const auto info = found->getArray("info");
  ASSERT_EQ(info->size(), 2u);
  for (unsigned i = 0; i < info->size(); ++i) {
    const Object entry = info->getObject(i);
    EXPECT_EQ(entry->getValue<std::string>("description"), "inventory");
    const auto endpoints = entry->getArray("endpoints");
    ASSERT_EQ(endpoints->size(), 2u);
    EXPECT_EQ(endpoints->getObject(1)->getValue<std::string>("name"), "shop_ReserveItem");
    EXPECT_EQ(endpoints->getObject(1)->getValue<std::string>("subject"),
              "connector.shop.ReserveItem");
    EXPECT_EQ(endpoints->getObject(1)->getValue<std::string>("queue_group"), "connector");
    // The operation's types and schemas, as nats.js hands them on.
    const Object metadata = endpoints->getObject(1)->getObject("metadata");
    EXPECT_EQ(metadata->getValue<std::string>("request_type"), "shop/ReserveItem");
    EXPECT_EQ(metadata->getValue<std::string>("answer_type"), "shop/Reservation");
    EXPECT_EQ(Poco::JSON::Parser()
                  .parse(metadata->getValue<std::string>("answer_schema"))
                  .extract<Object>()
                  ->getValue<std::string>("title"),
              "shop/Reservation");
  }

  const auto stats = found->getArray("stats");
  ASSERT_EQ(stats->size(), 1u);
  EXPECT_EQ(stats->getObject(0)->getValue<std::string>("id"), id);
  const auto endpoints = stats->getObject(0)->getArray("endpoints");
  ASSERT_EQ(endpoints->size(), 2u);
  const Object cancel = endpoints->getObject(0);
  EXPECT_EQ(cancel->getValue<int>("num_requests"), 1);
  EXPECT_EQ(cancel->getValue<int>("num_errors"), 1);
  EXPECT_EQ(cancel->getValue<std::string>("last_error"), "order not found: ORD-9");
  const Object reserve = endpoints->getObject(1);
  EXPECT_EQ(reserve->getValue<int>("num_requests"), 3);
  EXPECT_EQ(reserve->getValue<int>("num_errors"), 0);
  EXPECT_GT(reserve->getValue<std::int64_t>("processing_time"), 0);
}

}  // namespace

// NatsListener as a service of the NATS services protocol: it answers $SRV.PING, INFO and
// STATS (for all services, by name, by name and id) with the protocol's documents, one
// endpoint per bound address with its counts; every listener answers.
#include <chrono>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include "NatsFixtures.hpp"
#include "RawNatsClient.hpp"
#include "SlowEcho.hpp"
#include "shop/ShopTypes.hpp"
#include "support/ExpectThrow.hpp"

namespace {

namespace json = connector::json;
using connector::nats::NatsListener;
using natstest::FarShop;
using natstest::RawNatsClient;

class NatsDiscoveryTest : public natstest::NatsSuite {};

// Every answer to a request on `subject` within `wait` (the protocol's clients gather
// the answers of all instances this way).
std::vector<std::string> gather(const std::string& url, const std::string& subject,
                                std::chrono::milliseconds wait = std::chrono::milliseconds(200)) {
  RawNatsClient client(url);
  natsInbox* inbox = nullptr;
  natsInbox_Create(&inbox);
  natsSubscription* answers = nullptr;
  natsConnection_SubscribeSync(&answers, client.get(), inbox);
  natsConnection_PublishRequestString(client.get(), subject.c_str(), inbox, "");
  std::vector<std::string> texts;
  const auto deadline = std::chrono::steady_clock::now() + wait;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    natsMsg* answer = nullptr;
    if (left.count() <= 0 || natsSubscription_NextMsg(&answer, answers, left.count()) != NATS_OK) {
      break;
    }
    texts.push_back(natstest::bodyOf(answer));
    natsMsg_Destroy(answer);
  }
  natsSubscription_Destroy(answers);
  natsInbox_Destroy(inbox);
  return texts;
}

Poco::JSON::Object::Ptr parse(const std::string& text) {
  return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

TEST_F(NatsDiscoveryTest, EveryListenerAnswersPingForAllByNameAndByItsId) {
  FarShop one(url());
  FarShop two(url());
  const std::string id = one.listener->serviceId();
  ASSERT_EQ(id.size(), 22u);
  EXPECT_NE(id, two.listener->serviceId());
  EXPECT_EQ(gather(url(), "$SRV.PING").size(), 2u);
  EXPECT_EQ(gather(url(), "$SRV.PING.connector").size(), 2u);
  EXPECT_EQ(gather(url(), "$SRV.PING.connector." + id),
            std::vector<std::string>{
                R"({"type":"io.nats.micro.v1.ping_response","name":)"
                R"("connector","id":")" +
                id + R"(","version":")" CONNECTOR_PACKAGE_VERSION R"(","metadata":{}})"});
  EXPECT_TRUE(gather(url(), "$SRV.PING.other").empty());
  EXPECT_TRUE(gather(url(), "$SRV.PING.connector.someone-else").empty());
  EXPECT_TRUE(gather(url(), "$SRV.HELLO.connector").empty());
}

TEST_F(NatsDiscoveryTest, InfoListsOneEndpointPerBoundAddressWithSubjectAndQueueGroup) {
  auto options = natstest::listenerOptions(url());
  options.serviceName = "shop";
  options.serviceVersion = "2.1.0-rc.1+b7";
  options.serviceDescription = "the shop's \"inventory\"";
  FarShop far(options);
  const std::string id = far.listener->serviceId();
  const std::vector<std::string> answers = gather(url(), "$SRV.INFO.shop." + id);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0],
            R"({"type":"io.nats.micro.v1.info_response","name":"shop","id":")" + id +
                R"(","version":"2.1.0-rc.1+b7","metadata":{},)"
                R"("description":"the shop's \"inventory\"","endpoints":[)"
                R"({"name":"shop_CancelOrder","subject":"connector.shop.CancelOrder",)"
                R"("queue_group":"connector","metadata":{"address":"shop/CancelOrder"}},)"
                R"({"name":"shop_ReserveItem","subject":"connector.shop.ReserveItem",)"
                R"("queue_group":"connector","metadata":{"address":"shop/ReserveItem"}}]})");
  EXPECT_EQ(gather(url(), "$SRV.INFO").size(), 1u);
}

TEST_F(NatsDiscoveryTest, WithTheApiInfoCarriesEachOperationsTypesAndSchemas) {
  auto options = natstest::listenerOptions(url());
  json::Api api("shop", "1.0.0");
  const shop::ShopTypes& types = shop::shopTypes();
  // shop/CancelOrder is bound but not declared: its endpoint shows the address only.
  api.operation(shop::kReserveItem, types.reserveItem, types.reservation, "Reserve pieces");
  api.operation("shop/Unbound", types.cancelOrder, types.orderCancelled, "not served");
  options.api = std::make_shared<json::Api>(api);
  FarShop far(options);

  const auto info = parse(gather(url(), "$SRV.INFO.connector." + far.listener->serviceId()).at(0));
  const auto endpoints = info->getArray("endpoints");
  ASSERT_EQ(endpoints->size(), 2u);
  std::ostringstream cancel;
  endpoints->getObject(0)->getObject("metadata")->stringify(cancel);
  EXPECT_EQ(cancel.str(), R"({"address":"shop/CancelOrder"})");
  const auto reserve = endpoints->getObject(1)->getObject("metadata");
  EXPECT_EQ(reserve->getNames(),
            (std::vector<std::string>{"address", "answer_schema", "answer_type", "request_schema",
                                      "request_type", "summary"}));
  EXPECT_EQ(reserve->getValue<std::string>("address"), "shop/ReserveItem");
  EXPECT_EQ(reserve->getValue<std::string>("summary"), "Reserve pieces");
  EXPECT_EQ(reserve->getValue<std::string>("request_type"), "shop/ReserveItem");
  EXPECT_EQ(reserve->getValue<std::string>("answer_type"), "shop/Reservation");
  // Every value is a string; the schemas are the declared schemas' JSON text.
  const auto textOf = [](const Poco::JSON::Object::Ptr& schema) {
    std::ostringstream out;
    schema->stringify(out);
    return out.str();
  };
  EXPECT_EQ(reserve->getValue<std::string>("request_schema"), textOf(types.reserveItem.schema()));
  EXPECT_EQ(reserve->getValue<std::string>("answer_schema"), textOf(types.reservation.schema()));
  EXPECT_EQ(parse(reserve->getValue<std::string>("request_schema"))->getValue<std::string>("title"),
            "shop/ReserveItem");
}

TEST_F(NatsDiscoveryTest, EndpointNamesKeepToTheProtocolsCharactersAndStayDistinct) {
  auto echo = std::make_shared<natstest::SlowEcho>(std::chrono::milliseconds(0));
  auto router = natstest::slowEchoRouter(echo);  // "test/slow"
  router->bind(connector::Address("test_slow"), echo);
  router->bind(connector::Address("a.b"), echo);  // no subject reaches it: no endpoint
  router->bind(connector::Address("caf\xc3\xa9/x"), echo);
  NatsListener listener(router, natstest::listenerOptions(url()));
  listener.start();
  const auto info = parse(gather(url(), "$SRV.INFO.connector." + listener.serviceId()).at(0));
  std::vector<std::string> names;
  const auto endpoints = info->getArray("endpoints");
  for (std::size_t i = 0; i < endpoints->size(); ++i) {
    names.push_back(endpoints->getObject(static_cast<unsigned>(i))->getValue<std::string>("name"));
  }
  EXPECT_EQ(names, (std::vector<std::string>{"caf___x", "test_slow", "test_slow-2"}));
}

TEST_F(NatsDiscoveryTest, StatsCountRequestsErrorsTheLastErrorAndTheTimeSpent) {
  FarShop far(url());
  RawNatsClient client(url());
  const char* const reserve = R"({"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2})";
  for (int i = 0; i < 3; ++i) client.request("connector.shop.ReserveItem", reserve);
  client.request("connector.shop.ReserveItem", "{not json");
  client.request("connector.shop.CancelOrder", R"({"type":"shop/CancelOrder","orderId":"Q"})");
  client.request("connector.shop.Nothing", "{}");  // unbound: no endpoint's
  const auto stats =
      parse(gather(url(), "$SRV.STATS.connector." + far.listener->serviceId()).at(0));
  EXPECT_EQ(stats->getValue<std::string>("type"), "io.nats.micro.v1.stats_response");
  EXPECT_EQ(stats->getValue<std::string>("name"), "connector");
  EXPECT_EQ(stats->getValue<std::string>("started").size(), 24u);  // 2026-11-23T21:04:05.123Z
  const auto endpoints = stats->getArray("endpoints");
  ASSERT_EQ(endpoints->size(), 2u);
  const auto cancel = endpoints->getObject(0);
  EXPECT_EQ(cancel->getValue<std::string>("name"), "shop_CancelOrder");
  EXPECT_EQ(cancel->getValue<std::string>("subject"), "connector.shop.CancelOrder");
  EXPECT_EQ(cancel->getValue<std::string>("queue_group"), "connector");
  EXPECT_EQ(cancel->getValue<std::int64_t>("num_requests"), 1);
  EXPECT_EQ(cancel->getValue<std::int64_t>("num_errors"), 1);
  EXPECT_EQ(cancel->getValue<std::string>("last_error"), "order not found: Q");
  const auto reserveStats = endpoints->getObject(1);
  EXPECT_EQ(reserveStats->getValue<std::string>("name"), "shop_ReserveItem");
  EXPECT_EQ(reserveStats->getValue<std::int64_t>("num_requests"), 4);
  EXPECT_EQ(reserveStats->getValue<std::int64_t>("num_errors"), 1);
  EXPECT_EQ(reserveStats->getValue<std::string>("last_error").rfind("Parsing error: ", 0), 0u);
  const auto total = reserveStats->getValue<std::int64_t>("processing_time");
  EXPECT_GT(total, 0);
  EXPECT_EQ(reserveStats->getValue<std::int64_t>("average_processing_time"), total / 4);
}

TEST_F(NatsDiscoveryTest, AServiceNameOrVersionTheProtocolCannotCarryIsRefused) {
  auto router = std::make_shared<connector::Router>();
  for (const std::string name : {"", "shop.v1", "shop service", "shop/x", "caf\xc3\xa9"}) {
    auto options = natstest::listenerOptions(url());
    options.serviceName = name;
    EXPECT_THROW_TEXT(
        NatsListener(router, options), std::invalid_argument,
        "NatsListener service name '" + name + "' is not valid: use letters, digits, '_' and '-'");
  }
  for (const std::string version :
       {"1", "1.2", "1.2.3.4", "01.2.3", "1.2.3-", "1.2.3-01", "1.2.3+", "1.2.3-a..b", "v1.2.3"}) {
    auto options = natstest::listenerOptions(url());
    options.serviceVersion = version;
    EXPECT_THROW_TEXT(
        NatsListener(router, options), std::invalid_argument,
        "NatsListener service version '" + version + "' is not a semantic version such as 1.2.3");
  }
  for (const std::string version : {"0.0.0", "10.20.30", "1.2.3-0", "1.2.3-alpha.1+001"}) {
    auto options = natstest::listenerOptions(url());
    options.serviceVersion = version;
    EXPECT_NO_THROW(NatsListener(router, options)) << version;
  }
}

}  // namespace

// What an HTTP client sees when a declared type refuses its request: the gateway answers
// 400 with {"error":"<text>"}, the text naming the member. The request goes through the
// streamed deserialize by "type", which puts "Error while parsing: " in front of the
// object-level text "Parsing error for type '<name>': <member text>".
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/StreamCopier.h>

#include <connector/json.hpp>
#include <connector/net/HttpGateway.hpp>

#include "types/DeclaredOrder.hpp"

namespace connector::typestest {
namespace {

// Answers every order with the order itself.
class EchoService : public ServiceProvider {
 public:
  void start() override {}
  void stop() override {}
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&&,
                                           std::shared_ptr<Context>&&) override {
    return makeReadyFuture<std::unique_ptr<Message>>(std::move(message));
  }
};

struct Answer {
  int status = 0;
  std::string body;
};

// A far node serving "shop/Order" (declared type) and "shop/StrictOrder" (the same
// members, unknown ones refused) behind an HTTP gateway on a free loopback port.
class GatewayErrorBody : public ::testing::Test {
 protected:
  GatewayErrorBody() {
    types.order.registerWith(*serializer);
    json::MessageType<Order> strict("shop/StrictOrder");
    strict.field("id", &Order::id).field("items", &Order::items, strictItem).rejectUnknownMembers();
    strict.registerWith(*serializer);
    for (const char* address : {"shop/Order", "shop/StrictOrder"}) {
      services->bind(Address(address), std::make_shared<EchoService>());
      farNode->bind(Address(address),
                    std::make_shared<json::JsonDeserializerServiceProvider>(serializer),
                    services->context());
    }
    services->start();
    farNode->start();
    gateway = std::make_unique<net::HttpGateway>(farNode);
    gateway->start();
  }
  ~GatewayErrorBody() override {
    gateway->stop();
    farNode->stop();
    services->stop();
  }

  Answer post(const std::string& address, const std::string& body) {
    Poco::Net::HTTPClientSession session("127.0.0.1", gateway->port());
    session.setTimeout(Poco::Timespan(10, 0));
    Poco::Net::HTTPRequest request("POST", "/" + address, Poco::Net::HTTPMessage::HTTP_1_1);
    request.setContentType("application/json");
    request.setContentLength(static_cast<std::streamsize>(body.size()));
    session.sendRequest(request) << body;
    Poco::Net::HTTPResponse response;
    std::istream& in = session.receiveResponse(response);
    Answer answer;
    answer.status = static_cast<int>(response.getStatus());
    Poco::StreamCopier::copyToString(in, answer.body);
    return answer;
  }

  // The 400 body for a refusal of type `name` with the member text `member`, as JSON
  // (the quotes around the path escaped).
  static std::string refusal(const std::string& name, const std::string& member) {
    return R"({"error":"Error while parsing: Parsing error for type ')" + name + "': " + member +
           R"("})";
  }

  OrderTypes types;
  json::Struct<Item> strictItem = json::Struct<Item>()
                                      .field("sku", &Item::sku)
                                      .field("quantity", &Item::quantity)
                                      .rejectUnknownMembers();
  std::shared_ptr<json::JsonSerializerImpl> serializer =
      std::make_shared<json::JsonSerializerImpl>();
  std::shared_ptr<Router> services = std::make_shared<Router>();
  std::shared_ptr<Router> farNode = std::make_shared<Router>();
  std::unique_ptr<net::HttpGateway> gateway;
};

std::string order(const std::string& members) { return R"({"type":"shop/Order",)" + members + "}"; }

TEST_F(GatewayErrorBody, AnAcceptedOrderComesBackAsItWasDeclared) {
  const Answer answer = post("shop/Order", order(R"("id":"A","items":[{"sku":"s","quantity":1}],)"
                                                 R"("priority":"high","weights":{"w":0.5})"));

  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body,
            R"({"id":"A","items":[{"sku":"s","quantity":1}],"priority":"high","weights":)"
            R"({"w":0.5},"type":"shop/Order"})");
}

TEST_F(GatewayErrorBody, AMissingMemberIsNamedInThe400Body) {
  const Answer answer = post("shop/Order", order(R"("items":[],"priority":"low","weights":{})"));

  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.body, refusal("shop/Order", R"(member \"/id\" is missing)"));
}

TEST_F(GatewayErrorBody, AWrongKindInsideAnArrayIsNamedWithItsPath) {
  const Answer answer =
      post("shop/Order", order(R"("id":"A","items":[{"sku":"s","quantity":1},)"
                               R"({"sku":"t","quantity":"2"}],"priority":"low","weights":{})"));

  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.body, refusal("shop/Order", R"(member \"/items/1/quantity\": expected an )"
                                               R"(integer, got a string)"));
}

TEST_F(GatewayErrorBody, AnIntegerOutOfRangeIsQuoted) {
  const Answer answer =
      post("shop/Order", order(R"("id":"A","items":[{"sku":"s","quantity":3000000000}],)"
                               R"("priority":"low","weights":{})"));

  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.body,
            refusal("shop/Order", R"(member \"/items/0/quantity\": 3000000000 is out of range)"));
}

TEST_F(GatewayErrorBody, AnUnknownEnumNameListsTheNames) {
  const Answer answer =
      post("shop/Order", order(R"("id":"A","items":[],"priority":"urgent","weights":{})"));

  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.body,
            refusal("shop/Order", R"(member \"/priority\": \"urgent\" is not one of \"low\", )"
                                  R"(\"normal\", \"high\")"));
}

TEST_F(GatewayErrorBody, AMapKeyIsEscapedInThePath) {
  const Answer answer =
      post("shop/Order", order(R"("id":"A","items":[],"priority":"low","weights":{"a/b~c":true})"));

  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.body, refusal("shop/Order", R"(member \"/weights/a~1b~0c\": expected a )"
                                               R"(number, got a boolean)"));
}

TEST_F(GatewayErrorBody, AnUnknownMemberIsNamedWhereUnknownMembersAreRefused) {
  const Answer top =
      post("shop/StrictOrder", R"({"type":"shop/StrictOrder","id":"A","items":[],"x":1})");
  const Answer nested = post("shop/StrictOrder", R"({"type":"shop/StrictOrder","id":"A",)"
                                                 R"("items":[{"sku":"s","quantity":1,"y":2}]})");

  EXPECT_EQ(top.status, 400);
  EXPECT_EQ(top.body, refusal("shop/StrictOrder", R"(member \"/x\" is not expected)"));
  EXPECT_EQ(nested.status, 400);
  EXPECT_EQ(nested.body, refusal("shop/StrictOrder", R"(member \"/items/0/y\" is not expected)"));
}

TEST_F(GatewayErrorBody, ALiteralTheParserWouldMisreadIsRefusedBeforeAnyMember) {
  const Answer answer =
      post("shop/Order", order(R"("id":"A","items":[{"sku":"s","quantity":18446744073709551616}],)"
                               R"("priority":"low","weights":{})"));

  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.body,
            R"({"error":"Parsing error: Not a valid unsigned integer: 18446744073709551616"})");
}

}  // namespace
}  // namespace connector::typestest

// A message with every member option and newer member kind crosses both transports of
// the reference host: POSTed to the HTTP gateway and requested over NATS, it is read by
// its declared type on the far node, echoed by a service and written back unchanged; a
// bad member gets the 400 answer naming it.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/StreamCopier.h>

#include <connector/json.hpp>
#include <connector/nats/NatsListener.hpp>
#include <connector/net/HttpGateway.hpp>

#include "nats/RawNatsClient.hpp"
#include "support/NatsServerProcess.hpp"
#include "types/DeclaredShipment.hpp"

namespace connector::typestest {
namespace {

class EchoService : public ServiceProvider {
 public:
  void start() override {}
  void stop() override {}
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&&,
                                           std::shared_ptr<Context>&&) override {
    return makeReadyFuture<std::unique_ptr<Message>>(std::move(message));
  }
};

// What the sample shipment is written as (the type's name last).
std::string sampleText(const ShipmentTypes& types) {
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  types.shipment.registerWith(*serializer);
  std::ostringstream out;
  serializer->serialize(std::make_unique<Shipment>(sampleShipment()), out);
  return out.str();
}

const char* const kRefusal =
    R"({"error":"Error while parsing: Parsing error for type 'test/Shipment': member )"
    R"(\"/extraShapes/0/kind\": \"triangle\" is not one of \"circle\", \"square\""})";

// The sample with its first extra shape's tag changed to one that is not declared.
std::string badShipment(std::string text) {
  const std::string from = R"("extraShapes":[{"kind":"square")";
  return text.replace(text.find(from), from.size(), R"("extraShapes":[{"kind":"triangle")");
}

// A far node serving "test/Shipment" (declared type, echoed back).
class ShipmentTransports : public ::testing::Test {
 protected:
  ShipmentTransports() {
    types.shipment.registerWith(*serializer);
    services->bind(Address("test/Shipment"), std::make_shared<EchoService>());
    farNode->bind(Address("test/Shipment"),
                  std::make_shared<json::JsonDeserializerServiceProvider>(serializer),
                  services->context());
    services->start();
    farNode->start();
  }
  ~ShipmentTransports() override {
    farNode->stop();
    services->stop();
  }

  ShipmentTypes types;
  std::shared_ptr<json::JsonSerializerImpl> serializer =
      std::make_shared<json::JsonSerializerImpl>();
  std::shared_ptr<Router> services = std::make_shared<Router>();
  std::shared_ptr<Router> farNode = std::make_shared<Router>();
};

TEST_F(ShipmentTransports, TheHttpGatewayReadsAndWritesEveryNewKind) {
  net::HttpGateway gateway(farNode);
  gateway.start();
  const auto post = [&](const std::string& body, std::string& answer) {
    Poco::Net::HTTPClientSession session("127.0.0.1", gateway.port());
    session.setTimeout(Poco::Timespan(10, 0));
    Poco::Net::HTTPRequest request("POST", "/test/Shipment", Poco::Net::HTTPMessage::HTTP_1_1);
    request.setContentType("application/json");
    request.setContentLength(static_cast<std::streamsize>(body.size()));
    session.sendRequest(request) << body;
    Poco::Net::HTTPResponse response;
    std::istream& in = session.receiveResponse(response);
    answer.clear();
    Poco::StreamCopier::copyToString(in, answer);
    return static_cast<int>(response.getStatus());
  };
  const std::string sample = sampleText(types);
  std::string answer;

  EXPECT_EQ(post(sample, answer), 200);
  EXPECT_EQ(answer, sample);
  EXPECT_EQ(post(badShipment(sample), answer), 400);
  EXPECT_EQ(answer, kRefusal);
  gateway.stop();
}

TEST_F(ShipmentTransports, ANatsListenerReadsAndWritesEveryNewKind) {
  testing::NatsServerProcess server;
  server.start();
  nats::NatsListenerOptions options;
  options.url = server.url();
  nats::NatsListener listener(farNode, options);
  listener.start();
  natstest::RawNatsClient client(server.url());
  const std::string sample = sampleText(types);

  const natstest::RawReply accepted = client.request("connector.test.Shipment", sample);
  EXPECT_EQ(accepted.headers.count("Connector-Status"), 0U);
  EXPECT_EQ(accepted.body, sample);
  const natstest::RawReply refused = client.request("connector.test.Shipment", badShipment(sample));
  EXPECT_EQ(
      refused.headers.count("Connector-Status") != 0 ? refused.headers.at("Connector-Status") : "",
      "400");
  EXPECT_EQ(refused.body, kRefusal);
  listener.stop();
}

}  // namespace
}  // namespace connector::typestest

// The JSON bridge across HTTP end to end: typed requests from a client node through an
// HttpLink and an HttpGateway to the far node's services, and any HTTP client (curl)
// calling a bridged service directly.
#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "NetFixtures.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using nettest::ClientShop;
using nettest::FarShop;

TEST(HttpBridgeTest, ATypedRequestCrossesToTheFarNodeAndItsTypedAnswerComesBack) {
  FarShop far;
  ClientShop client(far.url());
  std::unique_ptr<connector::Message> answer = client.reserve("CHAIR-03", 3);
  auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
  ASSERT_NE(reservation, nullptr);
  EXPECT_EQ(reservation->reservationId, "R-000001");
  EXPECT_EQ(reservation->sku, "CHAIR-03");
  EXPECT_EQ(reservation->quantity, 3);
  EXPECT_TRUE(reservation->accepted);
  // The far node's inventory moved; the client node's own one did not.
  EXPECT_EQ(far.nodes->inventory->available("CHAIR-03"), 1000000 - 3);
  EXPECT_EQ(client.nodes.inventory->available("CHAIR-03"), 1000000);
}

TEST(HttpBridgeTest, AFarServiceFailureReachesTheClientWithTheStatusAndItsText) {
  FarShop far;
  ClientShop client(far.url());
  EXPECT_THROW_TEXT(client.nodes.client
                        ->deliver(std::make_unique<shop::CancelOrder>("ORD-404"),
                                  connector::Address(shop::kCancelOrder))
                        .get(),
                    std::runtime_error,
                    "POST " + far.url() +
                        "/shop/CancelOrder failed: HTTP 404 Not Found: order not "
                        "found: ORD-404");
}

TEST(HttpBridgeTest, AReservationCanBeCancelledAcrossTheLink) {
  FarShop far;
  ClientShop client(far.url());
  auto reservation = client.reserve("LAMP-01", 5);
  const std::string id = dynamic_cast<shop::Reservation&>(*reservation).reservationId;
  std::unique_ptr<connector::Message> cancelled =
      client.nodes.client
          ->deliver(std::make_unique<shop::CancelOrder>(id), connector::Address(shop::kCancelOrder))
          .get();
  EXPECT_EQ(dynamic_cast<shop::OrderCancelled&>(*cancelled).orderId, id);
  EXPECT_EQ(far.nodes->inventory->available("LAMP-01"), 1000000);
}

// Runs a shell command and returns its standard output; fails the test on a bad exit.
std::string run(const std::string& command) {
  std::string out;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run: " + command);
  std::array<char, 4096> buffer{};
  std::size_t n = 0;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) out.append(buffer.data(), n);
  const int status = ::pclose(pipe);
  if (status != 0)
    throw std::runtime_error("'" + command + "' exited with " + std::to_string(status));
  return out;
}

TEST(HttpBridgeTest, CurlPostsJsonAndReadsTheTypedAnswersJson) {
  ASSERT_EQ(std::system("command -v curl >/dev/null 2>&1"), 0)
      << "curl is missing: run scripts/install-deps";
  FarShop far;
  const std::string out =
      run("curl -sS --max-time 10 -H 'Content-Type: application/json' "
          "--data-binary '{\"type\":\"shop/ReserveItem\",\"sku\":\"DESK-02\",\"quantity\":4}' "
          "-w '\\n%{http_code} %{content_type}' " +
          far.url() + "/shop/ReserveItem");
  const std::size_t split = out.rfind('\n');
  ASSERT_NE(split, std::string::npos) << out;
  EXPECT_EQ(out.substr(split + 1), "200 application/json");
  Poco::JSON::Parser parser;
  auto reply = parser.parse(out.substr(0, split)).extract<Poco::JSON::Object::Ptr>();
  EXPECT_EQ(reply->getValue<std::string>("type"), "shop/Reservation");
  EXPECT_EQ(reply->getValue<std::string>("sku"), "DESK-02");
  EXPECT_EQ(reply->getValue<int>("quantity"), 4);
  EXPECT_TRUE(reply->getValue<bool>("accepted"));
  EXPECT_EQ(far.nodes->inventory->available("DESK-02"), 1000000 - 4);
}

TEST(HttpBridgeTest, CurlSeesTheErrorStatusAndBody) {
  ASSERT_EQ(std::system("command -v curl >/dev/null 2>&1"), 0)
      << "curl is missing: run scripts/install-deps";
  FarShop far;
  const std::string out =
      run("curl -sS --max-time 10 -H 'Content-Type: application/json' "
          "--data-binary '{\"type\":\"shop/ReserveItem\"' -w ' %{http_code}' " +
          far.url() + "/shop/Missing");
  EXPECT_EQ(out, R"({"error":"No service bound at address 'shop/Missing'"} 404)");
  EXPECT_EQ(run("curl -sS --max-time 10 " + far.url() + "/"),
            R"({"addresses":["shop/CancelOrder","shop/ReserveItem"]})");
}

}  // namespace

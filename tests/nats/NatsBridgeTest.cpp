// The JSON bridge across NATS end to end: typed requests from a client node through a
// NatsLink and a NatsListener to the far node's typed services and back.
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <connector/transport/StatusError.hpp>

#include "NatsFixtures.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using natstest::ClientShop;
using natstest::FarShop;

class NatsBridgeTest : public natstest::NatsSuite {};

TEST_F(NatsBridgeTest, AReservationCrossesToTheFarNodeAndItsTypedAnswerComesBack) {
  FarShop far(url());
  ClientShop client(url());
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

TEST_F(NatsBridgeTest, AReservationCanBeCancelledAcrossTheLink) {
  FarShop far(url());
  ClientShop client(url());
  auto reservation = client.reserve("LAMP-01", 5);
  const std::string id = dynamic_cast<shop::Reservation&>(*reservation).reservationId;
  std::unique_ptr<connector::Message> cancelled =
      client.nodes.client
          ->deliver(std::make_unique<shop::CancelOrder>(id), connector::Address(shop::kCancelOrder))
          .get();
  EXPECT_EQ(dynamic_cast<shop::OrderCancelled&>(*cancelled).orderId, id);
  EXPECT_EQ(far.nodes->inventory->available("LAMP-01"), 1000000);
}

TEST_F(NatsBridgeTest, AFarServiceFailureReachesTheClientWithItsStatusAndText) {
  FarShop far(url());
  ClientShop client(url());
  EXPECT_THROW_TEXT(client.nodes.client
                        ->deliver(std::make_unique<shop::CancelOrder>("ORD-404"),
                                  connector::Address(shop::kCancelOrder))
                        .get(),
                    connector::transport::StatusError,
                    "NATS request to connector.shop.CancelOrder failed: status 404: order not "
                    "found: ORD-404");
}

TEST_F(NatsBridgeTest, WithoutAListenerTheTypedRequestFailsAtOnce) {
  ClientShop client(url());
  EXPECT_THROW_TEXT(client.reserve("LAMP-01", 1), connector::transport::StatusError,
                    "NATS request to connector.shop.ReserveItem failed: no service is listening");
}

TEST_F(NatsBridgeTest, TheContentTypeOfRequestAndAnswerIsKeptEndToEnd) {
  FarShop far(url());
  connector::nats::NatsLink link(natstest::linkOptions(url()));
  // The deserializer provider echoes the request's content type on its answer.
  auto answer =
      link.deliver(natstest::opaque(R"({"type":"shop/ReserveItem","sku":"DESK-02","quantity":1})",
                                    "application/json; charset=utf-8"),
                   connector::Address(shop::kReserveItem))
          .get();
  EXPECT_EQ(natstest::contentTypeOf(answer), "application/json; charset=utf-8");
  EXPECT_EQ(natstest::textOf(answer),
            R"({"reservationId":"R-000001","sku":"DESK-02","quantity":1,"accepted":true,)"
            R"("type":"shop/Reservation"})");
}

}  // namespace

// Two nodes joined by the in-process link, with the JSON bridge between them: what a
// client of the client node sees.
#include <gtest/gtest.h>
#include <connector/json.hpp>
#include <connector/transport/StatusError.hpp>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "shop/Inventory.hpp"
#include "shop/ShopMessages.hpp"
#include "shop/ShopNodes.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::testing {

// A request type that no serializer knows.
struct UnregisteredRequest : Message {};

namespace {

using MessagePtr = std::unique_ptr<Message>;

// Wraps the link and records the JSON text crossing it in both directions.
class RecordingLink : public Context {
 public:
  explicit RecordingLink(std::shared_ptr<Context> link) : link(std::move(link)) {}

  Future<MessagePtr> deliver(MessagePtr&& message, Address&& address) override {
    record(message);
    MessagePtr answer = link->deliver(std::move(message), std::move(address)).get();
    record(answer);
    return makeReadyFuture(std::move(answer));
  }

  std::vector<std::string> crossed() {
    std::lock_guard<std::mutex> lock(mutex);
    return texts;
  }

 private:
  void record(const MessagePtr& message) {
    auto* opaque = dynamic_cast<const json::OpaqueMessage*>(message.get());
    std::lock_guard<std::mutex> lock(mutex);
    texts.push_back(opaque == nullptr
                        ? std::string("(not opaque)")
                        : opaque->contentType + " " + std::string(opaque->payload.view()));
  }

  std::shared_ptr<Context> link;
  std::mutex mutex;
  std::vector<std::string> texts;  // guarded by mutex
};

MessagePtr reserve(shop::ShopNodes& nodes, const std::string& sku, int quantity) {
  return nodes.client
      ->deliver(std::make_unique<shop::ReserveItem>(sku, quantity), Address(shop::kReserveItem))
      .get();
}

TEST(BridgeTest, ATypedRequestCrossesTheBridgeAndItsTypedAnswerComesBack) {
  shop::ShopNodes nodes;

  MessagePtr answer = reserve(nodes, "LAMP-01", 2);

  auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
  ASSERT_NE(reservation, nullptr);
  EXPECT_EQ(reservation->reservationId, "R-000001");
  EXPECT_EQ(reservation->sku, "LAMP-01");
  EXPECT_EQ(reservation->quantity, 2);
  EXPECT_TRUE(reservation->accepted);
  EXPECT_EQ(nodes.inventory->available("LAMP-01"), 1000000 - 2);
}

TEST(BridgeTest, OnlyJsonTextCrossesTheLinkInEitherDirection) {
  std::shared_ptr<RecordingLink> recorder;
  shop::ShopNodes nodes([&](std::shared_ptr<Context> link) {
    recorder = std::make_shared<RecordingLink>(std::move(link));
    return recorder;
  });

  reserve(nodes, "DESK-02", 1);

  EXPECT_EQ(recorder->crossed(),
            (std::vector<std::string>{
                R"(application/json {"sku":"DESK-02","quantity":1,"type":"shop/ReserveItem"})",
                R"(application/json {"reservationId":"R-000001","sku":"DESK-02","quantity":1,)"
                R"("accepted":true,"type":"shop/Reservation"})"}));
}

TEST(BridgeTest, ARefusedReservationComesBackAsAnAnswerNotAFailure) {
  shop::ShopNodes nodes;

  MessagePtr answer = reserve(nodes, "SOFA-99", 1);

  auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
  ASSERT_NE(reservation, nullptr);
  EXPECT_FALSE(reservation->accepted);
  EXPECT_EQ(reservation->reservationId, "");
  EXPECT_EQ(reservation->sku, "SOFA-99");
}

TEST(BridgeTest, AServiceFailureOnTheFarNodeReachesTheClientWithItsTypeAndText) {
  shop::ShopNodes nodes;

  Future<MessagePtr> answer = nodes.client->deliver(std::make_unique<shop::CancelOrder>("ORD-404"),
                                                    Address(shop::kCancelOrder));

  EXPECT_THROW_TEXT(answer.get(), connector::transport::StatusError, "order not found: ORD-404");
  Future<MessagePtr> again = nodes.client->deliver(std::make_unique<shop::CancelOrder>("ORD-404"),
                                                   Address(shop::kCancelOrder));
  try {
    again.get();
    ADD_FAILURE() << "the cancellation of an unknown order succeeded";
  } catch (const connector::transport::StatusError& failure) {
    EXPECT_EQ(failure.status(), 404);
    EXPECT_STREQ(failure.answerText(), "order not found: ORD-404");
  }
}

TEST(BridgeTest, ACancellationOfAnExistingReservationPutsTheStockBack) {
  shop::ShopNodes nodes;
  MessagePtr reserved = reserve(nodes, "CHAIR-03", 3);
  const std::string id = dynamic_cast<shop::Reservation&>(*reserved).reservationId;

  MessagePtr answer =
      nodes.client->deliver(std::make_unique<shop::CancelOrder>(id), Address(shop::kCancelOrder))
          .get();

  auto* cancelled = dynamic_cast<shop::OrderCancelled*>(answer.get());
  ASSERT_NE(cancelled, nullptr);
  EXPECT_EQ(cancelled->orderId, id);
  EXPECT_EQ(nodes.inventory->available("CHAIR-03"), 1000000);
}

TEST(BridgeTest, AStoppedFarProviderAnswersServiceExistsButIsNotRunningThroughTheBridge) {
  shop::ShopNodes nodes;
  nodes.gateway->stop();

  Future<MessagePtr> answer = nodes.client->deliver(
      std::make_unique<shop::ReserveItem>("LAMP-01", 1), Address(shop::kReserveItem));

  EXPECT_THROW_TEXT(answer.get(), std::runtime_error, "Service exists but is not running.");
  EXPECT_EQ(nodes.inventory->available("LAMP-01"), 1000000);
}

TEST(BridgeTest, AFarNodeStartedAgainServesAgain) {
  shop::ShopNodes nodes;
  nodes.gateway->stop();
  nodes.gateway->start();

  MessagePtr answer = reserve(nodes, "LAMP-01", 1);

  EXPECT_TRUE(dynamic_cast<shop::Reservation&>(*answer).accepted);
}

TEST(BridgeTest, AnAddressTheFarNodeDoesNotServeFailsNamingTheAddress) {
  shop::ShopNodes nodes;
  nodes.client->bind(Address("shop/Audit"),
                     std::make_shared<json::JsonSerializerServiceProvider>(nodes.clientSerializer),
                     std::make_shared<InProcessLink>(nodes.gateway));

  Future<MessagePtr> answer = nodes.client->deliver(
      std::make_unique<shop::ReserveItem>("LAMP-01", 1), Address("shop/Audit"));

  EXPECT_THROW_TEXT(answer.get(), std::invalid_argument,
                    "No service bound at address 'shop/Audit'");
}

TEST(BridgeTest, ARequestOfAnUnregisteredTypeFailsOnTheClientNodeAndSendsNothing) {
  std::shared_ptr<RecordingLink> recorder;
  shop::ShopNodes nodes([&](std::shared_ptr<Context> link) {
    recorder = std::make_shared<RecordingLink>(std::move(link));
    return recorder;
  });

  Future<MessagePtr> answer =
      nodes.client->deliver(std::make_unique<UnregisteredRequest>(), Address(shop::kReserveItem));

  EXPECT_THROW_TEXT(answer.get(), std::invalid_argument,
                    "No serializer for type: connector::testing::UnregisteredRequest");
  EXPECT_TRUE(recorder->crossed().empty());
}

TEST(BridgeTest, ARequestOfTheWrongTypeForTheAddressIsRefusedByTheFarService) {
  shop::ShopNodes nodes;

  Future<MessagePtr> answer = nodes.client->deliver(std::make_unique<shop::CancelOrder>("R-1"),
                                                    Address(shop::kReserveItem));

  EXPECT_THROW_TEXT(answer.get(), std::invalid_argument,
                    "shop/ReserveItem expects a ReserveItem request");
}

}  // namespace
}  // namespace connector::testing

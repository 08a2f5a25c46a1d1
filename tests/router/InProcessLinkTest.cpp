#include <gtest/gtest.h>
#include <connector/json.hpp>

#include <memory>
#include <stdexcept>
#include <string>

#include "TestServices.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::testing {
namespace {

using MessagePtr = std::unique_ptr<Message>;

struct BytesMessage : Message {
  explicit BytesMessage(common::DataBuffer&& bytes) : payload(std::move(bytes)) {}
  common::DataBuffer payload;
};

// Remembers which message object and which bytes arrived, and answers with the bytes.
class BytesRecordingService : public CountingService {
 public:
  Future<MessagePtr> deliver(MessagePtr&& message, Address&& address,
                             std::shared_ptr<Context>&&) override {
    auto* bytes = dynamic_cast<BytesMessage*>(message.get());
    receivedMessage = bytes;
    receivedBytes = bytes->payload.data;
    receivedAddress = address.str();
    return makeReadyFuture<MessagePtr>(std::move(message));
  }
  const Message* receivedMessage = nullptr;
  const std::uint8_t* receivedBytes = nullptr;
  std::string receivedAddress;
};

TEST(InProcessLinkTest, DeliverHandsTheMessageToTheFarRouterAndReturnsItsAnswer) {
  auto far = std::make_shared<Router>();
  far->bind(Address("shop/ReserveItem"), std::make_shared<EchoService>("far: "));
  auto link = std::make_shared<InProcessLink>(far);

  MessagePtr answer = link->deliver(text("SKU-1", 4), Address("shop/ReserveItem")).get();

  EXPECT_EQ(asText(answer).text, "far: SKU-1");
  EXPECT_EQ(asText(answer).number, 4);
}

TEST(InProcessLinkTest, TheMessageAndItsBytesAreMovedNeverCopied) {
  auto far = std::make_shared<Router>();
  auto recorder = std::make_shared<BytesRecordingService>();
  far->bind(Address("shop/ReserveItem"), recorder);
  auto link = std::make_shared<InProcessLink>(far);
  auto message = std::make_unique<BytesMessage>(common::DataBuffer(std::string_view("{}")));
  const Message* sentMessage = message.get();
  const std::uint8_t* sentBytes = message->payload.data;
  MessagePtr request = std::move(message);

  MessagePtr answer = link->deliver(std::move(request), Address("shop/ReserveItem")).get();

  EXPECT_EQ(request, nullptr);
  EXPECT_EQ(recorder->receivedMessage, sentMessage);
  EXPECT_EQ(recorder->receivedBytes, sentBytes);
  EXPECT_EQ(recorder->receivedAddress, "shop/ReserveItem");
  EXPECT_EQ(answer.get(), sentMessage);
}

TEST(InProcessLinkTest, AnAddressTheFarRouterDoesNotServeFailsThroughTheFuture) {
  auto link = std::make_shared<InProcessLink>(std::make_shared<Router>());

  Future<MessagePtr> answer = link->deliver(text("x"), Address("shop/CancelOrder"));

  EXPECT_THROW_TEXT(answer.get(), std::invalid_argument,
                    "No service bound at address 'shop/CancelOrder'");
}

TEST(InProcessLinkTest, ANullFarRouterIsRefused) {
  EXPECT_THROW_TEXT(InProcessLink(nullptr), std::invalid_argument,
                    "InProcessLink needs a far router");
}

TEST(InProcessLinkTest, TheLinkKeepsTheFarRouterAlive) {
  auto far = std::make_shared<Router>();
  far->bind(Address("a"), std::make_shared<EchoService>("far:"));
  auto link = std::make_shared<InProcessLink>(far);
  std::weak_ptr<Router> watch = far;

  far.reset();

  ASSERT_FALSE(watch.expired());
  EXPECT_EQ(link->farRouter(), watch.lock());
  EXPECT_EQ(asText(link->deliver(text("x"), Address("a")).get()).text, "far:x");
}

TEST(InProcessLinkTest, TwoNodesJoinedByALinkServeTheSameAddressWithoutLooping) {
  auto far = std::make_shared<Router>();
  far->bind(Address("shop/ReserveItem"), std::make_shared<EchoService>("service: "));
  auto client = std::make_shared<Router>();
  client->bind(Address("shop/ReserveItem"), std::make_shared<ForwardingService>("shop/ReserveItem"),
               std::make_shared<InProcessLink>(far));

  MessagePtr answer = client->deliver(text("SKU-2"), Address("shop/ReserveItem")).get();

  EXPECT_EQ(asText(answer).text, "forwarded(service: SKU-2)");
}

}  // namespace
}  // namespace connector::testing

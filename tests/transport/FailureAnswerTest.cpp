// The status and text a transport answers a failed or late delivery with.
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <connector/json.hpp>
#include <connector/transport/FailureAnswer.hpp>
#include <connector/transport/StatusError.hpp>

namespace {

using connector::transport::answerForFailure;
using connector::transport::FailureAnswer;

class Idle : public connector::ServiceProvider {
 public:
  void start() override {}
  void stop() override {}
  connector::Future<std::unique_ptr<connector::Message>> deliver(
      std::unique_ptr<connector::Message>&& message, connector::Address&&,
      std::shared_ptr<connector::Context>&&) override {
    return connector::makeReadyFuture(std::move(message));
  }
};

template <class Failure>
FailureAnswer answerFor(const Failure& failure, const std::string& address,
                        const connector::Router* router) {
  return answerForFailure(std::make_exception_ptr(failure), address, router);
}

TEST(FailureAnswerTest, InvalidArgumentIs404WhereNothingIsBoundAnd400Elsewhere) {
  auto router = std::make_shared<connector::Router>();
  router->bind(connector::Address("shop/ReserveItem"), std::make_shared<Idle>());
  router->start();
  const FailureAnswer unbound =
      answerFor(std::invalid_argument("No service bound"), "shop/Nothing", router.get());
  EXPECT_EQ(unbound.status, 404);
  EXPECT_EQ(unbound.text, "No service bound");
  EXPECT_EQ(answerFor(std::invalid_argument("bad"), "shop/ReserveItem", router.get()).status, 400);
  // Without a router nothing tells an unbound address apart.
  EXPECT_EQ(answerFor(std::invalid_argument("bad"), "shop/Nothing", nullptr).status, 400);
}

TEST(FailureAnswerTest, AServiceThatIsNotRunningIs503AndOtherRuntimeFailures500) {
  auto router = std::make_shared<connector::Router>();
  router->start();
  EXPECT_EQ(
      answerFor(std::runtime_error("Service exists but is not running."), "a", nullptr).status,
      503);
  const FailureAnswer failed = answerFor(std::runtime_error("order not found"), "a", router.get());
  EXPECT_EQ(failed.status, 500);
  EXPECT_EQ(failed.text, "order not found");
  router->stop();
  EXPECT_EQ(answerFor(std::runtime_error("order not found"), "a", router.get()).status, 503);
}

TEST(FailureAnswerTest, AnyOtherFailureIs500WithItsTextOrAFixedOne) {
  EXPECT_EQ(answerFor(std::logic_error("oops"), "a", nullptr).text, "oops");
  EXPECT_EQ(answerFor(std::logic_error("oops"), "a", nullptr).status, 500);
  const FailureAnswer unknown = answerFor(42, "a", nullptr);
  EXPECT_EQ(unknown.status, 500);
  EXPECT_EQ(unknown.text, "The service failed with an exception of unknown type");
}

TEST(FailureAnswerTest, AStatusErrorIsAnsweredWithItsOwnStatusAndAnswerText) {
  const connector::transport::StatusError farFailure(
      404, "NATS request to 'connector.shop.Nothing' failed: status 404: No service bound",
      "No service bound");
  const FailureAnswer passedOn = answerFor(farFailure, "shop/Nothing", nullptr);
  EXPECT_EQ(passedOn.status, 404);
  EXPECT_EQ(passedOn.text, "No service bound");
  // Its own status wins over what a stopped router would make of a runtime failure.
  auto router = std::make_shared<connector::Router>();
  const connector::transport::StatusError late(504, "late", "No answer");
  EXPECT_EQ(answerFor(late, "a", router.get()).status, 504);
}

TEST(FailureAnswerTest, ALateAnswerIs504NamingTheAddressAndTheLimit) {
  const FailureAnswer late =
      connector::transport::timedOutAnswer("shop/ReserveItem", std::chrono::milliseconds(1500));
  EXPECT_EQ(late.status, 504);
  EXPECT_EQ(late.text, "No answer from 'shop/ReserveItem' within 1500 ms");
}

}  // namespace

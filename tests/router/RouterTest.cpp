#include <gtest/gtest.h>
#include <connector/json.hpp>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TestServices.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::testing {
namespace {

using MessagePtr = std::unique_ptr<Message>;

// Records the thread it runs on, then answers like EchoService.
class ThreadRecordingService : public EchoService {
 public:
  Future<MessagePtr> deliver(MessagePtr&& message, Address&& address,
                             std::shared_ptr<Context>&& context) override {
    thread = std::this_thread::get_id();
    return EchoService::deliver(std::move(message), std::move(address), std::move(context));
  }
  std::thread::id thread;
};

// Answers with the context it was handed, so tests can see the next hop.
class ContextRecordingService : public EchoService {
 public:
  Future<MessagePtr> deliver(MessagePtr&& message, Address&& address,
                             std::shared_ptr<Context>&& context) override {
    seen = context;
    return EchoService::deliver(std::move(message), std::move(address), std::move(context));
  }
  std::shared_ptr<Context> seen;
};

MessagePtr deliverNow(Router& router, MessagePtr message, const std::string& address) {
  return router.deliver(std::move(message), Address(address)).get();
}

TEST(RouterTest, DeliverReachesTheProviderBoundAtTheAddress) {
  auto router = std::make_shared<Router>();
  auto echo = std::make_shared<EchoService>();
  router->bind(Address("shop/ReserveItem"), echo);

  MessagePtr answer = deliverNow(*router, text("SKU-1", 7), "shop/ReserveItem");

  EXPECT_EQ(asText(answer).text, "echo: SKU-1");
  EXPECT_EQ(asText(answer).number, 7);
  EXPECT_EQ(echo->lastAddress(), "shop/ReserveItem");
}

TEST(RouterTest, EachAddressReachesItsOwnProvider) {
  auto router = std::make_shared<Router>();
  router->bind(Address("a"), std::make_shared<EchoService>("A:"));
  router->bind(Address("b"), std::make_shared<EchoService>("B:"));

  EXPECT_EQ(asText(deliverNow(*router, text("x"), "a")).text, "A:x");
  EXPECT_EQ(asText(deliverNow(*router, text("y"), "b")).text, "B:y");
}

TEST(RouterTest, DeliverToAnUnboundAddressYieldsAFailedFutureNamingTheAddress) {
  auto router = std::make_shared<Router>();
  MessagePtr request = text("SKU-1");

  Future<MessagePtr> answer = router->deliver(std::move(request), Address("shop/ReserveItem"));

  ASSERT_TRUE(answer.valid());
  EXPECT_THROW_TEXT(answer.get(), std::invalid_argument,
                    "No service bound at address 'shop/ReserveItem'");
}

TEST(RouterTest, DeliverAfterUnbindFailsAndUnbindReturnsTrue) {
  auto router = std::make_shared<Router>();
  router->bind(Address("shop/ReserveItem"), std::make_shared<EchoService>());

  EXPECT_TRUE(router->unbind(Address("shop/ReserveItem")));

  EXPECT_THROW_TEXT(router->deliver(text("x"), Address("shop/ReserveItem")).get(),
                    std::invalid_argument, "No service bound at address 'shop/ReserveItem'");
  EXPECT_TRUE(router->addresses().empty());
}

TEST(RouterTest, UnbindOfAnUnknownAddressReturnsFalseAndChangesNothing) {
  auto router = std::make_shared<Router>();
  router->bind(Address("a"), std::make_shared<EchoService>());

  EXPECT_FALSE(router->unbind(Address("b")));

  EXPECT_EQ(router->addresses(), std::vector<Address>{Address("a")});
}

TEST(RouterTest, AnAddressCanBeBoundAgainAfterUnbind) {
  auto router = std::make_shared<Router>();
  router->bind(Address("a"), std::make_shared<EchoService>("first:"));
  router->unbind(Address("a"));
  router->bind(Address("a"), std::make_shared<EchoService>("second:"));

  EXPECT_EQ(asText(deliverNow(*router, text("x"), "a")).text, "second:x");
}

TEST(RouterTest, BindingAnAddressTwiceThrowsNamingTheAddressAndKeepsTheFirstBinding) {
  auto router = std::make_shared<Router>();
  router->bind(Address("shop/ReserveItem"), std::make_shared<EchoService>("first:"));

  EXPECT_THROW_TEXT(
      router->bind(Address("shop/ReserveItem"), std::make_shared<EchoService>("second:")),
      std::invalid_argument, "Address 'shop/ReserveItem' is already bound");

  EXPECT_EQ(asText(deliverNow(*router, text("x"), "shop/ReserveItem")).text, "first:x");
}

TEST(RouterTest, BindingANullProviderThrowsNamingTheAddress) {
  auto router = std::make_shared<Router>();

  EXPECT_THROW_TEXT(router->bind(Address("shop/ReserveItem"), nullptr), std::invalid_argument,
                    "Cannot bind a null service provider at address 'shop/ReserveItem'");
  EXPECT_TRUE(router->addresses().empty());
}

TEST(RouterTest, AddressesListsTheBoundAddressesSorted) {
  auto router = std::make_shared<Router>();
  router->bind(Address("shop/ReserveItem"), std::make_shared<EchoService>());
  router->bind(Address("billing/Charge"), std::make_shared<EchoService>());
  router->bind(Address("shop/CancelOrder"), std::make_shared<EchoService>());

  EXPECT_EQ(router->addresses(),
            (std::vector<Address>{Address("billing/Charge"), Address("shop/CancelOrder"),
                                  Address("shop/ReserveItem")}));
}

TEST(RouterTest, StartCallsEveryProvidersStartAndSetsRunning) {
  auto router = std::make_shared<Router>();
  auto a = std::make_shared<EchoService>();
  auto b = std::make_shared<EchoService>();
  router->bind(Address("a"), a);
  router->bind(Address("b"), b);
  EXPECT_FALSE(a->isRunning());
  EXPECT_FALSE(router->isStarted());

  router->start();

  EXPECT_TRUE(router->isStarted());
  EXPECT_EQ(a->starts, 1);
  EXPECT_EQ(b->starts, 1);
  EXPECT_TRUE(a->isRunning());
  EXPECT_TRUE(b->isRunning());
  EXPECT_EQ(a->stops, 0);
}

TEST(RouterTest, StopCallsEveryProvidersStopAndClearsRunning) {
  auto router = std::make_shared<Router>();
  auto a = std::make_shared<EchoService>();
  auto b = std::make_shared<EchoService>();
  router->bind(Address("a"), a);
  router->bind(Address("b"), b);
  router->start();

  router->stop();

  EXPECT_FALSE(router->isStarted());
  EXPECT_EQ(a->stops, 1);
  EXPECT_EQ(b->stops, 1);
  EXPECT_FALSE(a->isRunning());
  EXPECT_FALSE(b->isRunning());
}

TEST(RouterTest, StartingTwiceOrStoppingAStoppedRouterCallsNothing) {
  auto router = std::make_shared<Router>();
  auto a = std::make_shared<EchoService>();
  router->bind(Address("a"), a);

  router->stop();
  router->start();
  router->start();

  EXPECT_EQ(a->starts, 1);
  EXPECT_EQ(a->stops, 0);
}

TEST(RouterTest, BindingOnAStartedRouterStartsTheProvider) {
  auto router = std::make_shared<Router>();
  router->start();
  auto late = std::make_shared<EchoService>();

  router->bind(Address("late"), late);

  EXPECT_EQ(late->starts, 1);
  EXPECT_TRUE(late->isRunning());
}

TEST(RouterTest, BindingOnAStoppedRouterDoesNotStartTheProvider) {
  auto router = std::make_shared<Router>();
  auto provider = std::make_shared<EchoService>();

  router->bind(Address("a"), provider);

  EXPECT_EQ(provider->starts, 0);
  EXPECT_FALSE(provider->isRunning());
}

TEST(RouterTest, UnbindingFromAStartedRouterStopsTheProvider) {
  auto router = std::make_shared<Router>();
  auto provider = std::make_shared<EchoService>();
  router->bind(Address("a"), provider);
  router->start();

  router->unbind(Address("a"));

  EXPECT_EQ(provider->stops, 1);
  EXPECT_FALSE(provider->isRunning());
}

TEST(RouterTest, AFailingStartStopsTheProvidersStartedBeforeAndLeavesTheRouterStopped) {
  auto router = std::make_shared<Router>();
  auto first = std::make_shared<EchoService>();
  auto failing = std::make_shared<FailingLifecycleService>(true, false);
  router->bind(Address("a"), first);
  router->bind(Address("b"), failing);

  EXPECT_THROW_TEXT(router->start(), std::runtime_error, "cannot start");

  EXPECT_FALSE(router->isStarted());
  EXPECT_EQ(first->starts, 1);
  EXPECT_EQ(first->stops, 1);
  EXPECT_FALSE(first->isRunning());
  EXPECT_FALSE(failing->isRunning());
}

TEST(RouterTest, AProviderThatFailsToStartOnAStartedRouterLeavesTheAddressFree) {
  auto router = std::make_shared<Router>();
  router->start();

  EXPECT_THROW_TEXT(
      router->bind(Address("a"), std::make_shared<FailingLifecycleService>(true, false)),
      std::runtime_error, "cannot start");

  EXPECT_TRUE(router->addresses().empty());
  router->bind(Address("a"), std::make_shared<EchoService>());
  EXPECT_EQ(router->addresses().size(), 1U);
}

TEST(RouterTest, StopStopsEveryProviderEvenIfOneThrowsThenRethrows) {
  auto router = std::make_shared<Router>();
  auto a = std::make_shared<EchoService>();
  auto failing = std::make_shared<FailingLifecycleService>(false, true);
  auto c = std::make_shared<EchoService>();
  router->bind(Address("a"), a);
  router->bind(Address("b"), failing);
  router->bind(Address("c"), c);
  router->start();

  EXPECT_THROW_TEXT(router->stop(), std::runtime_error, "cannot stop");

  EXPECT_FALSE(router->isStarted());
  EXPECT_EQ(a->stops, 1);
  EXPECT_EQ(c->stops, 1);
  EXPECT_FALSE(a->isRunning());
  EXPECT_FALSE(failing->isRunning());
  EXPECT_FALSE(c->isRunning());
}

TEST(RouterTest, DestroyingAStartedRouterStopsItsProviders) {
  auto provider = std::make_shared<EchoService>();
  {
    auto router = std::make_shared<Router>();
    router->bind(Address("a"), provider);
    router->start();
  }
  EXPECT_EQ(provider->stops, 1);
  EXPECT_FALSE(provider->isRunning());
}

TEST(RouterTest, AProviderThatThrowsSynchronouslyYieldsAFailedFutureWithThatException) {
  auto router = std::make_shared<Router>();
  router->bind(Address("shop/ReserveItem"), std::make_shared<ThrowingService>());

  Future<MessagePtr> answer = router->deliver(text("x"), Address("shop/ReserveItem"));

  ASSERT_TRUE(answer.valid());
  EXPECT_THROW_TEXT(answer.get(), std::runtime_error, "inventory database unreachable");
}

TEST(RouterTest, AFailedFutureFromTheProviderReachesTheCallerUnchanged) {
  class Refusing : public CountingService {
    Future<MessagePtr> deliver(MessagePtr&&, Address&&, std::shared_ptr<Context>&&) override {
      return makeFailedFuture<MessagePtr>(
          std::make_exception_ptr(std::invalid_argument("quantity must be positive")));
    }
  };
  auto router = std::make_shared<Router>();
  router->bind(Address("a"), std::make_shared<Refusing>());

  EXPECT_THROW_TEXT(router->deliver(text("x"), Address("a")).get(), std::invalid_argument,
                    "quantity must be positive");
}

TEST(RouterTest, DeliverRunsTheProviderOnTheCallingThread) {
  auto router = std::make_shared<Router>();
  auto provider = std::make_shared<ThreadRecordingService>();
  router->bind(Address("a"), provider);

  deliverNow(*router, text("x"), "a");

  EXPECT_EQ(provider->thread, std::this_thread::get_id());
}

TEST(RouterTest, AProviderMayDeliverThroughItsContextAndBlockOnTheAnswerOnTheDeliveringThread) {
  auto router = std::make_shared<Router>();
  auto inner = std::make_shared<ThreadRecordingService>();
  router->bind(Address("outer"), std::make_shared<ForwardingService>("inner"));
  router->bind(Address("inner"), inner);

  MessagePtr answer = deliverNow(*router, text("SKU-1", 3), "outer");

  EXPECT_EQ(asText(answer).text, "forwarded(echo: SKU-1)");
  EXPECT_EQ(asText(answer).number, 3);
  EXPECT_EQ(inner->thread, std::this_thread::get_id());
  EXPECT_EQ(inner->lastAddress(), "inner");
}

TEST(RouterTest, ANestedDeliveryMayBeAnsweredFromAnotherThreadWhileTheDeliveringThreadWaits) {
  auto router = std::make_shared<Router>();
  router->bind(Address("outer"), std::make_shared<ForwardingService>("inner"));
  router->bind(Address("inner"), std::make_shared<AsyncEchoService>());

  MessagePtr answer = deliverNow(*router, text("SKU-9", 9), "outer");

  EXPECT_EQ(asText(answer).text, "forwarded(async: SKU-9)");
  EXPECT_EQ(asText(answer).number, 9);
}

TEST(RouterTest, ANestedDeliveryToAnUnboundAddressFailsTheOuterDelivery) {
  auto router = std::make_shared<Router>();
  router->bind(Address("outer"), std::make_shared<ForwardingService>("missing"));

  EXPECT_THROW_TEXT(router->deliver(text("x"), Address("outer")).get(), std::invalid_argument,
                    "No service bound at address 'missing'");
}

TEST(RouterTest, TheDefaultNextHopDeliversIntoTheSameRouter) {
  auto router = std::make_shared<Router>();
  auto recorder = std::make_shared<ContextRecordingService>();
  router->bind(Address("a"), recorder);
  router->bind(Address("b"), std::make_shared<EchoService>("B:"));
  deliverNow(*router, text("x"), "a");
  ASSERT_NE(recorder->seen, nullptr);

  MessagePtr viaHop = recorder->seen->deliver(text("y"), Address("b")).get();

  EXPECT_EQ(asText(viaHop).text, "B:y");
}

TEST(RouterTest, ABindingDeliversOnwardThroughItsOwnNextHopSoTheSameAddressDoesNotLoop) {
  auto far = std::make_shared<Router>();
  far->bind(Address("shop/ReserveItem"), std::make_shared<EchoService>("far: "));
  auto near = std::make_shared<Router>();
  near->bind(Address("shop/ReserveItem"), std::make_shared<ForwardingService>("shop/ReserveItem"),
             far->context());

  MessagePtr answer = deliverNow(*near, text("SKU-1"), "shop/ReserveItem");

  EXPECT_EQ(asText(answer).text, "forwarded(far: SKU-1)");
}

TEST(RouterTest, TheContextOfADestroyedRouterFailsItsDeliveriesNamingTheAddress) {
  std::shared_ptr<Context> context;
  {
    auto router = std::make_shared<Router>();
    context = router->context();
  }

  EXPECT_THROW_TEXT(context->deliver(text("x"), Address("shop/ReserveItem")).get(),
                    std::runtime_error,
                    "Router no longer exists; cannot deliver to address 'shop/ReserveItem'");
}

TEST(RouterTest, TheContextDoesNotKeepTheRouterAlive) {
  auto router = std::make_shared<Router>();
  std::weak_ptr<Router> watch = router;
  router->bind(Address("a"), std::make_shared<EchoService>());  // next hop: the router

  router.reset();

  EXPECT_TRUE(watch.expired());
}

TEST(RouterTest, ContextAndTheDefaultNextHopNeedARouterOwnedBySharedPtr) {
  Router onStack;

  EXPECT_THROW(onStack.context(), std::bad_weak_ptr);
  EXPECT_THROW(onStack.bind(Address("a"), std::make_shared<EchoService>()), std::bad_weak_ptr);
  EXPECT_TRUE(onStack.addresses().empty());
}

TEST(RouterTest, ARouterNotOwnedBySharedPtrStillServesBindingsWithAnExplicitNextHop) {
  auto far = std::make_shared<Router>();
  far->bind(Address("b"), std::make_shared<EchoService>("far:"));
  Router onStack;
  onStack.bind(Address("a"), std::make_shared<ForwardingService>("b"), far->context());

  EXPECT_EQ(asText(deliverNow(onStack, text("x"), "a")).text, "forwarded(far:x)");
}

}  // namespace
}  // namespace connector::testing

#include <gtest/gtest.h>

#include <connector/json.hpp>

#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/ExpectThrow.hpp"
#include "support/RecordingSubscriber.hpp"

namespace connector::reactive_streams {
namespace {

using common::DataBuffer;
using testing::RecordingSubscriber;
using Events = std::vector<std::string>;
using Publisher = OneShotPublisher<DataBuffer>;
using Recorder = RecordingSubscriber<DataBuffer>;

std::shared_ptr<Publisher> publisherOf(std::string_view text) {
  DataBuffer bytes(text);
  return std::make_shared<Publisher>(std::move(bytes));
}

std::shared_ptr<Subscription> subscriptionOf(const Recorder& subscriber) {
  auto strong = subscriber.subscription.lock();
  EXPECT_NE(strong, nullptr);
  return strong;
}

TEST(OneShotPublisher, ConstructionMovesTheValueInAndLeavesTheSourceEmpty) {
  DataBuffer bytes("abc");
  Publisher publisher(std::move(bytes));
  EXPECT_EQ(bytes.data, nullptr);
  EXPECT_EQ(bytes.size, 0u);
  EXPECT_FALSE(publisher.hasEmitted());
}

TEST(OneShotPublisher, SubscriberRequestingInsideOnSubscribeGetsEverythingBeforeSubscribeReturns) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>(1);
  publisher->subscribe(subscriber);
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "complete"}));
  ASSERT_EQ(subscriber->items.size(), 1u);
  EXPECT_EQ(subscriber->items[0].view(), "payload");
  EXPECT_TRUE(publisher->hasEmitted());
}

TEST(OneShotPublisher, SubscriberThatRequestsNothingReceivesOnlyOnSubscribe) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>();
  publisher->subscribe(subscriber);
  EXPECT_EQ(subscriber->events, (Events{"subscribe"}));
  EXPECT_FALSE(publisher->hasEmitted());
}

TEST(OneShotPublisher, LaterRequestDeliversNextAndCompleteFromInsideThatCall) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>();
  publisher->subscribe(subscriber);
  auto subscription = subscriptionOf(*subscriber);
  subscriber->onNextHook = [&] { subscriber->events.emplace_back("inside request"); };
  subscription->request(1);
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "inside request", "complete"}));
  EXPECT_EQ(subscriber->items.at(0).view(), "payload");
}

TEST(OneShotPublisher, RequestZeroOnAFreshSubscriptionEmitsNothing) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>(0);
  publisher->subscribe(subscriber);
  EXPECT_EQ(subscriber->events, (Events{"subscribe"}));
  auto subscription =
      std::static_pointer_cast<Publisher::OneShotSubscription>(subscriptionOf(*subscriber));
  EXPECT_EQ(subscription->demand(), 0u);
  EXPECT_FALSE(publisher->hasEmitted());
}

TEST(OneShotPublisher, RequestOneThenMinusOneLeavesZeroDemandButTheValueWasAlreadyEmitted) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>();
  publisher->subscribe(subscriber);
  auto subscription =
      std::static_pointer_cast<Publisher::OneShotSubscription>(subscriptionOf(*subscriber));
  subscription->request(1);
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "complete"}));
  subscription->request(-1);
  EXPECT_EQ(subscription->demand(), 0u);
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "complete"}));
}

TEST(OneShotPublisher, RequestMinusOneOnAFreshSubscriptionCountsAsUnboundedDemand) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>(-1);
  publisher->subscribe(subscriber);
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "complete"}));
  auto subscription =
      std::static_pointer_cast<Publisher::OneShotSubscription>(subscriptionOf(*subscriber));
  EXPECT_EQ(subscription->demand(), std::numeric_limits<std::uint64_t>::max());
}

TEST(OneShotPublisher, DemandSumsWrapAroundWithoutOverflowing) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>();
  publisher->subscribe(subscriber);
  auto subscription =
      std::static_pointer_cast<Publisher::OneShotSubscription>(subscriptionOf(*subscriber));
  subscription->request(std::numeric_limits<std::int64_t>::min());
  subscription->request(std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(subscription->demand(), 0u);  // 2^63 + 2^63 == 0 modulo 2^64
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "complete"}));
}

TEST(OneShotPublisher, CancelThenRequestEmitsNothingAndNeverCompletes) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>();
  publisher->subscribe(subscriber);
  auto subscription =
      std::static_pointer_cast<Publisher::OneShotSubscription>(subscriptionOf(*subscriber));
  subscription->cancel();
  EXPECT_TRUE(subscription->isCancelled());
  EXPECT_TRUE(publisher->hasEmitted());
  subscription->request(5);
  EXPECT_EQ(subscription->demand(), 5u);
  EXPECT_EQ(subscriber->events, (Events{"subscribe"}));
}

TEST(OneShotPublisher, CancelInsideOnSubscribeSuppressesTheItemAndOnComplete) {
  class CancellingSubscriber : public Recorder {
   public:
    void onSubscribe(std::weak_ptr<Subscription> s) override {
      Recorder::onSubscribe(s);
      s.lock()->cancel();
      s.lock()->request(1);
    }
  };
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<CancellingSubscriber>();
  publisher->subscribe(subscriber);
  EXPECT_EQ(subscriber->events, (Events{"subscribe"}));
  EXPECT_TRUE(publisher->hasEmitted());
}

TEST(OneShotPublisher, SecondSubscribeThrowsEvenAfterTheFirstSubscriberReceivedEverything) {
  auto publisher = publisherOf("payload");
  auto first = std::make_shared<Recorder>(1);
  publisher->subscribe(first);
  auto second = std::make_shared<Recorder>(1);
  EXPECT_THROW_TEXT(publisher->subscribe(second), std::invalid_argument,
                    "Only one subscription allowed.");
  EXPECT_TRUE(second->events.empty());
  EXPECT_EQ(first->events, (Events{"subscribe", "next", "complete"}));
}

TEST(OneShotPublisher, SecondSubscribeThrowsBeforeAnyDemandAndLeavesTheFirstInPlace) {
  auto publisher = publisherOf("payload");
  auto first = std::make_shared<Recorder>();
  publisher->subscribe(first);
  EXPECT_THROW_TEXT(publisher->subscribe(std::make_shared<Recorder>(1)), std::invalid_argument,
                    "Only one subscription allowed.");
  subscriptionOf(*first)->request(1);
  EXPECT_EQ(first->events, (Events{"subscribe", "next", "complete"}));
}

TEST(OneShotPublisher, NullSubscriberIsRefused) {
  auto publisher = publisherOf("payload");
  EXPECT_THROW_TEXT(publisher->subscribe(nullptr), std::invalid_argument,
                    "Subscriber must not be null.");
  auto subscriber = std::make_shared<Recorder>(1);
  publisher->subscribe(subscriber);
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "complete"}));
}

TEST(OneShotPublisher, CompletionIsAlreadyTrueOnAPublisherThatWasNeverSubscribed) {
  auto publisher = publisherOf("payload");
  bool ranAtOnce = false;
  Future<bool> done = publisher->completion();
  done.then([&](Future<bool> ready) { ranAtOnce = ready.get(); });
  EXPECT_TRUE(ranAtOnce);
}

TEST(OneShotPublisher, CompletionIsTrueAfterEmissionAndAfterCancellation) {
  auto emitted = publisherOf("a");
  emitted->subscribe(std::make_shared<Recorder>(1));
  EXPECT_TRUE(emitted->completion().get());

  auto cancelled = publisherOf("b");
  auto subscriber = std::make_shared<Recorder>();
  cancelled->subscribe(subscriber);
  subscriptionOf(*subscriber)->cancel();
  EXPECT_TRUE(cancelled->completion().get());
  EXPECT_TRUE(cancelled->completion().get());  // a fresh future on every call
}

TEST(OneShotPublisher, EmptyBufferIsStillEmittedAsOneItemThenComplete) {
  auto publisher = std::make_shared<Publisher>(DataBuffer());
  auto subscriber = std::make_shared<Recorder>(1);
  publisher->subscribe(subscriber);
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "complete"}));
  ASSERT_EQ(subscriber->items.size(), 1u);
  EXPECT_EQ(subscriber->items[0].size, 0u);
}

TEST(OneShotPublisher, WeakSubscriptionExpiresWithThePublisher) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>(1);
  publisher->subscribe(subscriber);
  EXPECT_FALSE(subscriber->subscription.expired());
  publisher.reset();
  EXPECT_TRUE(subscriber->subscription.expired());
  EXPECT_EQ(subscriber->subscription.lock(), nullptr);
}

TEST(OneShotPublisher, PublisherKeepsItsSubscriberAlive) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>();
  std::weak_ptr<Recorder> watch = subscriber;
  publisher->subscribe(std::move(subscriber));
  EXPECT_FALSE(watch.expired());
  publisher.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(OneShotPublisher, SubscriptionHeldPastThePublisherNoLongerReachesBack) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<Recorder>();
  publisher->subscribe(subscriber);
  std::shared_ptr<Subscription> held = subscriptionOf(*subscriber);
  publisher.reset();
  held->request(1);
  held->cancel();
  EXPECT_EQ(subscriber->events, (Events{"subscribe"}));
}

TEST(OneShotPublisher, ReadingSubscriberLeavesTheBytesInThePublisherATakingOneEmptiesIt) {
  auto publisher = publisherOf("kept");
  auto reader = std::make_shared<Recorder>(1);
  publisher->subscribe(reader);
  auto taker = publisherOf("taken");
  auto taking = std::make_shared<Recorder>(1);
  taking->takeItems = true;
  taker->subscribe(taking);
  EXPECT_EQ(reader->items.at(0).view(), "kept");
  EXPECT_EQ(publisher->heldValue().view(), "kept");
  EXPECT_EQ(taking->items.at(0).view(), "taken");
  EXPECT_EQ(taker->heldValue().size, 0u);
  EXPECT_EQ(taker->heldValue().data, nullptr);
}

TEST(OneShotPublisher, ReentrantRequestFromOnNextFindsNothingLeftToDo) {
  auto publisher = publisherOf("once");
  auto subscriber = std::make_shared<Recorder>(1);
  subscriber->onNextHook = [&] { subscriber->subscription.lock()->request(1); };
  publisher->subscribe(subscriber);
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "complete"}));
}

class ThrowingOnNext : public Recorder {
 public:
  void onNext(DataBuffer&& item) override {
    Recorder::onNext(std::move(item));
    throw std::runtime_error("onNext failed");
  }
};

TEST(OneShotPublisher, ExceptionFromOnNextPropagatesAndIsNotRetried) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<ThrowingOnNext>();
  publisher->subscribe(subscriber);
  auto subscription = subscriptionOf(*subscriber);
  EXPECT_THROW_TEXT(subscription->request(1), std::runtime_error, "onNext failed");
  EXPECT_TRUE(publisher->hasEmitted());
  subscription->request(1);
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next"}));
}

class ThrowingOnSubscribe : public Recorder {
 public:
  void onSubscribe(std::weak_ptr<Subscription> s) override {
    Recorder::onSubscribe(s);
    throw std::logic_error("onSubscribe failed");
  }
};

TEST(OneShotPublisher, ExceptionFromOnSubscribeBeforeDemandLeavesTheValueDue) {
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<ThrowingOnSubscribe>();
  EXPECT_THROW_TEXT(publisher->subscribe(subscriber), std::logic_error, "onSubscribe failed");
  EXPECT_FALSE(publisher->hasEmitted());
  subscriptionOf(*subscriber)->request(1);
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "complete"}));
}

TEST(OneShotPublisher, ExceptionFromOnCompletePropagatesOutOfSubscribe) {
  class ThrowingOnComplete : public Recorder {
   public:
    using Recorder::Recorder;
    void onComplete() override {
      Recorder::onComplete();
      throw std::runtime_error("onComplete failed");
    }
  };
  auto publisher = publisherOf("payload");
  auto subscriber = std::make_shared<ThrowingOnComplete>(1);
  EXPECT_THROW_TEXT(publisher->subscribe(subscriber), std::runtime_error, "onComplete failed");
  EXPECT_EQ(subscriber->events, (Events{"subscribe", "next", "complete"}));
}

}  // namespace
}  // namespace connector::reactive_streams

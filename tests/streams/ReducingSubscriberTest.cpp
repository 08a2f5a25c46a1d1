#include <gtest/gtest.h>

#include <connector/json.hpp>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "support/ExpectThrow.hpp"
#include "support/FutureWatch.hpp"
#include "support/ManualPublisher.hpp"

namespace connector::reactive_streams {
namespace {

using common::DataBuffer;
using testing::ManualPublisher;
using testing::watch;

using ByteFolder = ReducingSubscriber<DataBuffer, DataBuffer>;
using IntFolder = ReducingSubscriber<int, int>;

DataBuffer joinChunks(DataBuffer&& item, DataBuffer&& accumulator) {
  accumulator.append(item);
  return std::move(accumulator);
}

int sum(int&& item, int&& accumulator) { return accumulator + item; }

// A byte folder subscribed to a manual publisher that the test drives.
struct ByteStream {
  ByteStream() { publisher->subscribe(folder); }
  std::shared_ptr<ManualPublisher<DataBuffer>> publisher =
      std::make_shared<ManualPublisher<DataBuffer>>();
  std::shared_ptr<ByteFolder> folder = std::make_shared<ByteFolder>(joinChunks, DataBuffer());
};

// A null exception pointer thrown as an object: what get() surfaces from a failed
// state whose error went to the promises.
void expectNullExceptionPointer(const std::function<void()>& take) {
  try {
    take();
    ADD_FAILURE() << "did not throw";
  } catch (const std::exception_ptr& wrapped) {
    EXPECT_EQ(wrapped, nullptr);
  } catch (...) {
    ADD_FAILURE() << "threw something other than std::exception_ptr";
  }
}

TEST(ReducingSubscriber, StartsActive) {
  ByteFolder folder(joinChunks, DataBuffer("seed"));
  EXPECT_EQ(folder.currentState(), ReducerState::Active);
}

TEST(ReducingSubscriber, ReducerStateHasTheDocumentedValues) {
  EXPECT_EQ(static_cast<std::uint32_t>(ReducerState::Active), 0u);
  EXPECT_EQ(static_cast<std::uint32_t>(ReducerState::Completed), 1u);
  EXPECT_EQ(static_cast<std::uint32_t>(ReducerState::Cancelled), 2u);
  EXPECT_EQ(static_cast<std::uint32_t>(ReducerState::Failed), 3u);
  EXPECT_EQ(sizeof(ReducerState), 4u);
}

TEST(ReducingSubscriber, OnSubscribeRequestsUnboundedDemandOnce) {
  ByteStream stream;
  EXPECT_EQ(stream.publisher->subscription->requests.load(), 1);
  EXPECT_EQ(stream.publisher->subscription->lastRequest.load(), -1);
}

TEST(ReducingSubscriber, OnSubscribeWithAnExpiredWeakPointerThrowsAndKeepsTheStateActive) {
  auto folder = std::make_shared<ByteFolder>(joinChunks, DataBuffer());
  std::weak_ptr<Subscription> expired = std::make_shared<testing::CountingSubscription>();
  EXPECT_THROW_TEXT(folder->onSubscribe(expired), std::runtime_error, "Subscription went away!");
  EXPECT_EQ(folder->currentState(), ReducerState::Active);
  folder->onNext(DataBuffer("still"));
  folder->onComplete();
  EXPECT_EQ(folder->result().get().view(), "still");
}

TEST(ReducingSubscriber, OnSubscribeWithAnEmptyWeakPointerThrows) {
  auto folder = std::make_shared<ByteFolder>(joinChunks, DataBuffer());
  EXPECT_THROW_TEXT(folder->onSubscribe(std::weak_ptr<Subscription>()), std::runtime_error,
                    "Subscription went away!");
}

TEST(ReducingSubscriber, ItemsFoldInStreamOrderWithTheItemFirstAndTheAccumulatorSecond) {
  auto publisher = std::make_shared<ManualPublisher<std::string>>();
  auto folder = std::make_shared<ReducingSubscriber<std::string, std::string>>(
      [](std::string&& item, std::string&& accumulator) { return accumulator + "<" + item; },
      std::string("start"));
  publisher->subscribe(folder);
  publisher->next("a");
  publisher->next("b");
  publisher->complete();
  EXPECT_EQ(folder->result().get(), "start<a<b");
}

TEST(ReducingSubscriber, ResultAskedWhileActiveIsResolvedByOnComplete) {
  ByteStream stream;
  auto result = watch(stream.folder->result());
  auto completion = watch(stream.folder->completion());
  stream.publisher->next(DataBuffer("ab"));
  stream.publisher->next(DataBuffer("cd"));
  EXPECT_FALSE(result->resolved());
  EXPECT_FALSE(completion->resolved());
  stream.publisher->complete();
  ASSERT_TRUE(result->value.has_value());
  EXPECT_EQ(result->value->view(), "abcd");
  ASSERT_TRUE(completion->value.has_value());
  EXPECT_TRUE(*completion->value);
  EXPECT_EQ(stream.folder->currentState(), ReducerState::Completed);
}

TEST(ReducingSubscriber, StreamCompletingWithoutItemsYieldsTheInitialValue) {
  auto publisher = std::make_shared<ManualPublisher<DataBuffer>>();
  auto folder = std::make_shared<ByteFolder>(joinChunks, DataBuffer("seed"));
  publisher->subscribe(folder);
  publisher->complete();
  EXPECT_EQ(folder->result().get().view(), "seed");
  EXPECT_TRUE(folder->completion().get());
}

TEST(ReducingSubscriber, OnNextAndOnErrorAfterOnCompleteAreIgnored) {
  ByteStream stream;
  stream.publisher->next(DataBuffer("ab"));
  stream.publisher->complete();
  stream.publisher->next(DataBuffer("late"));
  stream.publisher->fail(std::make_exception_ptr(std::runtime_error("late")));
  stream.publisher->complete();
  EXPECT_EQ(stream.folder->currentState(), ReducerState::Completed);
  EXPECT_TRUE(stream.folder->completion().get());
  EXPECT_EQ(stream.folder->result().get().view(), "ab");
}

TEST(ReducingSubscriber, CancelAfterOnCompleteChangesNothing) {
  ByteStream stream;
  stream.publisher->next(DataBuffer("ab"));
  stream.publisher->complete();
  stream.folder->cancel();
  EXPECT_EQ(stream.publisher->subscription->cancels.load(), 0);
  EXPECT_EQ(stream.folder->currentState(), ReducerState::Completed);
  EXPECT_TRUE(stream.folder->completion().get());
  EXPECT_EQ(stream.folder->result().get().view(), "ab");
}

TEST(ReducingSubscriber, ReducerThrowingOnTheThirdItemCancelsAndKeepsTheFoldOfTheFirstTwo) {
  auto publisher = std::make_shared<ManualPublisher<int>>();
  int calls = 0;
  auto folder = std::make_shared<IntFolder>(
      [&calls](int&& item, int&& accumulator) {
        if (++calls == 3) {
          throw std::runtime_error("third item refused");
        }
        return accumulator + item;
      },
      100);
  publisher->subscribe(folder);
  auto result = watch(folder->result());
  auto completion = watch(folder->completion());
  publisher->next(1);
  publisher->next(2);
  EXPECT_NO_THROW(publisher->next(4));
  EXPECT_EQ(folder->currentState(), ReducerState::Cancelled);
  EXPECT_EQ(publisher->subscription->cancels.load(), 1);
  ASSERT_TRUE(result->value.has_value());
  EXPECT_EQ(*result->value, 103);
  ASSERT_TRUE(completion->value.has_value());
  EXPECT_FALSE(*completion->value);
  publisher->next(8);  // ignored: the reducer is not called again
  publisher->complete();
  EXPECT_EQ(calls, 3);
  EXPECT_FALSE(folder->completion().get());
}

TEST(ReducingSubscriber, EmptyReducerTurnsTheFirstItemIntoCancellation) {
  auto publisher = std::make_shared<ManualPublisher<DataBuffer>>();
  auto folder = std::make_shared<ByteFolder>(ByteFolder::Reducer(), DataBuffer("seed"));
  publisher->subscribe(folder);
  EXPECT_NO_THROW(publisher->next(DataBuffer("x")));
  EXPECT_EQ(folder->currentState(), ReducerState::Cancelled);
  EXPECT_EQ(publisher->subscription->cancels.load(), 1);
  EXPECT_EQ(folder->result().get().view(), "seed");
  EXPECT_FALSE(folder->completion().get());
}

TEST(ReducingSubscriber, OnErrorBeforeResultWasAskedFailsResultAndCompletionWithTheError) {
  ByteStream stream;
  stream.publisher->next(DataBuffer("ab"));
  stream.publisher->fail(std::make_exception_ptr(std::runtime_error("stream broke")));
  EXPECT_EQ(stream.folder->currentState(), ReducerState::Failed);
  // The future holds a std::exception_ptr wrapping the error; get() surfaces the error.
  EXPECT_THROW_TEXT(stream.folder->result().get(), std::runtime_error, "stream broke");
  EXPECT_THROW_TEXT(stream.folder->completion().get(), std::runtime_error, "stream broke");
  // The error stays in the subscriber: asking again fails the same way.
  EXPECT_THROW_TEXT(stream.folder->result().get(), std::runtime_error, "stream broke");
}

TEST(ReducingSubscriber, OnErrorKeepsTheErrorTypeThroughTheWrapping) {
  ByteStream stream;
  stream.publisher->fail(std::make_exception_ptr(std::invalid_argument("bad bytes")));
  EXPECT_THROW_TEXT(stream.folder->completion().get(), std::invalid_argument, "bad bytes");
}

TEST(ReducingSubscriber, CompletionAskedFirstThenOnErrorThenResultFailsWithANullPointer) {
  ByteStream stream;
  Future<bool> completion = stream.folder->completion();
  stream.publisher->fail(std::make_exception_ptr(std::runtime_error("stream broke")));
  EXPECT_THROW_TEXT(completion.get(), std::runtime_error, "stream broke");
  expectNullExceptionPointer([&] { stream.folder->result().get(); });
  expectNullExceptionPointer([&] { stream.folder->completion().get(); });
}

TEST(ReducingSubscriber, ResultAskedFirstThenOnErrorFailsThatResultWithTheError) {
  ByteStream stream;
  Future<DataBuffer> result = stream.folder->result();
  stream.publisher->fail(std::make_exception_ptr(std::runtime_error("stream broke")));
  EXPECT_THROW_TEXT(result.get(), std::runtime_error, "stream broke");
  expectNullExceptionPointer([&] { stream.folder->completion().get(); });
}

TEST(ReducingSubscriber, NullErrorBeforeResultWasAskedFailsResultAndCompletionWithANullPointer) {
  ByteStream stream;
  stream.publisher->next(DataBuffer("ab"));
  EXPECT_NO_THROW(stream.publisher->fail(nullptr));
  EXPECT_EQ(stream.folder->currentState(), ReducerState::Failed);
  expectNullExceptionPointer([&] { stream.folder->result().get(); });
  expectNullExceptionPointer([&] { stream.folder->completion().get(); });
}

TEST(ReducingSubscriber, NullErrorAfterResultAndCompletionWereAskedFailsThemWithANullPointer) {
  ByteStream stream;
  Future<DataBuffer> result = stream.folder->result();
  Future<bool> completion = stream.folder->completion();
  stream.publisher->next(DataBuffer("ab"));
  EXPECT_NO_THROW(stream.publisher->fail(nullptr));
  EXPECT_EQ(stream.folder->currentState(), ReducerState::Failed);
  expectNullExceptionPointer([&] { result.get(); });
  expectNullExceptionPointer([&] { completion.get(); });
  // And later askers see the same.
  expectNullExceptionPointer([&] { stream.folder->result().get(); });
}

TEST(ReducingSubscriber, OnNextAndOnCompleteAfterOnErrorAreIgnored) {
  ByteStream stream;
  auto completion = watch(stream.folder->completion());
  stream.publisher->fail(std::make_exception_ptr(std::runtime_error("first")));
  stream.publisher->fail(std::make_exception_ptr(std::runtime_error("second")));
  stream.publisher->next(DataBuffer("late"));
  stream.publisher->complete();
  EXPECT_EQ(stream.folder->currentState(), ReducerState::Failed);
  ASSERT_NE(completion->error, nullptr);
  EXPECT_THROW_TEXT(std::rethrow_exception(completion->error), std::runtime_error, "first");
}

TEST(ReducingSubscriber, ResultTwiceWhileActiveAbandonsTheFirstFuture) {
  ByteStream stream;
  Future<DataBuffer> first = stream.folder->result();
  Future<DataBuffer> second = stream.folder->result();
  EXPECT_THROW_TEXT(first.get(), std::runtime_error,
                    "Promise destroyed before it provided a value.");
  stream.publisher->next(DataBuffer("ab"));
  stream.publisher->complete();
  EXPECT_EQ(second.get().view(), "ab");
}

TEST(ReducingSubscriber, CompletionTwiceWhileActiveAbandonsTheFirstFuture) {
  ByteStream stream;
  Future<bool> first = stream.folder->completion();
  Future<bool> second = stream.folder->completion();
  EXPECT_THROW_TEXT(first.get(), std::runtime_error,
                    "Promise destroyed before it provided a value.");
  stream.publisher->complete();
  EXPECT_TRUE(second.get());
}

TEST(ReducingSubscriber, ResultTwiceAfterCompletionYieldsAnEmptyBufferTheSecondTime) {
  ByteStream stream;
  stream.publisher->next(DataBuffer("ab"));
  stream.publisher->complete();
  EXPECT_EQ(stream.folder->result().get().view(), "ab");
  DataBuffer second = stream.folder->result().get();
  EXPECT_EQ(second.size, 0u);
  EXPECT_EQ(second.data, nullptr);
}

TEST(ReducingSubscriber, CancelResolvesPendingFuturesWithTheFoldSoFarAndFalse) {
  ByteStream stream;
  auto result = watch(stream.folder->result());
  auto completion = watch(stream.folder->completion());
  stream.publisher->next(DataBuffer("ab"));
  stream.folder->cancel();
  EXPECT_EQ(stream.folder->currentState(), ReducerState::Cancelled);
  EXPECT_EQ(stream.publisher->subscription->cancels.load(), 1);
  ASSERT_TRUE(result->value.has_value());
  EXPECT_EQ(result->value->view(), "ab");
  ASSERT_TRUE(completion->value.has_value());
  EXPECT_FALSE(*completion->value);
  stream.folder->cancel();
  EXPECT_EQ(stream.publisher->subscription->cancels.load(), 1);
  stream.publisher->next(DataBuffer("late"));
  stream.publisher->complete();
  EXPECT_FALSE(stream.folder->completion().get());
}

TEST(ReducingSubscriber, CancelBeforeResultWasAskedLeavesTheFoldForResult) {
  ByteStream stream;
  stream.publisher->next(DataBuffer("ab"));
  stream.folder->cancel();
  EXPECT_EQ(stream.folder->result().get().view(), "ab");
  EXPECT_FALSE(stream.folder->completion().get());
}

TEST(ReducingSubscriber, CancelWithoutASubscriptionStillResolves) {
  auto folder = std::make_shared<ByteFolder>(joinChunks, DataBuffer("seed"));
  auto result = watch(folder->result());
  folder->cancel();
  ASSERT_TRUE(result->value.has_value());
  EXPECT_EQ(result->value->view(), "seed");
}

// A subscription that calls back into its subscriber: it would deadlock if the
// subscriber held its mutex while calling it.
class ReenteringSubscription : public testing::CountingSubscription {
 public:
  void request(std::int64_t n) override {
    testing::CountingSubscription::request(n);
    observed.push_back(folder->currentState());
  }
  void cancel() override {
    testing::CountingSubscription::cancel();
    observed.push_back(folder->currentState());
  }
  ByteFolder* folder = nullptr;
  std::vector<ReducerState> observed;
};

TEST(ReducingSubscriber, SubscriptionIsCalledWithoutTheSubscribersLockHeld) {
  auto folder = std::make_shared<ByteFolder>(joinChunks, DataBuffer());
  auto subscription = std::make_shared<ReenteringSubscription>();
  subscription->folder = folder.get();
  folder->onSubscribe(subscription);
  folder->cancel();
  EXPECT_EQ(subscription->observed,
            (std::vector<ReducerState>{ReducerState::Active, ReducerState::Cancelled}));
}

TEST(ReducingSubscriber, OnSubscribeStoresAndRequestsEvenWhenNoLongerActive) {
  ByteStream stream;
  stream.publisher->complete();
  auto other = std::make_shared<testing::CountingSubscription>();
  stream.folder->onSubscribe(other);
  EXPECT_EQ(other->requests.load(), 1);
  EXPECT_EQ(other->lastRequest.load(), -1);
  EXPECT_EQ(stream.folder->currentState(), ReducerState::Completed);
}

TEST(ReducingSubscriber, DestroyingAnActiveSubscriberCancelsItAndResolvesItsFutures) {
  auto subscription = std::make_shared<testing::CountingSubscription>();
  std::shared_ptr<testing::FutureRecord<DataBuffer>> result;
  std::shared_ptr<testing::FutureRecord<bool>> completion;
  {
    auto folder = std::make_shared<ByteFolder>(joinChunks, DataBuffer());
    folder->onSubscribe(subscription);
    folder->onNext(DataBuffer("ab"));
    result = watch(folder->result());
    completion = watch(folder->completion());
    EXPECT_FALSE(result->resolved());
  }
  EXPECT_EQ(subscription->cancels.load(), 1);
  ASSERT_TRUE(result->value.has_value());
  EXPECT_EQ(result->value->view(), "ab");
  ASSERT_TRUE(completion->value.has_value());
  EXPECT_FALSE(*completion->value);
}

TEST(ReducingSubscriber, DestroyingAFinishedSubscriberDoesNotCancel) {
  auto subscription = std::make_shared<testing::CountingSubscription>();
  {
    auto folder = std::make_shared<ByteFolder>(joinChunks, DataBuffer());
    folder->onSubscribe(subscription);
    folder->onComplete();
  }
  EXPECT_EQ(subscription->cancels.load(), 0);
}

TEST(ReducingSubscriber, DestructionReleasesWhatTheReducerCaptured) {
  auto token = std::make_shared<int>(7);
  {
    IntFolder folder([token](int&& item, int&& accumulator) { return item + accumulator; }, 0);
    EXPECT_EQ(token.use_count(), 2);
  }
  EXPECT_EQ(token.use_count(), 1);
}

TEST(Reduce, NullPublisherYieldsTheInitialValueAsSoonAsReduceReturns) {
  auto result =
      watch(reduce(std::shared_ptr<PublisherAPI<DataBuffer>>(), joinChunks, DataBuffer("seed")));
  ASSERT_TRUE(result->value.has_value());
  EXPECT_EQ(result->value->view(), "seed");
}

TEST(Reduce, OneShotPublisherIsFoldedBeforeReduceReturns) {
  std::shared_ptr<PublisherAPI<int>> publisher = std::make_shared<OneShotPublisher<int>>(41);
  auto result = watch(reduce(publisher, sum, 1));
  ASSERT_TRUE(result->value.has_value());
  EXPECT_EQ(*result->value, 42);
}

TEST(Reduce, PublisherWithASubscriberAlreadyThrowsOnlyOneSubscriptionAllowed) {
  std::shared_ptr<PublisherAPI<int>> publisher = std::make_shared<OneShotPublisher<int>>(41);
  Future<int> first = reduce(publisher, sum, 1);
  EXPECT_THROW_TEXT(reduce(publisher, sum, 1), std::invalid_argument,
                    "Only one subscription allowed.");
  EXPECT_EQ(first.get(), 42);
}

// Hands its subscriber a subscription that is already gone.
class ExpiredSubscriptionPublisher : public PublisherAPI<int> {
 public:
  Future<bool> completion() override { return makeReadyFuture<bool>(true); }
  void subscribe(std::shared_ptr<SubscriberAPI<int>> s) override {
    std::weak_ptr<Subscription> gone = std::make_shared<testing::CountingSubscription>();
    s->onSubscribe(gone);
  }
};

TEST(Reduce, SubscriptionThatWentAwayPropagatesOutOfReduce) {
  std::shared_ptr<PublisherAPI<int>> publisher = std::make_shared<ExpiredSubscriptionPublisher>();
  EXPECT_THROW_TEXT(reduce(publisher, sum, 0), std::runtime_error, "Subscription went away!");
}

}  // namespace
}  // namespace connector::reactive_streams

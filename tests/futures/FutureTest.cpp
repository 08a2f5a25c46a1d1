#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <connector/json.hpp>

#include "FutureValues.hpp"
#include "support/ExpectThrow.hpp"

namespace connector {
namespace {

using common::DataBuffer;
using testing::FutureValue;

constexpr const char* kAlreadyRetrieved =
    "Future already returned it's value or has an associated continuation.";

// An error type of the producer's own, to see that it travels unchanged.
struct ProducerError : std::runtime_error {
  explicit ProducerError(int code) : std::runtime_error("producer failed"), code(code) {}
  int code;
};

template <typename T>
class FutureOfEachType : public ::testing::Test {};
TYPED_TEST_SUITE(FutureOfEachType, testing::FutureValueTypes);

TYPED_TEST(FutureOfEachType, GetTwiceThrowsAlreadyRetrieved) {
  FutureValue<TypeParam> sample;
  Promise<TypeParam> promise;
  Future<TypeParam> future = promise.getFuture();
  promise.setValue(sample.make());
  sample.expectSame(future.get());
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, kAlreadyRetrieved);
}

TYPED_TEST(FutureOfEachType, CancelThenSetValueIsDroppedAndGetReportsCancellation) {
  FutureValue<TypeParam> sample;
  Promise<TypeParam> promise;
  Future<TypeParam> future = promise.getFuture();
  future.cancel();
  EXPECT_NO_THROW(promise.setValue(sample.make()));
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, "Future has been cancelled.");
}

TYPED_TEST(FutureOfEachType, ThenOnAResolvedStateRunsAtOnceWithTheValue) {
  FutureValue<TypeParam> sample;
  Promise<TypeParam> promise;
  Future<TypeParam> future = promise.getFuture();
  promise.setValue(sample.make());
  bool ran = false;
  future.then([&](Future<TypeParam> ready) {
    ran = true;
    sample.expectSame(ready.get());
  });
  EXPECT_TRUE(ran);
}

TEST(Future, DefaultFutureIsInvalid) {
  Future<bool> future;
  EXPECT_FALSE(future.valid());
}

TEST(Future, GetOnADefaultFutureThrowsStateInvalid) {
  Future<bool> future;
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, "Future state isn't valid!");
}

TEST(Future, CancelOnADefaultFutureThrowsStateInvalid) {
  Future<bool> future;
  EXPECT_THROW_TEXT(future.cancel(), std::runtime_error, "Future state isn't valid!");
}

TEST(Future, ThenOnADefaultFutureThrowsStateInvalid) {
  Future<bool> future;
  EXPECT_THROW_TEXT(future.then([](Future<bool>) {}), std::runtime_error,
                    "Future state isn't valid!");
}

TEST(Future, MovedFromFutureIsInvalidAndTheTargetGetsTheResult) {
  Promise<bool> promise;
  Future<bool> source = promise.getFuture();
  Future<bool> target(std::move(source));
  EXPECT_FALSE(source.valid());  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(target.valid());
  promise.setValue(true);
  EXPECT_TRUE(target.get());
}

TEST(Future, GetOnAMovedFromFutureThrowsStateInvalid) {
  Promise<bool> promise;
  Future<bool> source = promise.getFuture();
  Future<bool> target(std::move(source));
  promise.setValue(true);
  EXPECT_THROW_TEXT(source.get(), std::runtime_error,  // NOLINT(bugprone-use-after-move)
                    "Future state isn't valid!");
  EXPECT_TRUE(target.get());
}

TEST(Future, CancelOnAMovedFromFutureThrowsStateInvalidAndLeavesTheState) {
  Promise<bool> promise;
  Future<bool> source = promise.getFuture();
  Future<bool> target(std::move(source));
  EXPECT_THROW_TEXT(source.cancel(), std::runtime_error,  // NOLINT(bugprone-use-after-move)
                    "Future state isn't valid!");
  promise.setValue(true);
  EXPECT_TRUE(target.get());
}

TEST(Future, ThenOnAMovedFromFutureThrowsStateInvalid) {
  Promise<bool> promise;
  Future<bool> source = promise.getFuture();
  Future<bool> target = std::move(source);
  EXPECT_THROW_TEXT(source.then([](Future<bool>) {}),  // NOLINT(bugprone-use-after-move)
                    std::runtime_error, "Future state isn't valid!");
}

TEST(Future, MoveAssignmentReleasesOnlyTheTargetsShare) {
  Promise<bool> first;
  Promise<bool> second;
  Future<bool> target = first.getFuture();
  target = second.getFuture();
  // The first state lives on through its promise.
  EXPECT_NO_THROW(first.setValue(true));
  second.setValue(false);
  EXPECT_FALSE(target.get());
}

TEST(Future, SelfMoveAssignmentKeepsTheFuture) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  Future<bool>& alias = future;
  future = std::move(alias);
  EXPECT_TRUE(future.valid());
  promise.setValue(true);
  EXPECT_TRUE(future.get());
}

TEST(Future, DestroyingTheFutureLeavesThePromiseUsable) {
  Promise<bool> promise;
  { Future<bool> future = promise.getFuture(); }
  EXPECT_NO_THROW(promise.setValue(true));
}

TEST(Future, GetAfterAnErrorTwiceThrowsAlreadyRetrieved) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setException(std::make_exception_ptr(std::runtime_error("once")));
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, "once");
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, kAlreadyRetrieved);
}

TEST(Future, PlainStoredExceptionSurfacesUnchanged) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  std::exception_ptr stored = std::make_exception_ptr(ProducerError(7));
  const void* original = nullptr;
  try {
    std::rethrow_exception(stored);
  } catch (const ProducerError& error) {
    original = &error;
  }
  promise.setException(stored);
  try {
    future.get();
    ADD_FAILURE() << "get() did not throw";
  } catch (const ProducerError& error) {
    EXPECT_EQ(&error, original);  // the very object, not a copy or a slice
    EXPECT_EQ(error.code, 7);
    EXPECT_STREQ(error.what(), "producer failed");
  }
}

TEST(Future, StoredExceptionPointerSurfacesAsTheInnerException) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  std::exception_ptr inner = std::make_exception_ptr(std::invalid_argument("inner text"));
  promise.setException(std::make_exception_ptr(inner));
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument, "inner text");
}

TEST(Future, StoredExceptionPointerOfACaughtExceptionSurfacesAsThatException) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  try {
    throw ProducerError(3);
  } catch (...) {
    promise.setException(std::make_exception_ptr(std::current_exception()));
  }
  try {
    future.get();
    ADD_FAILURE() << "get() did not throw";
  } catch (const ProducerError& error) {
    EXPECT_EQ(error.code, 3);
  }
}

TEST(Future, StoredNullExceptionPointerSurfacesAsTheNullWrapper) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setException(std::make_exception_ptr(std::exception_ptr()));
  bool caught = false;
  try {
    future.get();
  } catch (const std::exception_ptr& wrapper) {
    caught = true;
    EXPECT_FALSE(wrapper);
  } catch (...) {
    ADD_FAILURE() << "get() threw something other than a std::exception_ptr";
  }
  EXPECT_TRUE(caught);
}

TEST(Future, OnlyOneLevelOfExceptionPointerIsUnwrapped) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  std::exception_ptr innermost = std::make_exception_ptr(std::runtime_error("deep"));
  promise.setException(std::make_exception_ptr(std::make_exception_ptr(innermost)));
  bool caught = false;
  try {
    future.get();
  } catch (const std::exception_ptr& middle) {
    caught = true;
    EXPECT_EQ(middle, innermost);
  } catch (...) {
    ADD_FAILURE() << "get() threw something other than a std::exception_ptr";
  }
  EXPECT_TRUE(caught);
}

TEST(Future, CancelAfterResolutionLeavesTheValue) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setValue(true);
  future.cancel();
  EXPECT_TRUE(future.get());
}

TEST(Future, CancelAfterFailureLeavesTheError) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setException(std::make_exception_ptr(std::invalid_argument("kept")));
  future.cancel();
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument, "kept");
}

TEST(Future, CancelTwiceIsHarmless) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  future.cancel();
  EXPECT_NO_THROW(future.cancel());
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, "Future has been cancelled.");
}

TEST(Future, CancelAfterGetReturnedKeepsTheFutureValid) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setValue(true);
  EXPECT_TRUE(future.get());
  EXPECT_NO_THROW(future.cancel());
  EXPECT_TRUE(future.valid());
}

TEST(Future, CancelledStateAbandonedByItsPromiseStaysCancelled) {
  Future<bool> future;
  {
    Promise<bool> promise;
    future = promise.getFuture();
    future.cancel();
  }
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, "Future has been cancelled.");
}

TEST(Future, ThenOnAResolvedStateRunsAtOnceOnTheCallingThread) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setValue(true);
  std::thread::id ranOn;
  future.then([&](Future<bool> ready) {
    ranOn = std::this_thread::get_id();
    EXPECT_TRUE(ready.valid());
    EXPECT_TRUE(ready.get());
  });
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(Future, ThenOnAFailedStateRunsAtOnceAndItsFutureRethrows) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setException(std::make_exception_ptr(std::invalid_argument("refused")));
  bool ran = false;
  future.then([&](Future<bool> ready) {
    ran = true;
    EXPECT_THROW_TEXT(ready.get(), std::invalid_argument, "refused");
  });
  EXPECT_TRUE(ran);
}

TEST(Future, ThenOnAPendingStateWaitsForTheResolution) {
  Promise<DataBuffer> promise;
  Future<DataBuffer> future = promise.getFuture();
  std::string seen;
  future.then([&](Future<DataBuffer> ready) { seen = std::string(ready.get().view()); });
  EXPECT_EQ(seen, "");
  promise.setValue(DataBuffer(std::string_view("later")));
  EXPECT_EQ(seen, "later");  // ran inside setValue, before it returned
}

TEST(Future, ContinuationTakesTheResultThroughAFreshFuture) {
  Promise<std::unique_ptr<Message>> promise;
  Future<std::unique_ptr<Message>> future = promise.getFuture();
  Future<std::unique_ptr<Message>> fresh;
  future.then([&](Future<std::unique_ptr<Message>> ready) { fresh = std::move(ready); });
  auto message = std::make_unique<Message>();
  const Message* sent = message.get();
  promise.setValue(std::move(message));
  // The fresh future may be kept and read after the continuation has returned.
  ASSERT_TRUE(fresh.valid());
  EXPECT_EQ(fresh.get().get(), sent);
  EXPECT_THROW_TEXT(fresh.get(), std::runtime_error, kAlreadyRetrieved);
}

TEST(Future, GetAfterThenOnAPendingStateReportsTheContinuation) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  future.then([](Future<bool>) {});
  EXPECT_TRUE(future.valid());
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, kAlreadyRetrieved);
}

TEST(Future, GetAfterThenOnAResolvedStateReportsTheContinuation) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setValue(true);
  future.then([](Future<bool> ready) { EXPECT_TRUE(ready.get()); });
  EXPECT_TRUE(future.valid());
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, kAlreadyRetrieved);
}

TEST(Future, GetAfterAContinuationThatLeftTheResultStillReportsTheContinuation) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  future.then([](Future<bool>) {});  // does not take the result
  promise.setValue(true);
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, kAlreadyRetrieved);
}

TEST(Future, ThenTwiceThrowsAlreadyRetrieved) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  int runs = 0;
  future.then([&runs](Future<bool>) { ++runs; });
  EXPECT_THROW_TEXT(future.then([&runs](Future<bool>) { runs += 100; }), std::runtime_error,
                    kAlreadyRetrieved);
  promise.setValue(true);
  EXPECT_EQ(runs, 1);
}

TEST(Future, ThenAfterGetThrowsAlreadyRetrieved) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setValue(true);
  EXPECT_TRUE(future.get());
  bool ran = false;
  EXPECT_THROW_TEXT(future.then([&ran](Future<bool>) { ran = true; }), std::runtime_error,
                    kAlreadyRetrieved);
  EXPECT_FALSE(ran);
}

TEST(Future, ThenWithAnEmptyFunctionIsRefused) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  EXPECT_THROW_TEXT(future.then(nullptr), std::invalid_argument,
                    "Future continuation must not be empty.");
  // Nothing was attached: the result is still there for get().
  promise.setValue(true);
  EXPECT_TRUE(future.get());
}

TEST(Future, ThenOnACancelledStateNeverRunsTheContinuation) {
  bool ran = false;
  auto alive = std::make_shared<int>(0);
  std::weak_ptr<int> watch = alive;
  {
    Promise<bool> promise;
    Future<bool> future = promise.getFuture();
    future.cancel();
    future.then([&ran, alive = std::move(alive)](Future<bool>) { ran = true; });
    promise.setValue(true);
  }  // the state dies here with the continuation still attached
  EXPECT_FALSE(ran);
  EXPECT_TRUE(watch.expired());  // and the continuation was destroyed with it
}

TEST(Future, CancelAfterThenDropsALaterValueAndTheContinuationNeverRuns) {
  bool ran = false;
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  future.then([&ran](Future<bool>) { ran = true; });
  future.cancel();
  EXPECT_NO_THROW(promise.setValue(true));
  EXPECT_FALSE(ran);
}

TEST(Future, ContinuationThatThrowsLetsTheErrorOutOfSetValueAndTheStateStaysResolved) {
  auto alive = std::make_shared<int>(0);
  std::weak_ptr<int> watch = alive;
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  future.then([alive = std::move(alive)](Future<bool>) -> void {
    throw std::logic_error("continuation failed");
  });
  EXPECT_THROW_TEXT(promise.setValue(true), std::logic_error, "continuation failed");
  EXPECT_TRUE(watch.expired());  // destroyed before the error left
  EXPECT_THROW_TEXT(promise.setValue(false), std::runtime_error, "Promise already resolved.");
  EXPECT_TRUE(future.valid());
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, kAlreadyRetrieved);
}

TEST(Future, ContinuationThatThrowsOnAResolvedStateLetsTheErrorOutOfThen) {
  auto alive = std::make_shared<int>(0);
  std::weak_ptr<int> watch = alive;
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setValue(true);
  EXPECT_THROW_TEXT(future.then([alive = std::move(alive)](Future<bool>) -> void {
    throw std::logic_error("continuation failed");
  }),
                    std::logic_error, "continuation failed");
  EXPECT_TRUE(watch.expired());  // destroyed before the error left
  // The result went to the continuation: this future reports it, whatever it did.
  EXPECT_TRUE(future.valid());
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, kAlreadyRetrieved);
  EXPECT_THROW_TEXT(future.then([](Future<bool>) {}), std::runtime_error, kAlreadyRetrieved);
}

TEST(Future, ContinuationThatThrowsOnAFailedStateLeavesGetReportingTheContinuation) {
  Future<bool> future =
      makeFailedFuture<bool>(std::make_exception_ptr(std::runtime_error("no route")));
  EXPECT_THROW_TEXT(
      future.then([](Future<bool>) -> void { throw std::logic_error("continuation failed"); }),
      std::logic_error, "continuation failed");
  EXPECT_TRUE(future.valid());
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, kAlreadyRetrieved);
}

TEST(Future, ContinuationMayAttachAnotherContinuationThroughItsFreshFuture) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  int step = 0;
  future.then([&step](Future<bool> first) {
    step = 1;
    first.then([&step](Future<bool> second) {
      EXPECT_EQ(step, 1);
      step = 2;
      EXPECT_TRUE(second.get());
    });
  });
  promise.setValue(true);
  EXPECT_EQ(step, 2);
}

}  // namespace
}  // namespace connector

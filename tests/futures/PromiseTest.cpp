#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <connector/json.hpp>

#include "FutureValues.hpp"
#include "support/ExpectThrow.hpp"

namespace connector {
namespace {

using common::DataBuffer;
using testing::FutureValue;

// Every result type behaves the same way.
template <typename T>
class PromiseOfEachType : public ::testing::Test {};
TYPED_TEST_SUITE(PromiseOfEachType, testing::FutureValueTypes);

TYPED_TEST(PromiseOfEachType, ValueReachesTheFutureMovedNotCopied) {
  FutureValue<TypeParam> sample;
  Promise<TypeParam> promise;
  Future<TypeParam> future = promise.getFuture();
  promise.setValue(sample.make());
  sample.expectSame(future.get());
}

TYPED_TEST(PromiseOfEachType, ValueSetBeforeTheFutureIsTakenIsKept) {
  FutureValue<TypeParam> sample;
  Promise<TypeParam> promise;
  promise.setValue(sample.make());
  Future<TypeParam> future = promise.getFuture();
  sample.expectSame(future.get());
}

TYPED_TEST(PromiseOfEachType, DestroyedUnresolvedFailsTheFuture) {
  Future<TypeParam> future;
  {
    Promise<TypeParam> promise;
    future = promise.getFuture();
  }
  EXPECT_THROW_TEXT(future.get(), std::runtime_error,
                    "Promise destroyed before it provided a value.");
}

TYPED_TEST(PromiseOfEachType, SecondResolutionThrowsAndKeepsTheFirstValue) {
  FutureValue<TypeParam> sample;
  FutureValue<TypeParam> other;
  Promise<TypeParam> promise;
  Future<TypeParam> future = promise.getFuture();
  promise.setValue(sample.make());
  EXPECT_THROW_TEXT(promise.setValue(other.make()), std::runtime_error,
                    "Promise already resolved.");
  EXPECT_THROW_TEXT(promise.setException(std::make_exception_ptr(std::logic_error("late"))),
                    std::runtime_error, "Promise already resolved.");
  sample.expectSame(future.get());
}

TEST(Promise, FreshPromiseIsValid) {
  Promise<bool> promise;
  EXPECT_TRUE(promise.valid());
}

TEST(Promise, GetFutureReturnsAValidFuture) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  EXPECT_TRUE(future.valid());
  EXPECT_TRUE(promise.valid());
}

TEST(Promise, GetFutureTwiceThrowsAlreadyReturned) {
  Promise<bool> promise;
  Future<bool> first = promise.getFuture();
  EXPECT_THROW_TEXT(promise.getFuture(), std::runtime_error, "Promise already returned a future.");
  promise.setValue(true);
  EXPECT_TRUE(first.get());
}

TEST(Promise, GetFutureTwiceThrowsEvenAfterTheFirstFutureIsGone) {
  Promise<bool> promise;
  { Future<bool> first = promise.getFuture(); }
  EXPECT_THROW_TEXT(promise.getFuture(), std::runtime_error, "Promise already returned a future.");
}

TEST(Promise, SetExceptionSurfacesFromGetWithItsTypeAndText) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setException(std::make_exception_ptr(std::invalid_argument("bad request")));
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument, "bad request");
}

TEST(Promise, NullExceptionIsRefusedAndThePromiseStaysUsable) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  EXPECT_THROW_TEXT(promise.setException(nullptr), std::invalid_argument,
                    "Promise exception must not be null.");
  EXPECT_TRUE(promise.valid());
  promise.setException(std::make_exception_ptr(std::invalid_argument("real error")));
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument, "real error");
}

TEST(Promise, NullExceptionLeavesAWaitingContinuationUnrun) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  int runs = 0;
  future.then([&runs](Future<bool> ready) {
    ++runs;
    EXPECT_TRUE(ready.get());
  });
  EXPECT_THROW_TEXT(promise.setException(std::exception_ptr()), std::invalid_argument,
                    "Promise exception must not be null.");
  EXPECT_EQ(runs, 0);
  promise.setValue(true);
  EXPECT_EQ(runs, 1);
}

TEST(Promise, NullExceptionIsRefusedEvenOnAResolvedState) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setValue(true);
  EXPECT_THROW_TEXT(promise.setException(nullptr), std::invalid_argument,
                    "Promise exception must not be null.");
  EXPECT_TRUE(future.get());
}

TEST(Promise, NullExceptionOnAMovedFromPromiseReportsTheInvalidStateFirst) {
  Promise<bool> promise;
  Promise<bool> taken = std::move(promise);
  EXPECT_THROW_TEXT(promise.setException(nullptr),
                    std::runtime_error,  // NOLINT(bugprone-use-after-move)
                    "Promise state isn't valid!");
}

TEST(Promise, SecondResolutionAfterAnErrorThrowsAndKeepsTheError) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setException(std::make_exception_ptr(std::invalid_argument("first")));
  EXPECT_THROW_TEXT(promise.setValue(true), std::runtime_error, "Promise already resolved.");
  EXPECT_THROW_TEXT(promise.setException(std::make_exception_ptr(std::runtime_error("second"))),
                    std::runtime_error, "Promise already resolved.");
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument, "first");
}

TEST(Promise, SecondResolutionAfterTheValueWasTakenStillThrows) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  promise.setValue(false);
  EXPECT_FALSE(future.get());
  EXPECT_THROW_TEXT(promise.setValue(true), std::runtime_error, "Promise already resolved.");
}

TEST(Promise, SetValueMovesTheValueOutOfTheArgument) {
  Promise<DataBuffer> promise;
  DataBuffer bytes(std::string_view("abc"));
  promise.setValue(std::move(bytes));
  EXPECT_EQ(bytes.data, nullptr);  // NOLINT(bugprone-use-after-move): the move is the point
  EXPECT_EQ(bytes.size, 0u);
  EXPECT_EQ(promise.getFuture().get().view(), "abc");
}

TEST(Promise, ResolvingACancelledStateDropsTheValueSilently) {
  Promise<DataBuffer> promise;
  Future<DataBuffer> future = promise.getFuture();
  future.cancel();
  EXPECT_NO_THROW(promise.setValue(DataBuffer(std::string_view("dropped"))));
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, "Future has been cancelled.");
}

TEST(Promise, FailingACancelledStateDropsTheErrorSilently) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  future.cancel();
  EXPECT_NO_THROW(promise.setException(std::make_exception_ptr(std::runtime_error("dropped"))));
  EXPECT_NO_THROW(promise.setValue(true));
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, "Future has been cancelled.");
}

TEST(Promise, DestroyingThePromiseOfACancelledStateLeavesItCancelled) {
  Future<bool> future;
  {
    Promise<bool> promise;
    future = promise.getFuture();
    future.cancel();
  }
  EXPECT_THROW_TEXT(future.get(), std::runtime_error, "Future has been cancelled.");
}

TEST(Promise, DestroyedAfterResolvingKeepsTheValue) {
  Future<bool> future;
  {
    Promise<bool> promise;
    future = promise.getFuture();
    promise.setValue(true);
  }
  EXPECT_TRUE(future.get());
}

TEST(Promise, DestroyedAfterFailingKeepsTheError) {
  Future<bool> future;
  {
    Promise<bool> promise;
    future = promise.getFuture();
    promise.setException(std::make_exception_ptr(std::invalid_argument("kept")));
  }
  EXPECT_THROW_TEXT(future.get(), std::invalid_argument, "kept");
}

TEST(Promise, MovedFromPromiseIsInvalid) {
  Promise<bool> source;
  Promise<bool> target(std::move(source));
  EXPECT_FALSE(source.valid());  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(target.valid());
}

TEST(Promise, GetFutureOnAMovedFromPromiseThrowsStateInvalid) {
  Promise<bool> source;
  Promise<bool> target(std::move(source));
  EXPECT_THROW_TEXT(source.getFuture(), std::runtime_error,  // NOLINT(bugprone-use-after-move)
                    "Promise state isn't valid!");
}

TEST(Promise, SetValueOnAMovedFromPromiseThrowsStateInvalid) {
  Promise<bool> source;
  Promise<bool> target(std::move(source));
  EXPECT_THROW_TEXT(source.setValue(true), std::runtime_error,  // NOLINT(bugprone-use-after-move)
                    "Promise state isn't valid!");
}

TEST(Promise, SetExceptionOnAMovedFromPromiseThrowsStateInvalid) {
  Promise<bool> source;
  Promise<bool> target(std::move(source));
  EXPECT_THROW_TEXT(
      source.setException(std::make_exception_ptr(std::runtime_error("x"))),  // NOLINT
      std::runtime_error, "Promise state isn't valid!");
}

TEST(Promise, MoveConstructionCarriesTheStateAndItsFuture) {
  Promise<bool> source;
  Future<bool> future = source.getFuture();
  Promise<bool> target(std::move(source));
  EXPECT_THROW_TEXT(target.getFuture(), std::runtime_error, "Promise already returned a future.");
  target.setValue(true);
  EXPECT_TRUE(future.get());
}

TEST(Promise, DestroyingAMovedFromPromiseChangesNothingInTheState) {
  Promise<bool> target;
  Future<bool> future;
  {
    Promise<bool> source;
    future = source.getFuture();
    target = std::move(source);
  }  // the moved-from source goes away here
  // Had the source abandoned the state, this would throw "Promise already resolved.".
  EXPECT_NO_THROW(target.setValue(true));
  EXPECT_TRUE(future.get());
}

TEST(Promise, MoveAssignmentAbandonsTheTargetsOwnState) {
  Promise<bool> target;
  Future<bool> oldFuture = target.getFuture();
  Promise<bool> source;
  Future<bool> newFuture = source.getFuture();
  target = std::move(source);
  EXPECT_THROW_TEXT(oldFuture.get(), std::runtime_error,
                    "Promise destroyed before it provided a value.");
  EXPECT_FALSE(source.valid());  // NOLINT(bugprone-use-after-move)
  target.setValue(true);
  EXPECT_TRUE(newFuture.get());
}

TEST(Promise, MoveAssignmentOfAResolvedTargetKeepsItsValue) {
  Promise<bool> target;
  Future<bool> oldFuture = target.getFuture();
  target.setValue(true);
  Promise<bool> source;
  target = std::move(source);
  EXPECT_TRUE(oldFuture.get());
}

TEST(Promise, MoveAssignmentFromAMovedFromPromiseLeavesTargetInvalid) {
  Promise<bool> source;
  Promise<bool> holder(std::move(source));
  Promise<bool> target;
  Future<bool> future = target.getFuture();
  target = std::move(source);  // NOLINT(bugprone-use-after-move)
  EXPECT_FALSE(target.valid());
  EXPECT_THROW_TEXT(target.setValue(true), std::runtime_error, "Promise state isn't valid!");
  EXPECT_THROW_TEXT(future.get(), std::runtime_error,
                    "Promise destroyed before it provided a value.");
}

TEST(Promise, SelfMoveAssignmentKeepsThePromise) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  Promise<bool>& alias = promise;
  promise = std::move(alias);
  EXPECT_TRUE(promise.valid());
  promise.setValue(true);
  EXPECT_TRUE(future.get());
}

TEST(Promise, DestroyingAValidPromiseRunsTheAttachedContinuationWithTheError) {
  bool ran = false;
  Future<bool> future;
  {
    Promise<bool> promise;
    future = promise.getFuture();
    future.then([&ran](Future<bool> ready) {
      ran = true;
      EXPECT_THROW_TEXT(ready.get(), std::runtime_error,
                        "Promise destroyed before it provided a value.");
    });
    EXPECT_FALSE(ran);
  }
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace connector

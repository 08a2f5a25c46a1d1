#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <connector/futures/SharedFutureState.hpp>
#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"

namespace connector::detail {
namespace {

using common::DataBuffer;

// Counts its calls and its destruction.
struct Tally {
  int invoked = 0;
  int destroyed = 0;
  std::shared_ptr<SharedFutureState<bool>> seenState;
};

class CountingContinuation final : public FutureContinuation<bool> {
 public:
  explicit CountingContinuation(Tally& tally) : tally(tally) {}
  ~CountingContinuation() override { ++tally.destroyed; }
  void invoke(std::shared_ptr<SharedFutureState<bool>> state) override {
    ++tally.invoked;
    tally.seenState = std::move(state);
  }

 private:
  Tally& tally;
};

// A message that reports its own destruction.
struct WatchedMessage : Message {
  explicit WatchedMessage(bool& destroyed) : destroyed(destroyed) {}
  ~WatchedMessage() override { destroyed = true; }
  bool& destroyed;
};

TEST(SharedFutureState, FreshStateIsPending) {
  auto state = std::make_shared<SharedFutureState<bool>>();
  EXPECT_EQ(state->currentStatus(), FutureStatus::Pending);
}

TEST(SharedFutureState, SetValueMovesItToHasValue) {
  auto state = std::make_shared<SharedFutureState<bool>>();
  state->setValue(true);
  EXPECT_EQ(state->currentStatus(), FutureStatus::HasValue);
}

TEST(SharedFutureState, SetExceptionMovesItToHasException) {
  auto state = std::make_shared<SharedFutureState<bool>>();
  state->setException(std::make_exception_ptr(std::runtime_error("x")));
  EXPECT_EQ(state->currentStatus(), FutureStatus::HasException);
}

TEST(SharedFutureState, NullExceptionIsRefusedAndTheStateStaysPending) {
  auto state = std::make_shared<SharedFutureState<bool>>();
  EXPECT_THROW_TEXT(state->setException(nullptr), std::invalid_argument,
                    "Promise exception must not be null.");
  EXPECT_EQ(state->currentStatus(), FutureStatus::Pending);
}

TEST(SharedFutureState, AbandonStoresTheDestroyedPromiseError) {
  auto state = std::make_shared<SharedFutureState<bool>>();
  state->abandon();
  EXPECT_EQ(state->currentStatus(), FutureStatus::HasException);
  EXPECT_THROW_TEXT(state->take(), std::runtime_error,
                    "Promise destroyed before it provided a value.");
}

TEST(SharedFutureState, AbandonOfAResolvedStateKeepsTheResult) {
  auto state = std::make_shared<SharedFutureState<bool>>();
  state->setValue(true);
  state->abandon();
  EXPECT_EQ(state->currentStatus(), FutureStatus::HasValue);
  EXPECT_TRUE(state->take());
}

TEST(SharedFutureState, CancelMovesOnlyAPendingStateToCancelled) {
  auto pending = std::make_shared<SharedFutureState<bool>>();
  pending->cancel();
  EXPECT_EQ(pending->currentStatus(), FutureStatus::Cancelled);

  auto resolved = std::make_shared<SharedFutureState<bool>>();
  resolved->setValue(false);
  resolved->cancel();
  EXPECT_EQ(resolved->currentStatus(), FutureStatus::HasValue);
}

TEST(SharedFutureState, ResolvingACancelledStateLeavesItCancelled) {
  auto state = std::make_shared<SharedFutureState<bool>>();
  state->cancel();
  EXPECT_NO_THROW(state->setValue(true));
  EXPECT_NO_THROW(state->setException(std::make_exception_ptr(std::runtime_error("x"))));
  state->abandon();
  EXPECT_EQ(state->currentStatus(), FutureStatus::Cancelled);
  EXPECT_THROW_TEXT(state->take(), std::runtime_error, "Future has been cancelled.");
}

TEST(SharedFutureState, MarkFutureReturnedTwiceThrows) {
  auto state = std::make_shared<SharedFutureState<bool>>();
  auto self = state->markFutureReturned();
  EXPECT_EQ(self, state);
  EXPECT_THROW_TEXT(state->markFutureReturned(), std::runtime_error,
                    "Promise already returned a future.");
}

TEST(SharedFutureState, StateNotOwnedBySharedPtrRaisesBadWeakPtr) {
  SharedFutureState<bool> loose;
  EXPECT_THROW(loose.markFutureReturned(), std::bad_weak_ptr);
}

TEST(SharedFutureState, ContinuationRunsOnceWithTheSameState) {
  Tally tally;
  auto state = std::make_shared<SharedFutureState<bool>>();
  state->attachContinuation(std::make_unique<CountingContinuation>(tally));
  EXPECT_EQ(tally.invoked, 0);
  state->setValue(true);
  EXPECT_EQ(tally.invoked, 1);
  EXPECT_EQ(tally.destroyed, 1);  // destroyed right after it ran
  EXPECT_EQ(tally.seenState, state);
}

TEST(SharedFutureState, ResolutionWithAContinuationLetsAFreshFutureTakeTheResultOnceMore) {
  Tally tally;
  auto state = std::make_shared<SharedFutureState<bool>>();
  state->markFutureReturned();  // the promise handed out its future already
  state->attachContinuation(std::make_unique<CountingContinuation>(tally));
  state->setValue(true);
  ASSERT_EQ(tally.invoked, 1);
  // Both flags were cleared when the continuation was detached.
  Future<bool> fresh(state->markFutureReturned());
  EXPECT_TRUE(fresh.get());
}

TEST(SharedFutureState, AbandonRunsAnAttachedContinuation) {
  Tally tally;
  auto state = std::make_shared<SharedFutureState<bool>>();
  state->attachContinuation(std::make_unique<CountingContinuation>(tally));
  state->abandon();
  EXPECT_EQ(tally.invoked, 1);
  EXPECT_THROW_TEXT(state->take(), std::runtime_error,
                    "Promise destroyed before it provided a value.");
}

TEST(SharedFutureState, StateDestroyedWithAnUnrunContinuationDestroysItWithoutCallingIt) {
  Tally tally;
  {
    auto state = std::make_shared<SharedFutureState<bool>>();
    state->attachContinuation(std::make_unique<CountingContinuation>(tally));
  }
  EXPECT_EQ(tally.invoked, 0);
  EXPECT_EQ(tally.destroyed, 1);
}

TEST(SharedFutureState, CancelledStateKeepsItsContinuationUnrunUntilItDies) {
  Tally tally;
  {
    auto state = std::make_shared<SharedFutureState<bool>>();
    state->attachContinuation(std::make_unique<CountingContinuation>(tally));
    state->cancel();
    state->setValue(true);
    state->abandon();
    EXPECT_EQ(tally.destroyed, 0);
  }
  EXPECT_EQ(tally.invoked, 0);
  EXPECT_EQ(tally.destroyed, 1);
}

TEST(SharedFutureState, TakeWithAContinuationAttachedThrows) {
  Tally tally;
  auto state = std::make_shared<SharedFutureState<bool>>();
  state->attachContinuation(std::make_unique<CountingContinuation>(tally));
  EXPECT_THROW_TEXT(state->take(), std::runtime_error,
                    "Future already returned it's value or has an associated continuation.");
}

TEST(SharedFutureState, ValueNeverTakenIsDestroyedWithTheState) {
  bool destroyed = false;
  {
    auto state = std::make_shared<SharedFutureState<std::unique_ptr<Message>>>();
    state->setValue(std::make_unique<WatchedMessage>(destroyed));
    EXPECT_FALSE(destroyed);
  }
  EXPECT_TRUE(destroyed);
}

TEST(SharedFutureState, ValueTakenLeavesOnlyAnEmptyCellBehind) {
  bool destroyed = false;
  std::unique_ptr<Message> taken;
  {
    auto state = std::make_shared<SharedFutureState<std::unique_ptr<Message>>>();
    state->setValue(std::make_unique<WatchedMessage>(destroyed));
    taken = state->take();
  }
  EXPECT_FALSE(destroyed);  // the state died, the moved-out message lives on
  taken.reset();
  EXPECT_TRUE(destroyed);
}

TEST(SharedFutureState, TakenBufferLeavesTheCellEmpty) {
  auto state = std::make_shared<SharedFutureState<DataBuffer>>();
  state->setValue(DataBuffer(std::string_view("bytes")));
  DataBuffer out = state->take();
  EXPECT_EQ(out.view(), "bytes");
  EXPECT_EQ(state->currentStatus(), FutureStatus::HasValue);
}

TEST(SharedFutureState, ErrorNeverTakenIsReleasedWithTheState) {
  auto token = std::make_shared<int>(0);
  std::weak_ptr<int> watch = token;
  struct CarryingError : std::runtime_error {
    explicit CarryingError(std::shared_ptr<int> t)
        : std::runtime_error("carrying"), token(std::move(t)) {}
    std::shared_ptr<int> token;
  };
  {
    auto state = std::make_shared<SharedFutureState<bool>>();
    state->setException(std::make_exception_ptr(CarryingError(std::move(token))));
    EXPECT_FALSE(watch.expired());
  }
  EXPECT_TRUE(watch.expired());
}

}  // namespace
}  // namespace connector::detail

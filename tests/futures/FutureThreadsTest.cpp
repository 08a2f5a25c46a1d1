// Promises resolved on one thread while futures wait on another.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"

namespace connector {
namespace {

using common::DataBuffer;
using namespace std::chrono_literals;

// Starts `waiter` on its own thread and gives it time to block before returning, so
// that the resolution that follows finds it waiting. (A waiter that is late merely
// finds the result ready; the test's assertions hold either way.)
class WaiterThread {
 public:
  template <typename F>
  explicit WaiterThread(F&& waiter)
      : thread([this, w = std::forward<F>(waiter)]() mutable {
          started.store(true);
          w();
        }) {
    while (!started.load()) {
      std::this_thread::yield();
    }
    std::this_thread::sleep_for(20ms);
  }
  ~WaiterThread() { join(); }
  void join() {
    if (thread.joinable()) {
      thread.join();
    }
  }

 private:
  std::atomic<bool> started{false};
  std::thread thread;
};

TEST(FutureThreads, WaiterOnAnotherThreadWakesOnSetValue) {
  Promise<DataBuffer> promise;
  Future<DataBuffer> future = promise.getFuture();
  std::string got;
  WaiterThread waiter([&] { got = std::string(future.get().view()); });
  promise.setValue(DataBuffer(std::string_view("across threads")));
  waiter.join();
  EXPECT_EQ(got, "across threads");
}

TEST(FutureThreads, WaiterOnAnotherThreadWakesOnSetException) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  // The error is made in a statement of its own, before the waiter exists. Written inline
  // in the setException call, the temporary std::invalid_argument (and make_exception_ptr's
  // by-value copy of it) would die only at the end of that full expression, after the
  // waiter had been woken: both share the message's reference-counted string with the
  // stored exception, and that count lives in the uninstrumented libstdc++, so the
  // sanitizer sees the waiter's read of what() and this thread's free of the text as
  // unordered whenever the waiter finishes first.
  std::exception_ptr error = std::make_exception_ptr(std::invalid_argument("failed elsewhere"));
  WaiterThread waiter(
      [&] { EXPECT_THROW_TEXT(future.get(), std::invalid_argument, "failed elsewhere"); });
  promise.setException(error);
  waiter.join();
}

TEST(FutureThreads, WaiterOnAnotherThreadWakesWhenThePromiseIsAbandoned) {
  auto promise = std::make_unique<Promise<std::unique_ptr<Message>>>();
  Future<std::unique_ptr<Message>> future = promise->getFuture();
  WaiterThread waiter([&] {
    EXPECT_THROW_TEXT(future.get(), std::runtime_error,
                      "Promise destroyed before it provided a value.");
  });
  promise.reset();
}

TEST(FutureThreads, PromiseResolvedOnAnotherThreadReachesTheBlockedCaller) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  std::thread producer([p = std::move(promise)]() mutable {
    std::this_thread::sleep_for(20ms);
    p.setValue(true);
  });
  EXPECT_TRUE(future.get());
  producer.join();
}

TEST(FutureThreads, PromiseAbandonedOnAnotherThreadReachesTheBlockedCaller) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  std::thread producer([p = std::move(promise)]() mutable {
    std::this_thread::sleep_for(20ms);
    Promise<bool> dropped = std::move(p);
  });
  EXPECT_THROW_TEXT(future.get(), std::runtime_error,
                    "Promise destroyed before it provided a value.");
  producer.join();
}

TEST(FutureThreads, ContinuationRunsOnTheResolvingThreadAndHandsTheResultOn) {
  Promise<DataBuffer> promise;
  Future<DataBuffer> future = promise.getFuture();
  Promise<std::string> relay;  // carries what the continuation read back to this thread
  Future<std::string> relayed = relay.getFuture();
  std::atomic<bool> returned{false};
  std::thread::id ranOn;
  future.then([&](Future<DataBuffer> ready) {
    ranOn = std::this_thread::get_id();
    // The continuation runs before setValue returns on the producer.
    EXPECT_FALSE(returned.load());
    relay.setValue(std::string(ready.get().view()));
  });
  std::thread::id producerId;
  std::thread producer([&] {
    producerId = std::this_thread::get_id();
    promise.setValue(DataBuffer(std::string_view("value")));
    returned.store(true);
  });
  EXPECT_EQ(relayed.get(), "value");
  producer.join();
  EXPECT_EQ(ranOn, producerId);
}

// Whether the continuation runs inside then() (state resolved first) or inside setValue
// on the producer, its error leaves that call and the future keeps reporting it.
TEST(FutureThreads, ThrowingContinuationRacingSetValueLeavesGetReportingTheContinuation) {
  constexpr int kRounds = 200;
  for (int round = 0; round < kRounds; ++round) {
    Promise<int> promise;
    Future<int> future = promise.getFuture();
    std::atomic<int> thrown{0};
    std::atomic<bool> ready{false};
    std::atomic<bool> go{false};
    std::thread producer([&] {
      ready.store(true);
      while (!go.load()) {
        std::this_thread::yield();
      }
      try {
        promise.setValue(int(round));
      } catch (const std::logic_error&) {
        thrown.fetch_add(1);
      }
    });
    while (!ready.load()) {
      std::this_thread::yield();
    }
    go.store(true);  // both calls start together, so either may find the other done
    try {
      // Leaves the result untaken: only the attached continuation makes get() refuse.
      future.then([](Future<int>) -> void { throw std::logic_error("continuation failed"); });
    } catch (const std::logic_error&) {
      thrown.fetch_add(1);
    }
    producer.join();
    ASSERT_EQ(thrown.load(), 1) << "round " << round;
    ASSERT_TRUE(future.valid());
    EXPECT_THROW_TEXT(future.get(), std::runtime_error,
                      "Future already returned it's value or has an associated continuation.");
  }
}

TEST(FutureThreads, FreshFutureFromAContinuationIsReadOnAnotherThread) {
  Promise<bool> promise;
  Future<bool> future = promise.getFuture();
  Promise<Future<bool>> handOver;
  Future<Future<bool>> handed = handOver.getFuture();
  future.then([&handOver](Future<bool> ready) { handOver.setValue(std::move(ready)); });
  bool got = false;
  std::thread reader([&] { got = handed.get().get(); });
  promise.setValue(true);
  reader.join();
  EXPECT_TRUE(got);
}

TEST(FutureThreads, ThenRacingSetValueRunsTheContinuationExactlyOnce) {
  constexpr int kRounds = 500;
  for (int round = 0; round < kRounds; ++round) {
    Promise<int> promise;
    Future<int> future = promise.getFuture();
    std::atomic<int> runs{0};
    std::atomic<int> seen{-1};
    std::thread producer([&] { promise.setValue(int(round)); });
    future.then([&](Future<int> ready) {
      runs.fetch_add(1);
      seen.store(ready.get());
    });
    producer.join();
    ASSERT_EQ(runs.load(), 1) << "round " << round;
    ASSERT_EQ(seen.load(), round);
  }
}

TEST(FutureThreads, CancelRacingSetValueEitherDeliversOrReportsCancellation) {
  constexpr int kRounds = 500;
  int delivered = 0;
  for (int round = 0; round < kRounds; ++round) {
    Promise<int> promise;
    Future<int> future = promise.getFuture();
    std::thread producer([&] { EXPECT_NO_THROW(promise.setValue(int(round))); });
    future.cancel();
    producer.join();
    try {
      ASSERT_EQ(future.get(), round);
      ++delivered;
    } catch (const std::runtime_error& error) {
      ASSERT_STREQ(error.what(), "Future has been cancelled.");
    }
  }
  SUCCEED() << delivered << " of " << kRounds << " values won the race";
}

TEST(FutureThreads, ManyHandOffsBetweenTwoThreadsArriveInOrder) {
  constexpr int kCount = 2000;
  std::vector<Promise<int>> promises(kCount);
  std::vector<Future<int>> futures;
  futures.reserve(kCount);
  for (auto& promise : promises) {
    futures.push_back(promise.getFuture());
  }
  std::thread producer([&] {
    for (int i = 0; i < kCount; ++i) {
      promises[i].setValue(int(i));
    }
  });
  for (int i = 0; i < kCount; ++i) {
    ASSERT_EQ(futures[i].get(), i);
  }
  producer.join();
}

TEST(FutureThreads, PingPongBetweenTwoThreadsBlocksAndWakesEachTime) {
  constexpr int kCount = 300;
  std::vector<Promise<int>> requests(kCount);
  std::vector<Promise<int>> answers(kCount);
  std::vector<Future<int>> requestFutures;
  std::vector<Future<int>> answerFutures;
  for (int i = 0; i < kCount; ++i) {
    requestFutures.push_back(requests[i].getFuture());
    answerFutures.push_back(answers[i].getFuture());
  }
  std::thread echo([&] {
    for (int i = 0; i < kCount; ++i) {
      answers[i].setValue(requestFutures[i].get() + 1);
    }
  });
  for (int i = 0; i < kCount; ++i) {
    requests[i].setValue(int(i));
    ASSERT_EQ(answerFutures[i].get(), i + 1);
  }
  echo.join();
}

}  // namespace
}  // namespace connector

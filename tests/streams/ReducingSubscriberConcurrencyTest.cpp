// Items delivered on one thread while other threads ask for the result, the completion
// and cancel. Each scenario ends in a state that any interleaving must reach; run it
// under ThreadSanitizer to check the locking.
#include <gtest/gtest.h>

#include <connector/json.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/ManualPublisher.hpp"

namespace connector::reactive_streams {
namespace {

using common::DataBuffer;
using testing::ManualPublisher;

using ByteFolder = ReducingSubscriber<DataBuffer, DataBuffer>;

constexpr int kItems = 2000;
constexpr int kRounds = 20;

DataBuffer joinChunks(DataBuffer&& item, DataBuffer&& accumulator) {
  accumulator.append(item);
  return std::move(accumulator);
}

// Item i is the decimal text of i followed by a comma; a prefix of the stream is
// recognisable as such.
DataBuffer item(int i) { return DataBuffer(std::to_string(i) + ","); }

std::string expectedPrefix(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += std::to_string(i) + ",";
  }
  return text;
}

// Counts the items of a joined prefix and checks that it is one.
int itemsIn(std::string_view joined) {
  int count = 0;
  std::string expected;
  while (expected.size() < joined.size()) {
    expected += std::to_string(count++) + ",";
  }
  EXPECT_EQ(joined, expected);
  return count;
}

struct Stream {
  Stream() { publisher->subscribe(folder); }
  void deliverAll() {
    for (int i = 0; i < kItems; ++i) {
      publisher->next(item(i));
    }
    publisher->complete();
  }
  std::shared_ptr<ManualPublisher<DataBuffer>> publisher =
      std::make_shared<ManualPublisher<DataBuffer>>();
  std::shared_ptr<ByteFolder> folder = std::make_shared<ByteFolder>(joinChunks, DataBuffer());
};

TEST(ReducingSubscriberConcurrency, ResultAndCompletionAskedDuringDeliveryHoldTheWholeFold) {
  const std::string whole = expectedPrefix(kItems);
  for (int round = 0; round < kRounds; ++round) {
    Stream stream;
    std::atomic<bool> go{false};
    Future<DataBuffer> result;
    Future<bool> completion;
    std::thread asker([&] {
      while (!go.load()) {
      }
      // Asked once each, at some point during delivery: a pending future resolved by
      // onComplete, or a ready one taken after it; both hold everything.
      if (round % 2 == 0) {
        result = stream.folder->result();
        completion = stream.folder->completion();
      } else {
        completion = stream.folder->completion();
        result = stream.folder->result();
      }
    });
    std::thread producer([&] {
      go.store(true);
      stream.deliverAll();
    });
    producer.join();
    asker.join();
    EXPECT_EQ(result.get().view(), whole);
    EXPECT_TRUE(completion.get());
    EXPECT_EQ(stream.publisher->subscription->cancels.load(), 0);
  }
}

TEST(ReducingSubscriberConcurrency, WaiterOnAnotherThreadWakesWithTheWholeFold) {
  const std::string whole = expectedPrefix(kItems);
  for (int round = 0; round < kRounds; ++round) {
    Stream stream;
    Future<DataBuffer> result = stream.folder->result();
    Future<bool> completion = stream.folder->completion();
    std::string seen;
    bool finished = false;
    std::thread waiter([&] {
      seen = std::string(result.get().view());  // blocks until onComplete
      finished = completion.get();
    });
    std::thread producer([&] { stream.deliverAll(); });
    producer.join();
    waiter.join();
    EXPECT_EQ(seen, whole);
    EXPECT_TRUE(finished);
  }
}

TEST(ReducingSubscriberConcurrency, CancelDuringDeliveryKeepsAConsistentPrefix) {
  int cutShort = 0;
  for (int round = 0; round < kRounds; ++round) {
    Stream stream;
    Future<DataBuffer> result = stream.folder->result();
    Future<bool> completion = stream.folder->completion();
    std::atomic<int> delivered{0};
    std::thread producer([&] {
      for (int i = 0; i < kItems; ++i) {
        stream.publisher->next(item(i));
        delivered.store(i + 1);
      }
      stream.publisher->complete();
    });
    std::thread canceller([&] {
      while (delivered.load() < (round * kItems) / (2 * kRounds)) {
        std::this_thread::yield();
      }
      stream.folder->cancel();
    });
    producer.join();
    canceller.join();
    DataBuffer joined = result.get();
    const bool complete = completion.get();
    const int items = itemsIn(joined.view());
    if (complete) {
      // onComplete won the race: everything folded, nothing cancelled.
      EXPECT_EQ(items, kItems);
      EXPECT_EQ(stream.publisher->subscription->cancels.load(), 0);
      EXPECT_EQ(stream.folder->currentState(), ReducerState::Completed);
    } else {
      ++cutShort;
      EXPECT_LE(items, kItems);
      EXPECT_EQ(stream.publisher->subscription->cancels.load(), 1);
      EXPECT_EQ(stream.folder->currentState(), ReducerState::Cancelled);
    }
  }
  RecordProperty("cut_short_rounds", cutShort);
}

TEST(ReducingSubscriberConcurrency, RepeatedResultCallsLeaveExactlyOneFutureWithTheFold) {
  const std::string whole = expectedPrefix(kItems);
  for (int round = 0; round < kRounds; ++round) {
    Stream stream;
    std::atomic<bool> producing{true};
    std::vector<Future<DataBuffer>> results;
    std::vector<Future<bool>> completions;
    std::thread asker([&] {
      // Keeps asking while items flow, and twice more after the stream completed.
      int afterwards = 2;
      while (producing.load() || afterwards-- > 0) {
        results.push_back(stream.folder->result());
        completions.push_back(stream.folder->completion());
      }
    });
    std::thread producer([&] {
      stream.deliverAll();
      producing.store(false);
    });
    producer.join();
    asker.join();
    int whole_folds = 0;
    for (auto& future : results) {
      try {
        DataBuffer bytes = future.get();
        if (bytes.size == 0) {
          continue;  // a ready future taken after the fold was handed out
        }
        EXPECT_EQ(bytes.view(), whole);
        ++whole_folds;
      } catch (const std::runtime_error& replaced) {
        EXPECT_EQ(std::string(replaced.what()), "Promise destroyed before it provided a value.");
      }
    }
    EXPECT_EQ(whole_folds, 1);
    int trues = 0;
    for (auto& future : completions) {
      try {
        trues += future.get() ? 1 : 0;
      } catch (const std::runtime_error& replaced) {
        EXPECT_EQ(std::string(replaced.what()), "Promise destroyed before it provided a value.");
      }
    }
    EXPECT_GE(trues, 2);  // at least the two asked after completion
  }
}

TEST(ReducingSubscriberConcurrency, ErrorRacingCancelEndsInExactlyOneFinalState) {
  for (int round = 0; round < kRounds * 5; ++round) {
    Stream stream;
    Future<bool> completion = stream.folder->completion();
    std::thread failer([&] {
      stream.publisher->next(item(0));
      stream.publisher->fail(std::make_exception_ptr(std::runtime_error("broken")));
    });
    std::thread canceller([&] { stream.folder->cancel(); });
    failer.join();
    canceller.join();
    const ReducerState state = stream.folder->currentState();
    if (state == ReducerState::Failed) {
      EXPECT_THROW(completion.get(), std::runtime_error);
      EXPECT_EQ(stream.publisher->subscription->cancels.load(), 0);
    } else {
      ASSERT_EQ(state, ReducerState::Cancelled);
      EXPECT_FALSE(completion.get());
      EXPECT_EQ(stream.publisher->subscription->cancels.load(), 1);
    }
  }
}

TEST(ReducingSubscriberConcurrency, DestructionOnAnotherThreadResolvesAPendingResult) {
  for (int round = 0; round < kRounds; ++round) {
    auto subscription = std::make_shared<testing::CountingSubscription>();
    auto folder = std::make_shared<ByteFolder>(joinChunks, DataBuffer());
    folder->onSubscribe(subscription);
    folder->onNext(item(0));
    Future<DataBuffer> result = folder->result();
    std::thread dropper([owned = std::move(folder)]() mutable { owned.reset(); });
    EXPECT_EQ(result.get().view(), "0,");
    dropper.join();
    EXPECT_EQ(subscription->cancels.load(), 1);
  }
}

}  // namespace
}  // namespace connector::reactive_streams

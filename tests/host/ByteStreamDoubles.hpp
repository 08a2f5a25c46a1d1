// Test doubles for byte streams whose signals cross threads.
//
//   auto source = std::make_shared<ThreadedBytePublisher>(splitIntoChunks(bytes, 1));
//   source->subscribe(reader);        // onSubscribe here; items flow from a feeder thread
//   ...read reader->stream()...
//   source->join();
//
//   auto sink = std::make_shared<ChunkSubscriber>(1);   // request(1) in onSubscribe
//   sink->requestOneMorePerItem = true;                 // and one more after each item
//   publisher->subscribe(sink);
//   sink->waitForEnd();
//
// Thread-safety: ThreadedBytePublisher emits on its own feeder thread, one signal at a
// time; ChunkSubscriber guards everything it records with its mutex, so it may be fed
// on one thread and inspected on another.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <connector/json.hpp>

namespace connector::testing {

// Cuts `bytes` into buffers of at most `chunkSize` bytes.
inline std::vector<common::DataBuffer> splitIntoChunks(std::string_view bytes,
                                                       std::size_t chunkSize) {
  std::vector<common::DataBuffer> chunks;
  for (std::size_t at = 0; at < bytes.size(); at += chunkSize) {
    chunks.emplace_back(bytes.substr(at, chunkSize));
  }
  return chunks;
}

// Bytes that do not repeat with any short period, so misordered chunks are noticed.
inline std::string patternBytes(std::size_t n) {
  std::string bytes(n, '\0');
  std::uint32_t x = 2463534242u;
  for (auto& c : bytes) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    c = static_cast<char>(x);
  }
  return bytes;
}

// A publisher whose items come from a feeder thread, once demand has been signalled.
class ThreadedBytePublisher : public reactive_streams::PublisherAPI<common::DataBuffer> {
 public:
  // Emits `chunks`, then onComplete, or onError(`failure`) when one is given.
  explicit ThreadedBytePublisher(std::vector<common::DataBuffer> chunks,
                                 std::exception_ptr failure = nullptr)
      : chunks(std::move(chunks)), failure(std::move(failure)) {}

  ~ThreadedBytePublisher() override { join(); }

  Future<bool> completion() override { return makeReadyFuture<bool>(true); }

  void subscribe(std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>> s) override {
    subscriber = std::move(s);
    subscriber->onSubscribe(subscription);
    if (subscription->lastRequest.load() != 0) {
      feeder = std::thread([this] { feed(); });
    }
  }

  void join() {
    if (feeder.joinable()) {
      feeder.join();
    }
  }

  class RecordedSubscription : public reactive_streams::Subscription {
   public:
    void request(std::int64_t n) override {
      requests.fetch_add(1);
      lastRequest.store(n);
    }
    void cancel() override {}
    std::atomic<int> requests{0};
    std::atomic<std::int64_t> lastRequest{0};
  };

  std::shared_ptr<RecordedSubscription> subscription = std::make_shared<RecordedSubscription>();

 private:
  void feed() {
    for (auto& chunk : chunks) {
      subscriber->onNext(std::move(chunk));
    }
    if (failure) {
      subscriber->onError(failure);
    } else {
      subscriber->onComplete();
    }
  }

  std::vector<common::DataBuffer> chunks;
  std::exception_ptr failure;
  std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>> subscriber;
  std::thread feeder;
};

// Records what a publisher sends; every member is read under `mutex` (or after
// waitForEnd/waitForItems returned).
class ChunkSubscriber : public reactive_streams::SubscriberAPI<common::DataBuffer> {
 public:
  explicit ChunkSubscriber(std::optional<std::int64_t> demandOnSubscribe = std::nullopt)
      : demandOnSubscribe(demandOnSubscribe) {}

  void onSubscribe(std::weak_ptr<reactive_streams::Subscription> s) override {
    {
      std::lock_guard<std::mutex> guard(mutex);
      subscription = s;
    }
    if (demandOnSubscribe) {
      s.lock()->request(*demandOnSubscribe);
    }
  }

  void onNext(common::DataBuffer&& item) override {
    bool more = false;
    std::size_t count = 0;
    {
      std::lock_guard<std::mutex> guard(mutex);
      EXPECT_FALSE(ended) << "item after the end of the stream";
      EXPECT_FALSE(inNext) << "items delivered concurrently";
      inNext = true;
      sizes.push_back(item.size);
      bytes.append(item.view());
      threads.push_back(std::this_thread::get_id());
      more = requestOneMorePerItem;
      count = sizes.size();
    }
    changed.notify_all();
    if (onItem) {
      onItem(count);
    }
    if (more) {
      if (auto s = subscription.lock()) {
        s->request(1);
      }
    }
    std::lock_guard<std::mutex> guard(mutex);
    inNext = false;
  }

  void onComplete() override { end("complete", nullptr); }
  void onError(std::exception_ptr e) override { end("error", std::move(e)); }

  Future<bool> completion() override { return makeReadyFuture<bool>(true); }

  // Asks for n more items through the subscription received in onSubscribe.
  void request(std::int64_t n) {
    std::weak_ptr<reactive_streams::Subscription> link;
    {
      std::lock_guard<std::mutex> guard(mutex);
      link = subscription;
    }
    if (auto s = link.lock()) {
      s->request(n);
    }
  }

  void cancel() {
    std::weak_ptr<reactive_streams::Subscription> link;
    {
      std::lock_guard<std::mutex> guard(mutex);
      link = subscription;
    }
    if (auto s = link.lock()) {
      s->cancel();
    }
  }

  // Waits (bounded) for onComplete or onError; false on time-out.
  bool waitForEnd(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, limit, [this] { return ended; });
  }

  // Waits (bounded) until at least n items arrived; false on time-out.
  bool waitForItems(std::size_t n, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, limit, [&] { return sizes.size() >= n; });
  }

  std::size_t itemCount() {
    std::lock_guard<std::mutex> guard(mutex);
    return sizes.size();
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::optional<std::int64_t> demandOnSubscribe;
  bool requestOneMorePerItem = false;                          // set before subscribing
  std::function<void(std::size_t itemsSoFar)> onItem;          // set before subscribing
  std::weak_ptr<reactive_streams::Subscription> subscription;  // guarded by mutex
  std::vector<std::size_t> sizes;                              // guarded by mutex
  std::string bytes;                                           // guarded by mutex
  std::vector<std::thread::id> threads;                        // guarded by mutex
  bool ended = false;                                          // guarded by mutex
  bool inNext = false;                                         // guarded by mutex
  std::string ending;        // guarded by mutex: "complete"/"error"
  std::exception_ptr error;  // guarded by mutex
  int endings = 0;           // guarded by mutex

 private:
  void end(const char* how, std::exception_ptr e) {
    {
      std::lock_guard<std::mutex> guard(mutex);
      ++endings;
      ended = true;
      ending = how;
      error = std::move(e);
    }
    changed.notify_all();
  }
};

}  // namespace connector::testing

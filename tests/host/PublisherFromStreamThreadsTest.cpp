// makePublisherFromStream with demand, cancellation and reading on other threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <connector/json.hpp>

#include "ByteStreamDoubles.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::reactive_streams {
namespace {

using testing::ChunkSubscriber;
using testing::patternBytes;

constexpr std::size_t kChunk = 64 * 1024;

std::shared_ptr<PublisherAPI<common::DataBuffer>> publisherOf(const std::string& bytes) {
  return makePublisherFromStream([&bytes](std::ostream& out) {
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  });
}

TEST(PublisherFromStreamThreads, RequestFromAnotherThreadLaterRunsTheWriterThere) {
  const std::string bytes = patternBytes(3 * kChunk + 7);
  std::thread::id writerThread;
  auto publisher = makePublisherFromStream([&](std::ostream& out) {
    writerThread = std::this_thread::get_id();
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  });
  auto sink = std::make_shared<ChunkSubscriber>();
  publisher->subscribe(sink);
  std::thread::id requester;
  std::thread later([&] {
    requester = std::this_thread::get_id();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    sink->request(-1);
  });
  ASSERT_TRUE(sink->waitForEnd());
  later.join();
  std::lock_guard<std::mutex> guard(sink->mutex);
  EXPECT_EQ(writerThread, requester);
  EXPECT_TRUE(sink->bytes == bytes);
  EXPECT_EQ(sink->ending, "complete");
  EXPECT_TRUE(publisher->completion().get());
}

TEST(PublisherFromStreamThreads, DemandOfOneAtATimeFromAnotherThreadDeliversAllInOrder) {
  const std::string bytes = patternBytes(20 * kChunk + 11);
  auto publisher = publisherOf(bytes);
  auto sink = std::make_shared<ChunkSubscriber>(1);
  Future<bool> done = publisher->completion();
  std::thread subscriber([&] { publisher->subscribe(sink); });  // runs the writer there
  std::thread consumer([&] {
    for (std::size_t n = 1; n <= 21; ++n) {
      ASSERT_TRUE(sink->waitForItems(n));
      sink->request(1);
    }
  });
  subscriber.join();
  consumer.join();
  ASSERT_TRUE(sink->waitForEnd());
  std::lock_guard<std::mutex> guard(sink->mutex);
  EXPECT_EQ(sink->sizes.size(), 21u);
  for (std::size_t size : sink->sizes) {
    EXPECT_LE(size, kChunk);
  }
  EXPECT_TRUE(sink->bytes == bytes);
  EXPECT_EQ(sink->ending, "complete");
  EXPECT_EQ(sink->endings, 1);
  EXPECT_TRUE(done.get());
}

TEST(PublisherFromStreamThreads, ConcurrentRequestsFromTwoThreadsDeliverEachChunkOnce) {
  const std::string bytes = patternBytes(40 * kChunk);
  auto publisher = publisherOf(bytes);
  auto sink = std::make_shared<ChunkSubscriber>();
  publisher->subscribe(sink);
  auto requestOnes = [&] {
    for (int i = 0; i < 25; ++i) {
      sink->request(1);
      std::this_thread::yield();
    }
  };
  std::thread first(requestOnes);
  std::thread second(requestOnes);
  first.join();
  second.join();
  ASSERT_TRUE(sink->waitForEnd());
  std::lock_guard<std::mutex> guard(sink->mutex);
  EXPECT_EQ(sink->sizes.size(), 40u);
  EXPECT_TRUE(sink->bytes == bytes);
  EXPECT_EQ(sink->ending, "complete");
}

TEST(PublisherFromStreamThreads, CancelFromAnotherThreadMidStreamEndsWithoutCompletion) {
  const std::string bytes = patternBytes(50 * kChunk);
  std::atomic<bool> writerDone{false};
  auto publisher = makePublisherFromStream([&](std::ostream& out) {
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    writerDone.store(true);
  });
  auto sink = std::make_shared<ChunkSubscriber>(1);
  Future<bool> done = publisher->completion();
  std::thread subscriber([&] { publisher->subscribe(sink); });
  std::thread consumer([&] {
    for (std::size_t n = 1; n <= 3; ++n) {
      ASSERT_TRUE(sink->waitForItems(n));
      sink->request(1);
    }
    ASSERT_TRUE(sink->waitForItems(4));
    sink->cancel();
  });
  consumer.join();
  subscriber.join();
  EXPECT_FALSE(done.get());
  const std::size_t count = sink->itemCount();
  sink->request(100);  // demand after cancel delivers nothing more
  std::lock_guard<std::mutex> guard(sink->mutex);
  EXPECT_EQ(sink->sizes.size(), count);
  EXPECT_EQ(count, 4u);
  EXPECT_FALSE(sink->ended);
  EXPECT_TRUE(bytes.compare(0, sink->bytes.size(), sink->bytes) == 0) << "not a prefix";
  EXPECT_TRUE(writerDone.load());
}

TEST(PublisherFromStreamThreads, ThrowingWriterOnAnotherThreadFailsAfterItsBytes) {
  const std::string before = patternBytes(2 * kChunk + 1);
  auto publisher = makePublisherFromStream([&](std::ostream& out) {
    out.write(before.data(), static_cast<std::streamsize>(before.size()));
    throw std::runtime_error("disk full");
  });
  auto sink = std::make_shared<ChunkSubscriber>();
  publisher->subscribe(sink);
  std::thread later([&] { sink->request(-1); });
  ASSERT_TRUE(sink->waitForEnd());
  later.join();
  std::lock_guard<std::mutex> guard(sink->mutex);
  EXPECT_TRUE(sink->bytes == before);
  EXPECT_EQ(sink->ending, "error");
  EXPECT_THROW_TEXT(std::rethrow_exception(sink->error), std::runtime_error, "disk full");
  EXPECT_THROW_TEXT(publisher->completion().get(), std::runtime_error, "disk full");
}

TEST(PublisherFromStreamThreads, CompletionWaitedForOnAnotherThreadResolvesTrue) {
  const std::string bytes = patternBytes(4 * kChunk);
  auto publisher = publisherOf(bytes);
  Future<bool> done = publisher->completion();
  bool result = false;
  std::thread waiter([&] { result = done.get(); });
  auto sink = std::make_shared<ChunkSubscriber>(-1);
  publisher->subscribe(sink);
  waiter.join();
  EXPECT_TRUE(result);
}

}  // namespace
}  // namespace connector::reactive_streams

#include <gtest/gtest.h>

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

std::shared_ptr<PublisherAPI<common::DataBuffer>> publisherOf(std::string bytes) {
  return makePublisherFromStream([bytes = std::move(bytes)](std::ostream& out) {
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  });
}

TEST(PublisherFromStream, ChunksAreAtMost64KiB) { EXPECT_EQ(kStreamChunkSize, kChunk); }

TEST(PublisherFromStream, WriterDoesNotRunAtCreation) {
  bool ran = false;
  auto publisher = makePublisherFromStream([&ran](std::ostream&) { ran = true; });
  EXPECT_FALSE(ran);
}

TEST(PublisherFromStream, WriterNeverRunsBeforeDemand) {
  bool ran = false;
  auto publisher = makePublisherFromStream([&ran](std::ostream& out) {
    ran = true;
    out << "x";
  });
  auto sink = std::make_shared<ChunkSubscriber>();  // asks for nothing yet
  publisher->subscribe(sink);
  EXPECT_FALSE(ran);
  sink->request(0);  // zero is no demand either
  EXPECT_FALSE(ran);
  sink->request(1);
  EXPECT_TRUE(ran);
  EXPECT_EQ(sink->bytes, "x");
  EXPECT_EQ(sink->ending, "complete");
}

TEST(PublisherFromStream, UnboundedDemandDeliversEverythingThenCompletes) {
  const std::string bytes = patternBytes(3 * kChunk + 100);
  auto publisher = publisherOf(bytes);
  auto sink = std::make_shared<ChunkSubscriber>(-1);
  publisher->subscribe(sink);
  EXPECT_EQ(sink->bytes, bytes);
  EXPECT_EQ(sink->sizes, (std::vector<std::size_t>{kChunk, kChunk, kChunk, 100}));
  EXPECT_EQ(sink->ending, "complete");
  EXPECT_EQ(sink->endings, 1);
  EXPECT_TRUE(publisher->completion().get());
}

TEST(PublisherFromStream, DemandOfOneAtATimeDeliversChunksInOrderThenCompletes) {
  const std::string bytes = patternBytes(200 * 1024 + 5);
  auto publisher = publisherOf(bytes);
  auto sink = std::make_shared<ChunkSubscriber>(1);
  sink->requestOneMorePerItem = true;
  publisher->subscribe(sink);
  EXPECT_EQ(sink->sizes, (std::vector<std::size_t>{kChunk, kChunk, kChunk, 8197}));
  EXPECT_EQ(sink->bytes, bytes);
  EXPECT_EQ(sink->ending, "complete");
  EXPECT_EQ(sink->endings, 1);
  EXPECT_TRUE(publisher->completion().get());
}

TEST(PublisherFromStream, NoMoreItemsThanRequested) {
  const std::string bytes = patternBytes(4 * kChunk);
  auto publisher = publisherOf(bytes);
  auto sink = std::make_shared<ChunkSubscriber>(2);
  publisher->subscribe(sink);
  EXPECT_EQ(sink->sizes.size(), 2u);
  EXPECT_FALSE(sink->ended);
  sink->request(1);
  EXPECT_EQ(sink->sizes.size(), 3u);
  EXPECT_FALSE(sink->ended);
  sink->request(5);  // more than is left: the rest, then completion
  EXPECT_EQ(sink->sizes.size(), 4u);
  EXPECT_EQ(sink->bytes, bytes);
  EXPECT_EQ(sink->ending, "complete");
}

TEST(PublisherFromStream, CompletionNeedsNoDemandOnceTheLastItemIsOut) {
  auto publisher = publisherOf("ab");
  auto sink = std::make_shared<ChunkSubscriber>(1);
  publisher->subscribe(sink);
  EXPECT_EQ(sink->bytes, "ab");
  EXPECT_EQ(sink->ending, "complete");
}

TEST(PublisherFromStream, ByteByByteWritesAreGatheredIntoChunks) {
  auto publisher = makePublisherFromStream([](std::ostream& out) {
    for (std::size_t i = 0; i < kChunk + 10; ++i) {
      out.put(static_cast<char>('a' + i % 26));
    }
  });
  auto sink = std::make_shared<ChunkSubscriber>(-1);
  publisher->subscribe(sink);
  EXPECT_EQ(sink->sizes, (std::vector<std::size_t>{kChunk, 10}));
  ASSERT_EQ(sink->bytes.size(), kChunk + 10);
  EXPECT_EQ(sink->bytes.substr(0, 3), "abc");
  EXPECT_EQ(sink->bytes[kChunk + 9], static_cast<char>('a' + (kChunk + 9) % 26));
}

TEST(PublisherFromStream, WriterThatWritesNothingCompletesWithoutItems) {
  auto publisher = makePublisherFromStream([](std::ostream&) {});
  auto sink = std::make_shared<ChunkSubscriber>(1);
  publisher->subscribe(sink);
  EXPECT_TRUE(sink->sizes.empty());
  EXPECT_EQ(sink->ending, "complete");
  EXPECT_TRUE(publisher->completion().get());
}

TEST(PublisherFromStream, CompletionAskedBeforeSubscribingResolvesOnceAllIsDelivered) {
  auto publisher = publisherOf("abc");
  Future<bool> done = publisher->completion();
  auto sink = std::make_shared<ChunkSubscriber>(-1);
  publisher->subscribe(sink);
  EXPECT_TRUE(done.get());
}

TEST(PublisherFromStream, CompletionWaitsForTheLastItemToBeDelivered) {
  auto publisher = publisherOf(patternBytes(2 * kChunk));
  auto sink = std::make_shared<ChunkSubscriber>(1);
  publisher->subscribe(sink);
  bool resolved = false;
  Future<bool> done = publisher->completion();
  done.then([&resolved](Future<bool> ready) { resolved = ready.get(); });
  EXPECT_FALSE(resolved);
  sink->request(1);
  EXPECT_TRUE(resolved);
}

TEST(PublisherFromStream, CancelMidStreamStopsItemsWithoutCompletion) {
  auto publisher = publisherOf(patternBytes(5 * kChunk));
  auto sink = std::make_shared<ChunkSubscriber>(1);
  sink->requestOneMorePerItem = true;
  sink->onItem = [&sink](std::size_t count) {
    if (count == 2) {
      sink->cancel();
    }
  };
  publisher->subscribe(sink);
  EXPECT_EQ(sink->sizes.size(), 2u);
  EXPECT_FALSE(sink->ended);
  EXPECT_FALSE(publisher->completion().get());
  sink->request(10);  // after cancel, demand changes nothing
  EXPECT_EQ(sink->sizes.size(), 2u);
  EXPECT_FALSE(sink->ended);
}

TEST(PublisherFromStream, CancelBeforeDemandMeansTheWriterNeverRuns) {
  bool ran = false;
  auto publisher = makePublisherFromStream([&ran](std::ostream&) { ran = true; });
  auto sink = std::make_shared<ChunkSubscriber>();
  publisher->subscribe(sink);
  Future<bool> done = publisher->completion();
  sink->cancel();
  sink->request(-1);
  EXPECT_FALSE(ran);
  EXPECT_FALSE(done.get());
  EXPECT_FALSE(sink->ended);
}

TEST(PublisherFromStream, CancelAfterCompletionChangesNothing) {
  auto publisher = publisherOf("abc");
  auto sink = std::make_shared<ChunkSubscriber>(-1);
  publisher->subscribe(sink);
  sink->cancel();
  EXPECT_TRUE(publisher->completion().get());
  EXPECT_EQ(sink->endings, 1);
}

TEST(PublisherFromStream, ThrowingWriterDeliversTheBytesBeforeTheThrowThenTheError) {
  const std::string before = patternBytes(kChunk + 3);
  auto publisher = makePublisherFromStream([&before](std::ostream& out) {
    out.write(before.data(), static_cast<std::streamsize>(before.size()));
    throw std::invalid_argument("writer failed");
  });
  Future<bool> done = publisher->completion();
  auto sink = std::make_shared<ChunkSubscriber>(-1);
  publisher->subscribe(sink);
  EXPECT_EQ(sink->bytes, before);
  EXPECT_EQ(sink->sizes, (std::vector<std::size_t>{kChunk, 3}));
  EXPECT_EQ(sink->ending, "error");
  EXPECT_EQ(sink->endings, 1);
  EXPECT_THROW_TEXT(std::rethrow_exception(sink->error), std::invalid_argument, "writer failed");
  EXPECT_THROW_TEXT(done.get(), std::invalid_argument, "writer failed");
  EXPECT_THROW_TEXT(publisher->completion().get(), std::invalid_argument, "writer failed");
}

TEST(PublisherFromStream, ThrowingWriterWaitsForDemandBeforeTheError) {
  auto publisher = makePublisherFromStream([](std::ostream& out) {
    out << "ab";
    throw std::runtime_error("late failure");
  });
  auto sink = std::make_shared<ChunkSubscriber>();
  publisher->subscribe(sink);
  sink->request(1);
  EXPECT_EQ(sink->bytes, "ab");
  EXPECT_EQ(sink->ending, "error");  // the terminal signal needs no demand of its own
}

TEST(PublisherFromStream, SecondSubscriberIsRefused) {
  auto publisher = publisherOf("abc");
  auto first = std::make_shared<ChunkSubscriber>(-1);
  publisher->subscribe(first);
  auto second = std::make_shared<ChunkSubscriber>(-1);
  EXPECT_THROW_TEXT(publisher->subscribe(second), std::invalid_argument,
                    "Only one subscription allowed.");
  EXPECT_TRUE(second->sizes.empty());
  EXPECT_EQ(first->bytes, "abc");
}

TEST(PublisherFromStream, NullSubscriberIsRefused) {
  auto publisher = publisherOf("abc");
  EXPECT_THROW_TEXT(publisher->subscribe(nullptr), std::invalid_argument,
                    "Subscriber must not be null.");
}

TEST(PublisherFromStream, SubscriptionIsHeldOnlyByThePublisher) {
  auto sink = std::make_shared<ChunkSubscriber>();
  {
    auto publisher = publisherOf("abc");
    publisher->subscribe(sink);
    EXPECT_FALSE(sink->subscription.expired());
  }
  EXPECT_TRUE(sink->subscription.expired());
  sink->request(1);  // nothing to reach: no effect, no crash
  EXPECT_TRUE(sink->sizes.empty());
}

TEST(PublisherFromStream, WriterRunsOnTheThreadThatFirstSignalsDemand) {
  std::thread::id ranOn;
  auto publisher = makePublisherFromStream([&ranOn](std::ostream& out) {
    ranOn = std::this_thread::get_id();
    out << "x";
  });
  auto sink = std::make_shared<ChunkSubscriber>(1);
  publisher->subscribe(sink);
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

// A subscriber that throws from onNext after `okItems` items.
class ThrowingSubscriber : public ChunkSubscriber {
 public:
  ThrowingSubscriber(std::int64_t demand, std::size_t okItems)
      : ChunkSubscriber(demand), okItems(okItems) {}
  void onNext(common::DataBuffer&& item) override {
    if (itemCount() == okItems) {
      throw std::logic_error("subscriber broke");
    }
    ChunkSubscriber::onNext(std::move(item));
  }
  std::size_t okItems;
};

TEST(PublisherFromStream, SubscriberThatThrowsFromOnNextGetsNothingMoreAndCompletionFails) {
  const std::string bytes = patternBytes(4 * kChunk);
  bool writerFinished = false;
  auto publisher = makePublisherFromStream([&](std::ostream& out) {
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.clear();  // even a writer that insists gets nowhere
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    writerFinished = true;
  });
  auto sink = std::make_shared<ThrowingSubscriber>(-1, 1);
  publisher->subscribe(sink);
  EXPECT_TRUE(writerFinished);
  EXPECT_EQ(sink->sizes, (std::vector<std::size_t>{kChunk}));
  EXPECT_FALSE(sink->ended);  // neither onComplete nor onError
  EXPECT_THROW_TEXT(publisher->completion().get(), std::logic_error, "subscriber broke");
}

TEST(PublisherFromStream, SubscriberThatThrowsOnARequestedItemSeesTheExceptionFromRequest) {
  const std::string bytes = patternBytes(3 * kChunk);
  auto publisher = publisherOf(bytes);
  Future<bool> done = publisher->completion();
  auto sink = std::make_shared<ThrowingSubscriber>(1, 1);
  publisher->subscribe(sink);
  EXPECT_EQ(sink->itemCount(), 1u);
  EXPECT_THROW_TEXT(sink->request(1), std::logic_error, "subscriber broke");
  sink->request(5);  // stopped: nothing more arrives
  EXPECT_EQ(sink->itemCount(), 1u);
  EXPECT_FALSE(sink->ended);
  EXPECT_THROW_TEXT(done.get(), std::logic_error, "subscriber broke");
}

TEST(PublisherFromStream, WriterMayClearAndKeepWritingAfterACancel) {
  auto sink = std::make_shared<ChunkSubscriber>(1);
  auto publisher = makePublisherFromStream([&sink](std::ostream& out) {
    const std::string block = patternBytes(kChunk);
    out.write(block.data(), static_cast<std::streamsize>(block.size()));
    out.put('x');  // hands the first chunk on
    sink->cancel();
    for (int i = 0; i < 3; ++i) {
      out.clear();
      out.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
  });
  publisher->subscribe(sink);
  EXPECT_EQ(sink->itemCount(), 1u);
  EXPECT_FALSE(publisher->completion().get());
}

}  // namespace
}  // namespace connector::reactive_streams

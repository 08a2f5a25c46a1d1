// An IStreamSubscriber read on one thread while its items arrive on another.
#include <gtest/gtest.h>

#include <chrono>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <connector/json.hpp>

#include "ByteStreamDoubles.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::reactive_streams {
namespace {

using testing::patternBytes;
using testing::splitIntoChunks;
using testing::ThreadedBytePublisher;

std::string readAll(std::istream& in) {
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(IStreamSubscriberThreads, OneByteChunksFromAnotherThreadYieldExactlyTheBytesThenEof) {
  const std::string bytes = patternBytes(20000);
  auto reader = std::make_shared<IStreamSubscriber>();
  auto source = std::make_shared<ThreadedBytePublisher>(splitIntoChunks(bytes, 1));
  source->subscribe(reader);
  EXPECT_EQ(readAll(reader->stream()), bytes);
  EXPECT_EQ(reader->stream().get(), std::char_traits<char>::eof());
  EXPECT_TRUE(reader->stream().eof());
  EXPECT_FALSE(reader->stream().bad());
  EXPECT_TRUE(reader->completion().get());
  source->join();
}

TEST(IStreamSubscriberThreads, OneMiBChunksFromAnotherThreadYieldExactlyTheBytesThenEof) {
  const std::string bytes = patternBytes(8 * 1024 * 1024 + 17);
  auto reader = std::make_shared<IStreamSubscriber>();
  auto source = std::make_shared<ThreadedBytePublisher>(splitIntoChunks(bytes, 1024 * 1024));
  source->subscribe(reader);
  std::string got(bytes.size() + 1, '\0');
  reader->stream().read(got.data(), static_cast<std::streamsize>(got.size()));
  got.resize(static_cast<std::size_t>(reader->stream().gcount()));
  EXPECT_TRUE(got == bytes) << "the bytes read differ from the bytes sent";
  EXPECT_TRUE(reader->stream().eof());
  EXPECT_FALSE(reader->stream().bad());
  source->join();
}

TEST(IStreamSubscriberThreads, ReaderBlockedBeforeTheFirstByteWakesWhenItArrives) {
  auto reader = std::make_shared<IStreamSubscriber>();
  auto subscription = std::make_shared<ThreadedBytePublisher::RecordedSubscription>();
  reader->onSubscribe(subscription);
  std::thread producer([&reader] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    reader->onNext(common::DataBuffer(std::string_view("late")));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    reader->onComplete();
  });
  EXPECT_EQ(readAll(reader->stream()), "late");
  producer.join();
}

TEST(IStreamSubscriberThreads, ErrorFromAnotherThreadFailsTheStreamAfterTheEarlierBytes) {
  const std::string bytes = patternBytes(3 * 65536 + 5);
  auto reader = std::make_shared<IStreamSubscriber>();
  auto source = std::make_shared<ThreadedBytePublisher>(
      splitIntoChunks(bytes, 65536),
      std::make_exception_ptr(std::runtime_error("connection lost")));
  source->subscribe(reader);
  std::string got(bytes.size(), '\0');
  reader->stream().read(got.data(), static_cast<std::streamsize>(got.size()));
  EXPECT_TRUE(got == bytes);
  EXPECT_FALSE(reader->stream().bad());
  reader->stream().get();
  EXPECT_TRUE(reader->stream().bad());
  EXPECT_THROW_TEXT(reader->completion().get(), std::runtime_error, "connection lost");
  source->join();
}

TEST(IStreamSubscriberThreads, CompletionWaitedForOnAnotherThreadResolves) {
  auto reader = std::make_shared<IStreamSubscriber>();
  auto source = std::make_shared<ThreadedBytePublisher>(splitIntoChunks("abc", 1));
  Future<bool> done = reader->completion();
  source->subscribe(reader);
  EXPECT_TRUE(done.get());
  EXPECT_EQ(readAll(reader->stream()), "abc");
  source->join();
}

TEST(IStreamSubscriberThreads, StreamPublisherSubscribedOnAnotherThreadIsReadHere) {
  const std::string bytes = patternBytes(5 * 65536 + 1);
  auto publisher = makePublisherFromStream([&bytes](std::ostream& out) {
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  });
  auto reader = std::make_shared<IStreamSubscriber>();
  std::thread subscriber([&] { publisher->subscribe(reader); });
  EXPECT_TRUE(readAll(reader->stream()) == bytes);
  subscriber.join();
  EXPECT_TRUE(publisher->completion().get());
}

}  // namespace
}  // namespace connector::reactive_streams

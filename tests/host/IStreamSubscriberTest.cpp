#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include <connector/json.hpp>

#include "ByteStreamDoubles.hpp"
#include "support/ExpectThrow.hpp"

namespace connector::reactive_streams {
namespace {

using common::DataBuffer;
using testing::ThreadedBytePublisher;

class Subscribed : public ::testing::Test {
 protected:
  Subscribed() { reader->onSubscribe(subscription); }

  std::string readAll() {
    return std::string(std::istreambuf_iterator<char>(reader->stream()),
                       std::istreambuf_iterator<char>());
  }

  std::shared_ptr<ThreadedBytePublisher::RecordedSubscription> subscription =
      std::make_shared<ThreadedBytePublisher::RecordedSubscription>();
  std::shared_ptr<IStreamSubscriber> reader = std::make_shared<IStreamSubscriber>();
};

TEST_F(Subscribed, RequestsUnboundedDemandInOnSubscribe) {
  EXPECT_EQ(subscription->requests.load(), 1);
  EXPECT_EQ(subscription->lastRequest.load(), -1);
}

TEST_F(Subscribed, YieldsTheBytesInOrderThenEndOfFile) {
  reader->onNext(DataBuffer(std::string_view("{\"type\":")));
  reader->onNext(DataBuffer(std::string_view("\"connector/Message\"}")));
  reader->onComplete();
  EXPECT_EQ(readAll(), "{\"type\":\"connector/Message\"}");
  EXPECT_EQ(reader->stream().get(), std::char_traits<char>::eof());
  EXPECT_TRUE(reader->stream().eof());
  EXPECT_FALSE(reader->stream().bad());
}

TEST_F(Subscribed, EmptyItemsAddNothing) {
  reader->onNext(DataBuffer());
  reader->onNext(DataBuffer(std::string_view("ab")));
  reader->onNext(DataBuffer());
  reader->onComplete();
  EXPECT_EQ(readAll(), "ab");
}

TEST_F(Subscribed, StreamWithoutItemsIsAtEndOfFileAtOnce) {
  reader->onComplete();
  EXPECT_EQ(reader->stream().get(), std::char_traits<char>::eof());
  EXPECT_TRUE(reader->stream().eof());
  EXPECT_FALSE(reader->stream().bad());
}

TEST_F(Subscribed, FormattedReadsWork) {
  reader->onNext(DataBuffer(std::string_view("12 3")));
  reader->onNext(DataBuffer(std::string_view("4 word")));
  reader->onComplete();
  int first = 0;
  int second = 0;
  std::string third;
  reader->stream() >> first >> second >> third;
  EXPECT_EQ(first, 12);
  EXPECT_EQ(second, 34);
  EXPECT_EQ(third, "word");
}

TEST_F(Subscribed, OnErrorFailsTheStreamAfterTheEarlierBytes) {
  reader->onNext(DataBuffer(std::string_view("abc")));
  reader->onError(std::make_exception_ptr(std::runtime_error("connection lost")));
  char bytes[3] = {};
  reader->stream().read(bytes, 3);
  EXPECT_EQ(std::string(bytes, 3), "abc");
  EXPECT_TRUE(reader->stream().good());
  reader->stream().get();
  EXPECT_TRUE(reader->stream().bad());
}

TEST_F(Subscribed, OnErrorRethrowsFromReadsWhenTheReaderAsksForExceptions) {
  reader->onError(std::make_exception_ptr(std::runtime_error("connection lost")));
  reader->stream().exceptions(std::ios::badbit);
  EXPECT_THROW_TEXT(reader->stream().get(), std::runtime_error, "connection lost");
  EXPECT_TRUE(reader->stream().bad());
}

TEST_F(Subscribed, ItemsAfterTheEndAreIgnored) {
  reader->onNext(DataBuffer(std::string_view("kept")));
  reader->onComplete();
  reader->onNext(DataBuffer(std::string_view("dropped")));
  reader->onError(std::make_exception_ptr(std::runtime_error("late")));
  EXPECT_EQ(readAll(), "kept");
  EXPECT_FALSE(reader->stream().bad());
  EXPECT_TRUE(reader->completion().get());
}

TEST_F(Subscribed, CompletionAskedBeforeTheEndResolvesTrueOnComplete) {
  Future<bool> first = reader->completion();
  Future<bool> second = reader->completion();
  reader->onComplete();
  EXPECT_TRUE(first.get());
  EXPECT_TRUE(second.get());
}

TEST_F(Subscribed, CompletionAskedAfterTheEndIsReadyAtOnce) {
  reader->onComplete();
  EXPECT_TRUE(reader->completion().get());
}

TEST_F(Subscribed, CompletionFailsWithTheReceivedError) {
  Future<bool> before = reader->completion();
  reader->onError(std::make_exception_ptr(std::invalid_argument("bad bytes")));
  EXPECT_THROW_TEXT(before.get(), std::invalid_argument, "bad bytes");
  EXPECT_THROW_TEXT(reader->completion().get(), std::invalid_argument, "bad bytes");
}

TEST_F(Subscribed, OnErrorWithoutAnErrorStillFailsTheStream) {
  reader->onError(nullptr);
  EXPECT_THROW_TEXT(reader->completion().get(), std::runtime_error,
                    "Stream failed without an error.");
  reader->stream().get();
  EXPECT_TRUE(reader->stream().bad());
}

TEST(IStreamSubscriber, ExpiredSubscriptionEndsTheStreamInsteadOfHanging) {
  auto reader = std::make_shared<IStreamSubscriber>();
  std::weak_ptr<Subscription> expired;
  {
    auto gone = std::make_shared<ThreadedBytePublisher::RecordedSubscription>();
    expired = gone;
  }
  reader->onSubscribe(expired);
  EXPECT_THROW_TEXT(reader->completion().get(), std::runtime_error, "Subscription went away!");
  reader->stream().get();
  EXPECT_TRUE(reader->stream().bad());
}

TEST(IStreamSubscriber, ReadsWhatAStreamPublisherWrites) {
  auto publisher = makePublisherFromStream([](std::ostream& out) { out << "{\"a\":" << 1 << "}"; });
  auto reader = std::make_shared<IStreamSubscriber>();
  publisher->subscribe(reader);
  std::string text(std::istreambuf_iterator<char>(reader->stream()), {});
  EXPECT_EQ(text, "{\"a\":1}");
  EXPECT_TRUE(reader->completion().get());
  EXPECT_TRUE(publisher->completion().get());
}

}  // namespace
}  // namespace connector::reactive_streams

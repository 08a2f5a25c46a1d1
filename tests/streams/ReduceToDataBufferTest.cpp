#include <gtest/gtest.h>

#include <connector/json.hpp>

#include <memory>
#include <stdexcept>
#include <string>

#include "support/ExpectThrow.hpp"
#include "support/FutureWatch.hpp"
#include "support/ManualPublisher.hpp"

namespace connector::json {
namespace {

using common::DataBuffer;
using reactive_streams::OneShotPublisher;
using reactive_streams::PublisherAPI;
using testing::ManualPublisher;
using testing::watch;

TEST(ReduceSerializedPublisherToDataBuffer, OneShotPublisherYieldsAReadyFutureWithItsBytes) {
  auto publisher = std::make_shared<OneShotPublisher<DataBuffer>>(DataBuffer("{\"a\":1}"));
  auto joined = watch(reduceSerializedPublisherToDataBuffer(publisher));
  ASSERT_TRUE(joined->value.has_value());
  EXPECT_EQ(joined->value->view(), "{\"a\":1}");
  // The publisher still holds its own bytes, in its own storage.
  EXPECT_EQ(publisher->heldValue().view(), "{\"a\":1}");
  EXPECT_NE(publisher->heldValue().data, joined->value->data);
}

TEST(ReduceSerializedPublisherToDataBuffer, StreamWithoutItemsYieldsAnEmptyBuffer) {
  auto publisher = std::make_shared<ManualPublisher<DataBuffer>>();
  Future<DataBuffer> joined = reduceSerializedPublisherToDataBuffer(publisher);
  publisher->complete();
  DataBuffer bytes = joined.get();
  EXPECT_EQ(bytes.size, 0u);
  EXPECT_EQ(bytes.data, nullptr);
}

TEST(ReduceSerializedPublisherToDataBuffer, ChunksOfTwoZeroAndThreeBytesFoldToFiveBytes) {
  auto publisher = std::make_shared<ManualPublisher<DataBuffer>>();
  Future<DataBuffer> joined = reduceSerializedPublisherToDataBuffer(publisher);
  DataBuffer first("ab");
  DataBuffer empty;
  DataBuffer third("cde");
  publisher->next(std::move(first));
  // The first chunk allocated exactly its own size (twice zero is less than two).
  publisher->next(std::move(empty));
  publisher->next(std::move(third));
  publisher->complete();
  DataBuffer bytes = joined.get();
  EXPECT_EQ(bytes.view(), "abcde");
  EXPECT_EQ(bytes.size, 5u);
  // Growth: 2 for the first chunk, nothing for the empty one, max(2 * 2, 5) for the third.
  EXPECT_EQ(bytes.capacity, 5u);
  // Items are only read.
  EXPECT_EQ(first.view(), "ab");
  EXPECT_EQ(third.view(), "cde");
}

TEST(ReduceSerializedPublisherToDataBuffer, EmptyChunkChangesNothingAndAllocatesNothing) {
  auto publisher = std::make_shared<ManualPublisher<DataBuffer>>();
  auto folder = std::make_shared<reactive_streams::ReducingSubscriber<DataBuffer, DataBuffer>>(
      [](DataBuffer&& item, DataBuffer&& accumulator) {
        accumulator.append(item);
        return std::move(accumulator);
      },
      DataBuffer());
  publisher->subscribe(folder);
  publisher->next(DataBuffer("ab"));
  // An accumulator of capacity 2 that an empty chunk left alone keeps capacity 2; a
  // chunk that forced growth would have doubled it.
  publisher->next(DataBuffer());
  publisher->complete();
  DataBuffer bytes = folder->result().get();
  EXPECT_EQ(bytes.view(), "ab");
  EXPECT_EQ(bytes.capacity, 2u);
}

TEST(ReduceSerializedPublisherToDataBuffer, GrowthAtLeastDoublesTheCapacity) {
  auto publisher = std::make_shared<ManualPublisher<DataBuffer>>();
  Future<DataBuffer> joined = reduceSerializedPublisherToDataBuffer(publisher);
  publisher->next(DataBuffer("abcd"));  // capacity 4
  publisher->next(DataBuffer("e"));     // max(8, 5) = 8
  publisher->next(DataBuffer("fgh"));   // fits: 8
  publisher->next(DataBuffer("i"));     // max(16, 9) = 16
  publisher->complete();
  DataBuffer bytes = joined.get();
  EXPECT_EQ(bytes.view(), "abcdefghi");
  EXPECT_EQ(bytes.capacity, 16u);
}

TEST(ReduceSerializedPublisherToDataBuffer, NullPublisherYieldsAnEmptyBufferAtOnce) {
  auto joined = watch(reduceSerializedPublisherToDataBuffer(nullptr));
  ASSERT_TRUE(joined->value.has_value());
  EXPECT_EQ(joined->value->size, 0u);
}

TEST(ReduceSerializedPublisherToDataBuffer, SecondReduceOfAOneShotPublisherThrows) {
  auto publisher = std::make_shared<OneShotPublisher<DataBuffer>>(DataBuffer("xy"));
  Future<DataBuffer> first = reduceSerializedPublisherToDataBuffer(publisher);
  EXPECT_THROW_TEXT(reduceSerializedPublisherToDataBuffer(publisher), std::invalid_argument,
                    "Only one subscription allowed.");
  EXPECT_EQ(first.get().view(), "xy");
}

TEST(ReduceSerializedPublisherToDataBuffer, StreamErrorSurfacesFromTheFuture) {
  auto publisher = std::make_shared<ManualPublisher<DataBuffer>>();
  Future<DataBuffer> joined = reduceSerializedPublisherToDataBuffer(publisher);
  publisher->next(DataBuffer("ab"));
  publisher->fail(std::make_exception_ptr(std::runtime_error("writer failed")));
  EXPECT_THROW_TEXT(joined.get(), std::runtime_error, "writer failed");
}

TEST(ReduceSerializedPublisherToDataBuffer, BytesOfAStreamPublisherArriveInOrder) {
  std::string text(100000, 'x');
  for (std::size_t i = 0; i < text.size(); i += 7) {
    text[i] = static_cast<char>('a' + i % 26);
  }
  auto publisher =
      reactive_streams::makePublisherFromStream([text](std::ostream& out) { out << text; });
  EXPECT_EQ(reduceSerializedPublisherToDataBuffer(publisher).get().view(), text);
}

}  // namespace
}  // namespace connector::json

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <connector/json.hpp>

#include "support/ExpectThrow.hpp"

namespace connector::common {
namespace {

void expectEmpty(const DataBuffer& buffer) {
  EXPECT_EQ(buffer.data, nullptr);
  EXPECT_EQ(buffer.capacity, 0u);
  EXPECT_EQ(buffer.size, 0u);
}

// A buffer that has spare capacity beyond its size.
DataBuffer withSpareCapacity(std::string_view text) {
  DataBuffer buffer(text);
  buffer.append(DataBuffer(std::string_view("!")));  // doubles the capacity
  buffer.size = text.size();
  return buffer;
}

// Huge allocations are refused by the sanitizers' allocators instead of returning null.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kAllocatorAbortsOnHugeRequests = true;
#else
constexpr bool kAllocatorAbortsOnHugeRequests = false;
#endif

constexpr std::size_t kImpossibleSize = std::numeric_limits<std::size_t>::max() / 4;

TEST(DataBuffer, DefaultIsEmpty) {
  DataBuffer buffer;
  expectEmpty(buffer);
  EXPECT_EQ(buffer.view(), "");
}

TEST(DataBuffer, FieldsComeInTheirFixedOrder) {
  EXPECT_LT(offsetof(DataBuffer, data), offsetof(DataBuffer, capacity));
  EXPECT_LT(offsetof(DataBuffer, capacity), offsetof(DataBuffer, size));
}

TEST(DataBuffer, ConstructionFromBytesCopiesExactlyThoseBytes) {
  const char source[] = "hello";
  DataBuffer buffer(source, 5);
  EXPECT_NE(static_cast<const void*>(buffer.data), static_cast<const void*>(source));
  EXPECT_EQ(buffer.size, 5u);
  EXPECT_EQ(buffer.capacity, 5u);
  EXPECT_EQ(buffer.view(), "hello");
}

TEST(DataBuffer, ConstructionFromZeroBytesAllocatesNothing) {
  DataBuffer buffer("ignored", 0);
  expectEmpty(buffer);
}

TEST(DataBuffer, ConstructionFromTextCopiesItsBytesIncludingNulls) {
  const std::string text("a\0b", 3);
  DataBuffer buffer{std::string_view(text)};
  EXPECT_EQ(buffer.size, 3u);
  EXPECT_EQ(buffer.capacity, 3u);
  EXPECT_EQ(buffer.view(), text);
}

TEST(DataBuffer, MoveConstructionTakesTheBytesAndEmptiesTheSource) {
  DataBuffer source = withSpareCapacity("abc");
  std::uint8_t* bytes = source.data;
  const std::size_t capacity = source.capacity;
  DataBuffer target(std::move(source));
  expectEmpty(source);  // NOLINT(bugprone-use-after-move): the emptied source is the point
  EXPECT_EQ(target.data, bytes);
  EXPECT_EQ(target.capacity, capacity);
  EXPECT_EQ(target.size, 3u);
}

TEST(DataBuffer, MoveAssignmentTakesTheBytesAndEmptiesTheSource) {
  DataBuffer source(std::string_view("new"));
  std::uint8_t* bytes = source.data;
  DataBuffer target(std::string_view("old bytes are released"));
  target = std::move(source);
  expectEmpty(source);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(target.data, bytes);
  EXPECT_EQ(target.view(), "new");
}

TEST(DataBuffer, SelfMoveAssignmentKeepsTheBytes) {
  DataBuffer buffer(std::string_view("kept"));
  DataBuffer& alias = buffer;
  buffer = std::move(alias);
  EXPECT_EQ(buffer.view(), "kept");
}

TEST(DataBuffer, CopyAllocatesExactlyTheSize) {
  DataBuffer source = withSpareCapacity("abcd");
  ASSERT_GT(source.capacity, source.size);
  DataBuffer copy(source);
  EXPECT_NE(copy.data, source.data);
  EXPECT_EQ(copy.size, 4u);
  EXPECT_EQ(copy.capacity, 4u);
  EXPECT_EQ(copy.view(), "abcd");
  EXPECT_EQ(source.view(), "abcd");  // the source keeps its bytes
}

TEST(DataBuffer, CopyOfAnEmptyBufferAllocatesNothing) {
  DataBuffer source = withSpareCapacity("");
  ASSERT_NE(source.data, nullptr);  // storage, but no bytes in use
  ASSERT_EQ(source.size, 0u);
  DataBuffer copy(source);
  expectEmpty(copy);
  DataBuffer none;
  DataBuffer copyOfNone(none);
  expectEmpty(copyOfNone);
}

TEST(DataBuffer, CopyAssignmentAllocatesExactlyTheSizeAndReleasesTheOldBytes) {
  DataBuffer source = withSpareCapacity("xyz");
  DataBuffer target(std::string_view("previous"));
  target = source;
  EXPECT_NE(target.data, source.data);
  EXPECT_EQ(target.capacity, 3u);
  EXPECT_EQ(target.view(), "xyz");
}

TEST(DataBuffer, CopyAssignmentOfAnEmptyBufferEmptiesTheTarget) {
  DataBuffer target(std::string_view("previous"));
  target = DataBuffer();
  expectEmpty(target);
  const DataBuffer empty;
  DataBuffer other(std::string_view("x"));
  other = empty;
  expectEmpty(other);
}

TEST(DataBuffer, SelfCopyAssignmentKeepsTheBytes) {
  DataBuffer buffer(std::string_view("same"));
  std::uint8_t* bytes = buffer.data;
  const DataBuffer& alias = buffer;
  buffer = alias;
  EXPECT_EQ(buffer.data, bytes);
  EXPECT_EQ(buffer.view(), "same");
}

TEST(DataBuffer, FirstAppendAllocatesExactlyWhatItNeeds) {
  DataBuffer accumulator;
  accumulator.append(DataBuffer(std::string_view("12345")));
  EXPECT_EQ(accumulator.capacity, 5u);
  EXPECT_EQ(accumulator.size, 5u);
  EXPECT_EQ(accumulator.view(), "12345");
}

TEST(DataBuffer, AppendBeyondCapacityDoublesIt) {
  DataBuffer accumulator(std::string_view("12345"));
  accumulator.append(DataBuffer(std::string_view("6")));
  EXPECT_EQ(accumulator.capacity, 10u);
  EXPECT_EQ(accumulator.size, 6u);
  accumulator.append(DataBuffer(std::string_view("7890")));  // fits exactly
  EXPECT_EQ(accumulator.capacity, 10u);
  accumulator.append(DataBuffer(std::string_view("a")));
  EXPECT_EQ(accumulator.capacity, 20u);
  EXPECT_EQ(accumulator.view(), "1234567890a");
}

TEST(DataBuffer, AppendGrowsToWhatItNeedsWhenThatIsMoreThanDouble) {
  DataBuffer accumulator(std::string_view("ab"));
  accumulator.append(DataBuffer(std::string(10, 'c')));
  EXPECT_EQ(accumulator.capacity, 12u);
  EXPECT_EQ(accumulator.size, 12u);
}

TEST(DataBuffer, AppendWithinCapacityKeepsTheStorage) {
  DataBuffer accumulator = withSpareCapacity("ab");
  std::uint8_t* bytes = accumulator.data;
  const std::size_t capacity = accumulator.capacity;
  accumulator.append(DataBuffer(std::string_view("c")));
  EXPECT_EQ(accumulator.data, bytes);
  EXPECT_EQ(accumulator.capacity, capacity);
  EXPECT_EQ(accumulator.view(), "abc");
}

TEST(DataBuffer, AppendLeavesTheItemUntouched) {
  DataBuffer accumulator(std::string_view("a"));
  DataBuffer item(std::string_view("bc"));
  std::uint8_t* itemBytes = item.data;
  accumulator.append(item);
  EXPECT_EQ(item.data, itemBytes);
  EXPECT_EQ(item.view(), "bc");
}

TEST(DataBuffer, AppendKeepsChunksInStreamOrder) {
  DataBuffer accumulator;
  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    const std::string chunk = std::to_string(i) + ",";
    expected += chunk;
    accumulator.append(DataBuffer{std::string_view(chunk)});
  }
  EXPECT_EQ(accumulator.view(), expected);
  EXPECT_LT(accumulator.capacity, 2 * expected.size());
}

TEST(DataBuffer, SelfAppendChangesNothing) {
  DataBuffer buffer = withSpareCapacity("self");
  std::uint8_t* bytes = buffer.data;
  const std::size_t capacity = buffer.capacity;
  buffer.append(buffer);
  EXPECT_EQ(buffer.data, bytes);
  EXPECT_EQ(buffer.capacity, capacity);
  EXPECT_EQ(buffer.view(), "self");
}

TEST(DataBuffer, EmptyAppendChangesNothing) {
  DataBuffer buffer(std::string_view("abc"));
  std::uint8_t* bytes = buffer.data;
  buffer.append(DataBuffer());
  EXPECT_EQ(buffer.data, bytes);
  EXPECT_EQ(buffer.capacity, 3u);
  EXPECT_EQ(buffer.view(), "abc");
}

TEST(DataBuffer, EmptyAppendToAnEmptyBufferAllocatesNothing) {
  DataBuffer buffer;
  buffer.append(DataBuffer());
  buffer.append(withSpareCapacity(""));  // storage but no bytes in use
  expectEmpty(buffer);
}

TEST(DataBuffer, AppendThatCannotAllocateThrowsAndLeavesTheBufferUnchanged) {
  if (kAllocatorAbortsOnHugeRequests) {
    GTEST_SKIP() << "the sanitizer allocator aborts instead of returning null";
  }
  DataBuffer buffer(std::string_view("kept"));
  std::uint8_t* bytes = buffer.data;
  DataBuffer impossible;
  impossible.size = kImpossibleSize;  // never read: the allocation fails first
  EXPECT_THROW_TEXT(buffer.append(impossible), std::runtime_error, "Out of memory!");
  impossible.size = 0;
  EXPECT_EQ(buffer.data, bytes);
  EXPECT_EQ(buffer.capacity, 4u);
  EXPECT_EQ(buffer.view(), "kept");
}

TEST(DataBuffer, FirstAppendThatCannotAllocateThrowsAndLeavesTheBufferEmpty) {
  if (kAllocatorAbortsOnHugeRequests) {
    GTEST_SKIP() << "the sanitizer allocator aborts instead of returning null";
  }
  DataBuffer buffer;
  DataBuffer impossible;
  impossible.size = kImpossibleSize;
  EXPECT_THROW_TEXT(buffer.append(impossible), std::runtime_error, "Out of memory!");
  impossible.size = 0;
  expectEmpty(buffer);
}

TEST(DataBuffer, CopyThatCannotAllocateThrowsOutOfMemory) {
  if (kAllocatorAbortsOnHugeRequests) {
    GTEST_SKIP() << "the sanitizer allocator aborts instead of returning null";
  }
  DataBuffer impossible;
  impossible.size = kImpossibleSize;
  EXPECT_THROW_TEXT(DataBuffer{impossible}, std::runtime_error, "Out of memory!");
  impossible.size = 0;
}

TEST(DataBuffer, ReserveOfZeroAllocatesNothing) {
  DataBuffer buffer;
  buffer.reserve(0);
  expectEmpty(buffer);
}

TEST(DataBuffer, ReserveAllocatesExactlyThatMuchAndKeepsTheBytes) {
  DataBuffer buffer(std::string_view("abc"));
  buffer.reserve(64);
  EXPECT_EQ(buffer.capacity, 64u);
  EXPECT_EQ(buffer.view(), "abc");
  buffer.append(DataBuffer(std::string_view("def")));
  EXPECT_EQ(buffer.capacity, 64u);
  EXPECT_EQ(buffer.view(), "abcdef");
}

TEST(DataBuffer, ReserveWithinCapacityKeepsTheStorage) {
  DataBuffer buffer;
  buffer.reserve(16);
  std::uint8_t* bytes = buffer.data;
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(buffer.size, 0u);
  buffer.reserve(8);
  EXPECT_EQ(buffer.data, bytes);
  EXPECT_EQ(buffer.capacity, 16u);
}

TEST(DataBuffer, ReserveThatCannotAllocateThrowsAndLeavesTheBufferUnchanged) {
  if (kAllocatorAbortsOnHugeRequests) {
    GTEST_SKIP() << "the sanitizer allocator aborts instead of returning null";
  }
  DataBuffer buffer(std::string_view("kept"));
  std::uint8_t* bytes = buffer.data;
  EXPECT_THROW_TEXT(buffer.reserve(kImpossibleSize), std::runtime_error, "Out of memory!");
  EXPECT_EQ(buffer.data, bytes);
  EXPECT_EQ(buffer.capacity, 4u);
  EXPECT_EQ(buffer.view(), "kept");
}

}  // namespace
}  // namespace connector::common

// Counts the heap allocations of folding byte streams. This executable interposes the
// C allocator (plain builds) or installs the sanitizer allocator hooks (ASan, TSan
// builds), so it is its own test program.
#include <gtest/gtest.h>

#include <connector/json.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/ManualPublisher.hpp"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#  define CONNECTOR_COUNT_WITH_SANITIZER_HOOKS 1
// From the sanitizer runtime's allocator interface (its header does not ship with
// every compiler): hooks called for every allocation and release, operator new included.
extern "C" int __sanitizer_install_malloc_and_free_hooks(
    void (*onMalloc)(const volatile void* pointer, std::size_t size),
    void (*onFree)(const volatile void* pointer));
#endif

namespace {

// Sizes of the allocations made while counting; fixed storage, so that recording
// never allocates.
std::atomic<bool> counting{false};
std::array<std::atomic<std::size_t>, 256> sizes{};
std::atomic<std::size_t> allocations{0};

void note(std::size_t size) {
  if (counting.load(std::memory_order_relaxed)) {
    const std::size_t slot = allocations.fetch_add(1);
    if (slot < sizes.size()) {
      sizes[slot].store(size);
    }
  }
}

}  // namespace

#if defined(CONNECTOR_COUNT_WITH_SANITIZER_HOOKS)
namespace {
void onMalloc(const volatile void*, std::size_t size) { note(size); }
void onFree(const volatile void*) {}
const int hooksInstalled = __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree);
}  // namespace
#else
// The executable's definitions take precedence over the C library's for every caller,
// the connector libraries and the C++ runtime's operator new included.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* pointer, std::size_t size);
void __libc_free(void* pointer);

void* malloc(std::size_t size) noexcept {
  note(size);
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) noexcept {
  note(count * size);
  return __libc_calloc(count, size);
}
void* realloc(void* pointer, std::size_t size) noexcept {
  note(size);
  return __libc_realloc(pointer, size);
}
void free(void* pointer) noexcept { __libc_free(pointer); }
}
#endif

namespace connector::json {
namespace {

using common::DataBuffer;
using reactive_streams::OneShotPublisher;
using reactive_streams::PublisherAPI;
using reactive_streams::ReducingSubscriber;

// Counts the allocations of one scope.
class AllocationCount {
 public:
  AllocationCount() {
    allocations.store(0);
    counting.store(true);
  }
  ~AllocationCount() { counting.store(false); }

  std::vector<std::size_t> stop() {
    counting.store(false);
    std::vector<std::size_t> seen;
    const std::size_t n = std::min(allocations.load(), sizes.size());
    for (std::size_t i = 0; i < n; ++i) {
      seen.push_back(sizes[i].load());
    }
    std::sort(seen.begin(), seen.end());
    return seen;
  }
};

TEST(ReduceToDataBufferAllocation, CountingSeesAnAllocation) {
#if defined(CONNECTOR_COUNT_WITH_SANITIZER_HOOKS)
  ASSERT_NE(hooksInstalled, 0);
#endif
  AllocationCount count;
  auto probe = std::make_unique<std::array<char, 333>>();
  std::vector<std::size_t> seen = count.stop();
  EXPECT_EQ(seen, (std::vector<std::size_t>{sizeof(*probe)}));
}

TEST(ReduceToDataBufferAllocation, OneShotPublisherReducedAllocatesSubscriberStateAndOneBuffer) {
  const std::string payload(100, 'p');
  std::shared_ptr<PublisherAPI<DataBuffer>> publisher =
      std::make_shared<OneShotPublisher<DataBuffer>>(DataBuffer(payload));

  AllocationCount count;
  Future<DataBuffer> joined = reduceSerializedPublisherToDataBuffer(publisher);
  std::vector<std::size_t> seen = count.stop();

  // The result buffer (exactly the payload), the value cell of the promise state, the
  // state itself and the subscriber (each with its shared ownership record).
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[0], sizeof(DataBuffer));
  EXPECT_EQ(seen[1], payload.size());
  const std::size_t stateSize = sizeof(connector::detail::SharedFutureState<DataBuffer>);
  const std::size_t subscriberSize = sizeof(ReducingSubscriber<DataBuffer, DataBuffer>);
  EXPECT_GE(seen[2], std::min(stateSize, subscriberSize));
  EXPECT_GE(seen[3], std::max(stateSize, subscriberSize));

  AllocationCount taking;
  DataBuffer bytes = joined.get();
  EXPECT_TRUE(taking.stop().empty());
  EXPECT_EQ(bytes.view(), payload);
}

TEST(ReduceToDataBufferAllocation, SubscriberCopiesTheInitialValueTwice) {
  auto reducer = [](DataBuffer&& item, DataBuffer&& accumulator) {
    accumulator.append(item);
    return std::move(accumulator);
  };
  DataBuffer seed("seed");
  {
    AllocationCount count;
    ReducingSubscriber<DataBuffer, DataBuffer> folder(reducer, seed);
    std::vector<std::size_t> seen = count.stop();
    // One copy for the parameter, then `initial` and `accumulator`.
    EXPECT_EQ(seen, (std::vector<std::size_t>{4, 4, 4}));
  }
  {
    AllocationCount count;
    ReducingSubscriber<DataBuffer, DataBuffer> folder(reducer, DataBuffer());
    EXPECT_TRUE(count.stop().empty());
  }
}

TEST(ReduceToDataBufferAllocation, FoldGrowsGeometricallyAndNeverCopiesAnItem) {
  constexpr std::size_t kChunks = 1000;
  constexpr std::size_t kChunkSize = 1000;
  std::vector<DataBuffer> chunks;
  for (std::size_t i = 0; i < kChunks; ++i) {
    chunks.emplace_back(std::string(kChunkSize, static_cast<char>('a' + i % 26)));
  }
  auto publisher = std::make_shared<testing::ManualPublisher<DataBuffer>>();
  Future<DataBuffer> joined = reduceSerializedPublisherToDataBuffer(publisher);

  AllocationCount count;
  for (DataBuffer& chunk : chunks) {
    publisher->next(std::move(chunk));
  }
  std::vector<std::size_t> seen = count.stop();
  publisher->complete();

  // 1000 -> 2000 -> ... -> 1024000: one malloc and ten reallocs, nothing per item.
  EXPECT_EQ(seen.size(), 11u);
  EXPECT_EQ(seen.front(), kChunkSize);
  EXPECT_EQ(seen.back(), kChunkSize * 1024);
  DataBuffer bytes = joined.get();
  EXPECT_EQ(bytes.size, kChunks * kChunkSize);
  EXPECT_EQ(chunks[999].size, kChunkSize);  // items are only read
}

}  // namespace
}  // namespace connector::json

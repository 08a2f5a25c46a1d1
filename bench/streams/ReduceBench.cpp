// Folding byte streams into one buffer, measured against the raw work it stands for:
//   - 64 MiB in 16,384 chunks of 4 KiB versus one memcpy of 64 MiB into freshly
//     allocated memory, timed alternately in the same iterations (counter vs_memcpy,
//     the goal is >= 0.8);
//   - time per byte for totals from 1 MiB to 64 MiB (counter vs_1MiB: per-byte time
//     relative to the 1 MiB total; the goal is to stay within 20 %), each beside a
//     memcpy of the same total into fresh memory (counter vs_memcpy), since above the
//     C allocator's mapping threshold every fresh block costs page faults for both;
//   - a one-shot publisher of 100 bytes reduced to a buffer, per call, versus copying
//     those 100 bytes into a fresh buffer (counters ns_per_call, vs_copy).
#include <benchmark/benchmark.h>

#include <connector/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using connector::Future;
using connector::common::DataBuffer;
using connector::json::reduceSerializedPublisherToDataBuffer;
using connector::reactive_streams::OneShotPublisher;
using connector::reactive_streams::PublisherAPI;
using connector::reactive_streams::SubscriberAPI;
using connector::reactive_streams::Subscription;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kChunk = 4096;
constexpr std::size_t kMiB = 1024 * 1024;

// Publishes prepared chunks synchronously, all at the first request. The chunks are
// handed out as rvalue references; the joining reducer only reads them, so the same
// chunks serve every iteration (checked after each run).
class ChunkPublisher : public PublisherAPI<DataBuffer> {
 public:
  explicit ChunkPublisher(std::vector<DataBuffer>& chunks) : chunks(chunks) {}

  Future<bool> completion() override { return connector::makeReadyFuture<bool>(true); }

  void subscribe(std::shared_ptr<SubscriberAPI<DataBuffer>> s) override {
    subscriber = std::move(s);
    subscriber->onSubscribe(subscription);
  }

 private:
  class Demand : public Subscription {
   public:
    explicit Demand(ChunkPublisher& owner) : owner(owner) {}
    void request(std::int64_t) override {
      if (!done) {
        done = true;
        for (DataBuffer& chunk : owner.chunks) {
          owner.subscriber->onNext(std::move(chunk));
        }
        owner.subscriber->onComplete();
      }
    }
    void cancel() override { done = true; }

   private:
    ChunkPublisher& owner;
    bool done = false;
  };

  std::vector<DataBuffer>& chunks;
  std::shared_ptr<SubscriberAPI<DataBuffer>> subscriber;
  std::shared_ptr<Subscription> subscription = std::make_shared<Demand>(*this);
};

std::vector<DataBuffer> makeChunks(std::size_t total) {
  std::vector<DataBuffer> chunks;
  std::vector<std::uint8_t> bytes(kChunk);
  for (std::size_t i = 0; i < total / kChunk; ++i) {
    std::fill(bytes.begin(), bytes.end(), static_cast<std::uint8_t>(i));
    chunks.emplace_back(bytes.data(), bytes.size());
  }
  return chunks;
}

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Joins the chunks once; returns the seconds taken (releasing the result included).
double timeReduce(std::vector<DataBuffer>& chunks, std::size_t total, benchmark::State& state) {
  const auto start = Clock::now();
  {
    Future<DataBuffer> joined =
        reduceSerializedPublisherToDataBuffer(std::make_shared<ChunkPublisher>(chunks));
    DataBuffer bytes = joined.get();
    if (bytes.size != total) {
      state.SkipWithError("joined buffer has the wrong size");
    }
    benchmark::DoNotOptimize(bytes.data);
  }
  return secondsSince(start);
}

// One memcpy of `total` bytes into fresh memory; returns the seconds taken (release
// included, like the reduce).
double timeMemcpy(const std::uint8_t* source, std::size_t total) {
  const auto start = Clock::now();
  void* target = std::malloc(total);
  if (target == nullptr) {
    throw std::bad_alloc();
  }
  std::memcpy(target, source, total);
  benchmark::DoNotOptimize(target);
  benchmark::ClobberMemory();
  std::free(target);
  return secondsSince(start);
}

void BM_ReduceChunksVersusMemcpy(benchmark::State& state) {
  const std::size_t total = 64 * kMiB;
  std::vector<DataBuffer> chunks = makeChunks(total);
  std::vector<std::uint8_t> source(total, 0x5a);
  double reduceSeconds = 0;
  double memcpySeconds = 0;
  for (auto _ : state) {
    const double reduce = timeReduce(chunks, total, state);
    memcpySeconds += timeMemcpy(source.data(), total);
    reduceSeconds += reduce;
    state.SetIterationTime(reduce);
  }
  if (chunks.back().size != kChunk) {
    state.SkipWithError("a chunk was taken instead of read");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * total));
  state.counters["vs_memcpy"] = memcpySeconds / reduceSeconds;
  state.counters["memcpy_GiB_per_s"] =
      static_cast<double>(state.iterations() * total) / memcpySeconds / (1024.0 * kMiB);
  state.SetLabel("16384 chunks of 4 KiB");
}
BENCHMARK(BM_ReduceChunksVersusMemcpy)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);

// Per-byte time of each total (fold, and memcpy into fresh memory), kept for the
// flatness summary.
struct PerByte {
  double reduce = 0;
  double memcpy = 0;
};
std::map<std::size_t, PerByte>& perByteSeconds() {
  static std::map<std::size_t, PerByte> seen;
  return seen;
}

void BM_ReducePerByte(benchmark::State& state) {
  const std::size_t total = static_cast<std::size_t>(state.range(0)) * kMiB;
  std::vector<DataBuffer> chunks = makeChunks(total);
  std::vector<std::uint8_t> source(total, 0x5a);
  double reduceSeconds = 0;
  double memcpySeconds = 0;
  for (auto _ : state) {
    const double once = timeReduce(chunks, total, state);
    memcpySeconds += timeMemcpy(source.data(), total);
    reduceSeconds += once;
    state.SetIterationTime(once);
  }
  const double bytes = static_cast<double>(state.iterations() * total);
  PerByte& entry = perByteSeconds()[total];
  entry.reduce = reduceSeconds / bytes;
  entry.memcpy = memcpySeconds / bytes;
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * total));
  state.counters["ns_per_byte"] = entry.reduce * 1e9;
  state.counters["vs_memcpy"] = memcpySeconds / reduceSeconds;
  if (auto first = perByteSeconds().find(kMiB); first != perByteSeconds().end()) {
    state.counters["vs_1MiB"] = entry.reduce / first->second.reduce;
  }
}
BENCHMARK(BM_ReducePerByte)
    ->RangeMultiplier(2)
    ->Range(1, 64)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(1.0);

void BM_OneShotReduce100Bytes(benchmark::State& state) {
  constexpr int kBatch = 1000;
  const std::string payload(100, 'j');
  const DataBuffer source(payload);
  double reduceSeconds = 0;
  double copySeconds = 0;
  for (auto _ : state) {
    auto start = Clock::now();
    for (int i = 0; i < kBatch; ++i) {
      DataBuffer bytes(source);
      std::shared_ptr<PublisherAPI<DataBuffer>> publisher =
          std::make_shared<OneShotPublisher<DataBuffer>>(std::move(bytes));
      DataBuffer joined = reduceSerializedPublisherToDataBuffer(std::move(publisher)).get();
      benchmark::DoNotOptimize(joined.data);
    }
    const double reduce = secondsSince(start);
    start = Clock::now();
    for (int i = 0; i < kBatch; ++i) {
      DataBuffer copy(source);
      benchmark::DoNotOptimize(copy.data);
    }
    copySeconds += secondsSince(start);
    reduceSeconds += reduce;
    state.SetIterationTime(reduce);
  }
  const double calls = static_cast<double>(state.iterations()) * kBatch;
  state.counters["ns_per_call"] = reduceSeconds / calls * 1e9;
  state.counters["copy_ns_per_call"] = copySeconds / calls * 1e9;
  state.counters["vs_copy"] = copySeconds / reduceSeconds;
  state.SetLabel("publisher + reduce + get of 100 bytes, per batch of 1000");
}
BENCHMARK(BM_OneShotReduce100Bytes)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  const auto& seen = perByteSeconds();
  if (seen.size() > 1) {
    auto spread = [&seen](auto measure) {
      double low = measure(seen.begin()->second);
      double high = low;
      for (const auto& entry : seen) {
        low = std::min(low, measure(entry.second));
        high = std::max(high, measure(entry.second));
      }
      return high / low;
    };
    std::printf("per-byte time from %zu MiB to %zu MiB, max/min (goal <= 1.20):\n",
                seen.begin()->first / kMiB, seen.rbegin()->first / kMiB);
    std::printf("  fold:                               %.3f\n",
                spread([](const PerByte& p) { return p.reduce; }));
    std::printf("  memcpy into fresh memory:           %.3f\n",
                spread([](const PerByte& p) { return p.memcpy; }));
    std::printf("  fold relative to memcpy (same size): %.3f\n",
                spread([](const PerByte& p) { return p.reduce / p.memcpy; }));
  }
  return 0;
}

// DataBuffer::append of 4 KiB chunks into a fresh buffer until it holds 64 MiB, against
// one memcpy of the same 64 MiB into freshly allocated memory.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include <connector/json.hpp>

#include "PairedTiming.hpp"

namespace connector::bench {
namespace {

constexpr std::size_t kChunkSize = 4 * 1024;
constexpr std::size_t kTotal = 64 * 1024 * 1024;

void BM_DataBufferAppend(benchmark::State& state) {
  std::vector<std::uint8_t> source(kTotal);
  for (std::size_t i = 0; i < kTotal; ++i) {
    source[i] = static_cast<std::uint8_t>(i * 2654435761u >> 24);
  }
  std::vector<common::DataBuffer> chunks;
  chunks.reserve(kTotal / kChunkSize);
  for (std::size_t at = 0; at < kTotal; at += kChunkSize) {
    chunks.emplace_back(source.data() + at, kChunkSize);
  }

  auto appendAll = [&] {
    common::DataBuffer joined;
    for (const auto& chunk : chunks) {
      joined.append(chunk);
    }
    benchmark::DoNotOptimize(joined.data);
    benchmark::ClobberMemory();
  };
  auto copyOnce = [&] {
    void* fresh = std::malloc(kTotal);
    std::memcpy(fresh, source.data(), kTotal);
    benchmark::DoNotOptimize(fresh);
    benchmark::ClobberMemory();
    std::free(fresh);
  };

  PairedTiming timing;
  bool connectorFirst = true;
  for (auto _ : state) {
    if (connectorFirst) {
      timing.connector(appendAll);
      timing.baseline(copyOnce);
    } else {
      timing.baseline(copyOnce);
      timing.connector(appendAll);
    }
    connectorFirst = !connectorFirst;
  }
  timing.reportBandwidthRatio(state, kTotal, "vs malloc+memcpy, goal >= 0.8");
}
BENCHMARK(BM_DataBufferAppend)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace
}  // namespace connector::bench

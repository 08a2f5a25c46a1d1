// Entry point of the foundation benchmarks (futures, byte buffers, stream parsing).
#include <benchmark/benchmark.h>

BENCHMARK_MAIN();

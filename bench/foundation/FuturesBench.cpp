// Promise/Future against std::promise/std::future: one-thread round trips (create, set,
// get) and hand-offs between two threads that block and wake each time.
#include <benchmark/benchmark.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include <connector/json.hpp>

#include "PairedTiming.hpp"

namespace connector::bench {
namespace {

constexpr int kRoundTrips = 2000;

void connectorRoundTrips(long& sink) {
  for (int i = 0; i < kRoundTrips; ++i) {
    Promise<bool> promise;
    Future<bool> future = promise.getFuture();
    promise.setValue(true);
    sink += future.get();
  }
}

void stdRoundTrips(long& sink) {
  for (int i = 0; i < kRoundTrips; ++i) {
    std::promise<bool> promise;
    std::future<bool> future = promise.get_future();
    promise.set_value(true);
    sink += future.get();
  }
}

// Create, set and get on one thread.
void BM_PromiseFutureOneThread(benchmark::State& state) {
  PairedTiming timing;
  long sink = 0;
  bool connectorFirst = true;
  for (auto _ : state) {
    if (connectorFirst) {
      timing.connector([&] { connectorRoundTrips(sink); });
      timing.baseline([&] { stdRoundTrips(sink); });
    } else {
      timing.baseline([&] { stdRoundTrips(sink); });
      timing.connector([&] { connectorRoundTrips(sink); });
    }
    connectorFirst = !connectorFirst;
  }
  benchmark::DoNotOptimize(sink);
  timing.reportTimeRatio(state, kRoundTrips, "vs std::promise/future, goal <= 0.5");
}
BENCHMARK(BM_PromiseFutureOneThread)->UseRealTime();

constexpr int kHandOffs = 500;  // ping-pong rounds; two hand-offs each

// The main thread sends i, an echo thread answers i + 1; each get blocks until the
// other thread resolves. Promises and futures are made before the clock starts.
template <template <typename> class P, template <typename> class F, typename GetFuture,
          typename Set>
double pingPong(GetFuture getFuture, Set set) {
  std::vector<P<int>> requests(kHandOffs);
  std::vector<P<int>> answers(kHandOffs);
  std::vector<F<int>> requestFutures;
  std::vector<F<int>> answerFutures;
  for (int i = 0; i < kHandOffs; ++i) {
    requestFutures.push_back(getFuture(requests[i]));
    answerFutures.push_back(getFuture(answers[i]));
  }
  std::atomic<bool> ready{false};
  std::thread echo([&] {
    ready.store(true);
    for (int i = 0; i < kHandOffs; ++i) {
      set(answers[i], requestFutures[i].get() + 1);
    }
  });
  while (!ready.load()) {
    std::this_thread::yield();
  }
  const auto start = std::chrono::steady_clock::now();
  long sink = 0;
  for (int i = 0; i < kHandOffs; ++i) {
    set(requests[i], i);
    sink += answerFutures[i].get();
  }
  const auto stop = std::chrono::steady_clock::now();
  echo.join();
  benchmark::DoNotOptimize(sink);
  return std::chrono::duration<double, std::nano>(stop - start).count();
}

double connectorPingPong() {
  return pingPong<Promise, Future>([](Promise<int>& p) { return p.getFuture(); },
                                   [](Promise<int>& p, int v) { p.setValue(std::move(v)); });
}

double stdPingPong() {
  return pingPong<std::promise, std::future>([](std::promise<int>& p) { return p.get_future(); },
                                             [](std::promise<int>& p, int v) { p.set_value(v); });
}

void BM_PromiseFutureCrossThread(benchmark::State& state) {
  PairedTiming timing;
  bool connectorFirst = true;
  for (auto _ : state) {
    if (connectorFirst) {
      timing.addConnector(connectorPingPong());
      timing.addBaseline(stdPingPong());
    } else {
      timing.addBaseline(stdPingPong());
      timing.addConnector(connectorPingPong());
    }
    connectorFirst = !connectorFirst;
  }
  timing.reportTimeRatio(state, 2.0 * kHandOffs,
                         "per hand-off vs std::promise/future, goal <= 1.0");
}
BENCHMARK(BM_PromiseFutureCrossThread)->UseRealTime()->MinTime(1.0);

}  // namespace
}  // namespace connector::bench

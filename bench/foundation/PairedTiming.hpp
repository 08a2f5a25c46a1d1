// PairedTiming: times the library and the raw dependency doing the same work inside
// one benchmark, alternately, so that both see the same machine load; reports both
// and their ratio as counters.
//
//   PairedTiming timing;
//   for (auto _ : state) {
//     timing.connector([&] { ...library... });
//     timing.baseline([&] { ...raw dependency... });
//   }
//   timing.reportTimeRatio(state, kOpsPerIteration, "goal <= 0.5");
//
// Counters: the mean cost of each side, the ratio of the means, and the median of the
// per-iteration ratios ("median_*"), which a burst of load from other processes on a
// shared machine moves far less than the means.
//
// Thread-safety: one benchmark thread.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace connector::bench {

class PairedTiming {
 public:
  template <typename F>
  void connector(F&& work) {
    addConnector(timed(work));
  }
  template <typename F>
  void baseline(F&& work) {
    addBaseline(timed(work));
  }

  // For work that times itself (e.g. excluding its set-up), in nanoseconds.
  void addConnector(double ns) {
    connectorNs += ns;
    connectorRuns.push_back(ns);
  }
  void addBaseline(double ns) {
    baselineNs += ns;
    baselineRuns.push_back(ns);
  }

  // Counters in ns per operation and the ratios connector time / baseline time.
  void reportTimeRatio(benchmark::State& state, double opsPerIteration, const char* goal) {
    const double ops = opsPerIteration * static_cast<double>(state.iterations());
    state.counters["connector_ns"] = connectorNs / ops;
    state.counters["baseline_ns"] = baselineNs / ops;
    state.counters["time_ratio"] = connectorNs / baselineNs;
    state.counters["median_time_ratio"] = medianRatio(connectorRuns, baselineRuns);
    state.SetLabel(goal);
  }

  // Counters in MiB/s and the ratios connector bandwidth / baseline bandwidth.
  void reportBandwidthRatio(benchmark::State& state, double bytesPerIteration, const char* goal) {
    const double mib = bytesPerIteration * static_cast<double>(state.iterations()) / 1048576.0;
    state.counters["connector_MiBps"] = mib / (connectorNs * 1e-9);
    state.counters["baseline_MiBps"] = mib / (baselineNs * 1e-9);
    state.counters["bandwidth_ratio"] = baselineNs / connectorNs;
    state.counters["median_bandwidth_ratio"] = medianRatio(baselineRuns, connectorRuns);
    state.SetLabel(goal);
  }

 private:
  template <typename F>
  static double timed(F& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const auto stop = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::nano>(stop - start).count();
  }

  // Median of numerator[i] / denominator[i] over the iterations.
  static double medianRatio(const std::vector<double>& numerator,
                            const std::vector<double>& denominator) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < std::min(numerator.size(), denominator.size()); ++i) {
      ratios.push_back(numerator[i] / denominator[i]);
    }
    if (ratios.empty()) {
      return 0;
    }
    const auto middle = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2);
    std::nth_element(ratios.begin(), middle, ratios.end());
    return *middle;
  }

  double connectorNs = 0;
  double baselineNs = 0;
  std::vector<double> connectorRuns;
  std::vector<double> baselineRuns;
};

}  // namespace connector::bench

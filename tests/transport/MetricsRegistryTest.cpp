// The metrics registry behind GET /metrics: handles by name and labels, and the text
// exposition.
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <connector/transport/MetricsRegistry.hpp>

#include "support/ExpectThrow.hpp"

namespace {

using connector::transport::MetricsRegistry;

TEST(MetricsRegistryTest, TheSameNameAndLabelsGiveTheSameCounter) {
  MetricsRegistry registry;
  auto a = registry.counter("requests_total", "Requests", {{"status", "200"}});
  auto b = registry.counter("requests_total", "ignored", {{"status", "200"}});
  auto other = registry.counter("requests_total", "Requests", {{"status", "404"}});
  a.increment();
  b.increment(2);
  b.increment(-5);  // ignored: a counter only grows
  EXPECT_EQ(a.value(), 3);
  EXPECT_EQ(other.value(), 0);
  EXPECT_EQ(MetricsRegistry::Counter().value(), 0);  // a default handle does nothing
}

TEST(MetricsRegistryTest, TheExpositionIsPrometheusText) {
  MetricsRegistry registry;
  registry.counter("requests_total", "Requests answered", {{"status", "200"}}).increment(4);
  auto open = registry.gauge("connections_open", "Connections open");
  open.increment(3);
  open.decrement();
  registry.histogram("duration_seconds", "Durations", {0.1, 1}).observe(0.5);
  const std::string text = registry.exposition();
  EXPECT_NE(text.find("# HELP requests_total Requests answered\n# TYPE requests_total counter\n"
                      "requests_total{status=\"200\"} 4\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("# TYPE connections_open gauge\nconnections_open 2\n"), std::string::npos)
      << text;
  EXPECT_NE(text.find("duration_seconds_bucket{le=\"0.1\"} 0\n"), std::string::npos) << text;
  EXPECT_NE(text.find("duration_seconds_bucket{le=\"1\"} 1\n"), std::string::npos) << text;
  EXPECT_NE(text.find("duration_seconds_count 1\n"), std::string::npos) << text;
}

TEST(MetricsRegistryTest, ANameTakenByAnotherKindIsRefused) {
  MetricsRegistry registry;
  registry.counter("things", "Things");
  EXPECT_THROW_TEXT(registry.gauge("things", "Things"), std::invalid_argument,
                    "Metric 'things' is already a counter");
}

TEST(MetricsRegistryTest, CountersCountEveryIncrementFromManyThreads) {
  MetricsRegistry registry;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&registry, t] {
      auto counter = registry.counter("hits_total", "Hits", {{"thread", std::to_string(t % 2)}});
      for (int i = 0; i < 10000; ++i) counter.increment();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(registry.counter("hits_total", "Hits", {{"thread", "0"}}).value(), 20000);
  EXPECT_EQ(registry.counter("hits_total", "Hits", {{"thread", "1"}}).value(), 20000);
}

}  // namespace

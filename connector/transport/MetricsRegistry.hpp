// connector::transport::MetricsRegistry: the metrics of the transports in one process,
// exposed as Prometheus text (the gateway answers GET /metrics with exposition()).
// Counters, gauges and histograms are made by name and labels; the handles they return
// stay valid as long as the registry.
//
//   auto metrics = std::make_shared<connector::transport::MetricsRegistry>();
//   auto served = metrics->counter("connector_nats_requests_total", "NATS requests",
//                                  {{"status", "200"}});
//   served.increment();
//   std::string text = metrics->exposition();   // "# HELP connector_nats_requests_total ..."
//
// One registry may be shared by several transports (HttpGatewayOptions::metrics), so that
// one /metrics shows all of them.
//
// Thread-safety: every operation may be called from any thread at once; the handles'
// updates are lock-free (a histogram takes a short lock of its own).
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "connector/Export.hpp"

namespace connector::transport {

class CONNECTOR_API MetricsRegistry {
  struct Cell;  // the metric behind a handle

 public:
  using Labels = std::map<std::string, std::string>;

  // A monotonically increasing count. A default-made handle does nothing.
  class CONNECTOR_API Counter {
   public:
    Counter() = default;
    // Adds `amount` (not negative; a negative amount is ignored). Never throws.
    void increment(double amount = 1.0) const noexcept;
    // The count so far (0 for a default-made handle).
    double value() const noexcept;

   private:
    friend class MetricsRegistry;
    explicit Counter(Cell* cell) : cell(cell) {}
    Cell* cell = nullptr;
  };

  // A value that goes up and down. A default-made handle does nothing.
  class CONNECTOR_API Gauge {
   public:
    Gauge() = default;
    void increment(double amount = 1.0) const noexcept;
    void decrement(double amount = 1.0) const noexcept;
    void set(double value) const noexcept;
    double value() const noexcept;

   private:
    friend class MetricsRegistry;
    explicit Gauge(Cell* cell) : cell(cell) {}
    Cell* cell = nullptr;
  };

  // Observations counted into buckets. A default-made handle does nothing.
  class CONNECTOR_API Histogram {
   public:
    Histogram() = default;
    void observe(double value) const noexcept;

   private:
    friend class MetricsRegistry;
    explicit Histogram(Cell* cell) : cell(cell) {}
    Cell* cell = nullptr;
  };

  MetricsRegistry();
  ~MetricsRegistry();
  MetricsRegistry(const MetricsRegistry&) = delete;
  MetricsRegistry& operator=(const MetricsRegistry&) = delete;

  // The counter `name` with these labels, made on first use (the family's help text is
  // the one given first). Throws std::invalid_argument "Metric '<name>' is already a
  // <kind>" when the name is taken by a gauge or histogram, and std::invalid_argument
  // from the metrics library for a name or label that is not valid Prometheus.
  Counter counter(const std::string& name, const std::string& help, const Labels& labels = {});

  // The gauge `name` with these labels, made on first use. Throws as counter().
  Gauge gauge(const std::string& name, const std::string& help, const Labels& labels = {});

  // The histogram `name` with these labels and bucket upper bounds (increasing, in the
  // unit of the observations), made on first use; a later call's bounds are ignored.
  // Throws as counter().
  Histogram histogram(const std::string& name, const std::string& help,
                      const std::vector<double>& bucketBounds, const Labels& labels = {});

  // Every metric in the Prometheus text exposition format (version 0.0.4).
  std::string exposition() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl;
};

}  // namespace connector::transport

#include "connector/transport/MetricsRegistry.hpp"

#include <deque>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>

namespace connector::transport {

struct MetricsRegistry::Cell {
  prometheus::Counter* counter = nullptr;
  prometheus::Gauge* gauge = nullptr;
  prometheus::Histogram* histogram = nullptr;
};

struct MetricsRegistry::Impl {
  enum class Kind { Counter, Gauge, Histogram };
  struct Family {
    Kind kind;
    void* family;  // prometheus::Family<T>* of the kind
  };

  // The family `name` of `kind`, registered on first use. Caller holds mutex.
  template <typename T>
  prometheus::Family<T>& family(const std::string& name, const std::string& help, Kind kind,
                                prometheus::detail::Builder<T> builder) {
    auto found = families.find(name);
    if (found != families.end()) {
      if (found->second.kind != kind) {
        static const char* const kinds[] = {"counter", "gauge", "histogram"};
        throw std::invalid_argument("Metric '" + name + "' is already a " +
                                    kinds[static_cast<int>(found->second.kind)]);
      }
      return *static_cast<prometheus::Family<T>*>(found->second.family);
    }
    prometheus::Family<T>& made = builder.Name(name).Help(help).Register(registry);
    families.emplace(name, Family{kind, &made});
    return made;
  }

  Cell* keep(Cell cell) {
    cells.push_back(cell);
    return &cells.back();
  }

  std::mutex mutex;  // guards families and cells; the registry locks for itself
  prometheus::Registry registry;
  std::map<std::string, Family> families;
  std::deque<Cell> cells;  // stable addresses for the handles
};

MetricsRegistry::MetricsRegistry() : impl(std::make_unique<Impl>()) {}
MetricsRegistry::~MetricsRegistry() = default;

MetricsRegistry::Counter MetricsRegistry::counter(const std::string& name, const std::string& help,
                                                  const Labels& labels) {
  std::lock_guard<std::mutex> lock(impl->mutex);
  auto& family = impl->family(name, help, Impl::Kind::Counter, prometheus::BuildCounter());
  Cell cell;
  cell.counter = &family.Add({labels.begin(), labels.end()});
  return Counter(impl->keep(cell));
}

MetricsRegistry::Gauge MetricsRegistry::gauge(const std::string& name, const std::string& help,
                                              const Labels& labels) {
  std::lock_guard<std::mutex> lock(impl->mutex);
  auto& family = impl->family(name, help, Impl::Kind::Gauge, prometheus::BuildGauge());
  Cell cell;
  cell.gauge = &family.Add({labels.begin(), labels.end()});
  return Gauge(impl->keep(cell));
}

MetricsRegistry::Histogram MetricsRegistry::histogram(const std::string& name,
                                                      const std::string& help,
                                                      const std::vector<double>& bucketBounds,
                                                      const Labels& labels) {
  std::lock_guard<std::mutex> lock(impl->mutex);
  auto& family = impl->family(name, help, Impl::Kind::Histogram, prometheus::BuildHistogram());
  Cell cell;
  cell.histogram = &family.Add({labels.begin(), labels.end()},
                               prometheus::Histogram::BucketBoundaries(bucketBounds));
  return Histogram(impl->keep(cell));
}

std::string MetricsRegistry::exposition() const {
  std::ostringstream out;
  prometheus::TextSerializer().Serialize(out, impl->registry.Collect());
  return out.str();
}

void MetricsRegistry::Counter::increment(double amount) const noexcept {
  if (cell != nullptr && amount >= 0) cell->counter->Increment(amount);
}

double MetricsRegistry::Counter::value() const noexcept {
  return cell != nullptr ? cell->counter->Value() : 0;
}

void MetricsRegistry::Gauge::increment(double amount) const noexcept {
  if (cell != nullptr) cell->gauge->Increment(amount);
}

void MetricsRegistry::Gauge::decrement(double amount) const noexcept {
  if (cell != nullptr) cell->gauge->Decrement(amount);
}

void MetricsRegistry::Gauge::set(double value) const noexcept {
  if (cell != nullptr) cell->gauge->Set(value);
}

double MetricsRegistry::Gauge::value() const noexcept {
  return cell != nullptr ? cell->gauge->Value() : 0;
}

void MetricsRegistry::Histogram::observe(double value) const noexcept {
  if (cell != nullptr) cell->histogram->Observe(value);
}

}  // namespace connector::transport

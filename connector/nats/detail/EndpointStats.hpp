// detail::EndpointStats: a NatsListener's figures per address served, for the NATS
// services protocol's STATS: requests, errors (answers other than 200), the last error's
// text and the time spent delivering, in nanoseconds. Private to connector/nats.
//
//   stats.record("shop/ReserveItem", 200, 41000, "");
//   EndpointView view{...};
//   stats.fill(view);   // view.requests, errors, processingNanos, lastError
//
// Thread-safety: every operation from any thread (one mutex, held to update or copy).
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

#include "connector/nats/detail/ServiceDiscovery.hpp"

namespace connector::nats::detail {

class EndpointStats {
 public:
  // Counts one request at `address` answered with `status` after `nanos` of delivery;
  // `errorText` is the failure's text (for a status other than 200).
  void record(const std::string& address, int status, std::int64_t nanos,
              const std::string& errorText);
  // Copies the figures of view.address into `view` (zeros when it has none).
  void fill(EndpointView& view) const;
  // Whether `address` has figures.
  bool has(const std::string& address) const;

 private:
  struct Figures {
    std::uint64_t requests = 0;
    std::uint64_t errors = 0;
    std::int64_t processingNanos = 0;
    std::string lastError;
  };
  mutable std::mutex mutex;
  std::unordered_map<std::string, Figures> table;  // guarded by mutex
};

}  // namespace connector::nats::detail

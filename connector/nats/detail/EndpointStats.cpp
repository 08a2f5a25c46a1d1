#include "connector/nats/detail/EndpointStats.hpp"

namespace connector::nats::detail {

void EndpointStats::record(const std::string& address, int status, std::int64_t nanos,
                           const std::string& errorText) {
  std::lock_guard<std::mutex> lock(mutex);
  Figures& figures = table[address];
  ++figures.requests;
  figures.processingNanos += nanos;
  if (status != 200) {
    ++figures.errors;
    figures.lastError = errorText;
  }
}

void EndpointStats::fill(EndpointView& view) const {
  std::lock_guard<std::mutex> lock(mutex);
  const auto found = table.find(view.address);
  if (found == table.end()) return;
  view.requests = found->second.requests;
  view.errors = found->second.errors;
  view.processingNanos = found->second.processingNanos;
  view.lastError = found->second.lastError;
}

bool EndpointStats::has(const std::string& address) const {
  std::lock_guard<std::mutex> lock(mutex);
  return table.count(address) != 0;
}

}  // namespace connector::nats::detail

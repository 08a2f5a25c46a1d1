#include "connector/transport/DeliveryDeadline.hpp"

#include <algorithm>

namespace connector::transport {

namespace {

thread_local std::optional<DeliveryDeadline::Clock::time_point> innermost;

}  // namespace

DeliveryDeadline::DeliveryDeadline(Clock::time_point deadline) noexcept : previous(innermost) {
  innermost = previous ? std::min(*previous, deadline) : deadline;
}

DeliveryDeadline::~DeliveryDeadline() { innermost = previous; }

std::optional<DeliveryDeadline::Clock::time_point> DeliveryDeadline::current() noexcept {
  return innermost;
}

}  // namespace connector::transport

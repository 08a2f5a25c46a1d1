// connector::transport::DeliveryDeadline: the moment by which whoever waits for the
// delivery running on this thread stops waiting, so that a link sending the request on
// to another process can tell the far side how long is left (NatsLink sends it as the
// header Connector-Timeout-Ms), and a far side can skip work nobody waits for.
//
//   {
//     DeliveryDeadline scope(Clock::now() + std::chrono::seconds(2));  // set by a transport
//     router->deliver(std::move(request), Address(address)).get();     // a link reads it
//   }
//   std::optional<DeliveryDeadline::Clock::time_point> left = DeliveryDeadline::current();
//
// deliverForAnswer opens one for the deadline it is given; the HTTP gateway gives its
// delivery time-out, a NATS listener the requester's Connector-Timeout-Ms. Scopes nest:
// an inner one never extends an outer one (the earlier deadline holds).
//
// Thread-safety: each thread has its own; a scope is opened and closed on one thread
// (it lives on the stack). Deliveries that continue on another thread do not carry it.
#pragma once

#include <chrono>
#include <optional>

#include "connector/Export.hpp"

namespace connector::transport {

class CONNECTOR_API DeliveryDeadline {
 public:
  using Clock = std::chrono::steady_clock;

  // Until the scope ends, current() on this thread is the earlier of `deadline` and the
  // deadline of an enclosing scope. Never throws.
  explicit DeliveryDeadline(Clock::time_point deadline) noexcept;
  ~DeliveryDeadline();
  DeliveryDeadline(const DeliveryDeadline&) = delete;
  DeliveryDeadline& operator=(const DeliveryDeadline&) = delete;

  // The deadline of the innermost scope open on this thread; none outside every scope.
  static std::optional<Clock::time_point> current() noexcept;

 private:
  std::optional<Clock::time_point> previous;
};

}  // namespace connector::transport

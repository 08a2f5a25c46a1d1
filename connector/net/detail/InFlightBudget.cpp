#include "connector/net/detail/InFlightBudget.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace connector::net::detail {

// The counters are sequentially consistent: a waiter queued while another request gives
// its bytes back is seen by one of the two (the waiter looks at `used` after counting
// itself in `waiting`; the releaser looks at `waiting` after lowering `used`).

bool InFlightBudget::take(std::size_t bytes) noexcept {
  std::size_t current = used.load();
  while (current == 0 || current + bytes <= limit) {
    if (used.compare_exchange_weak(current, current + bytes)) return true;
  }
  return false;
}

bool InFlightBudget::acquire(std::size_t bytes, std::uint64_t id, std::function<void()> granted) {
  if (tryAcquire(bytes)) {
    granted();
    return true;
  }
  std::vector<std::function<void()>> grants;
  {
    std::lock_guard<std::mutex> lock(mutex);
    waiters.push_back(Waiter{bytes, id, std::move(granted)});
    waiting.fetch_add(1);
    // A release may have come between the look above and the queueing.
    grants = takeFitting();
  }
  for (auto& grant : grants) grant();
  return false;
}

bool InFlightBudget::tryAcquire(std::size_t bytes) {
  // Nobody jumps the queue.
  return waiting.load() == 0 && take(bytes);
}

bool InFlightBudget::cancel(std::uint64_t id) {
  std::vector<std::function<void()>> grants;
  {
    std::lock_guard<std::mutex> lock(mutex);
    auto found =
        std::find_if(waiters.begin(), waiters.end(), [id](const Waiter& w) { return w.id == id; });
    if (found == waiters.end()) return false;
    waiters.erase(found);
    waiting.fetch_sub(1);
    // The ones behind it may fit now.
    grants = takeFitting();
  }
  for (auto& grant : grants) grant();
  return true;
}

void InFlightBudget::release(std::size_t bytes) {
  std::size_t current = used.load();
  while (!used.compare_exchange_weak(current, current - std::min(bytes, current))) {
  }
  if (waiting.load() == 0) return;
  std::vector<std::function<void()>> grants;
  {
    std::lock_guard<std::mutex> lock(mutex);
    grants = takeFitting();
  }
  for (auto& grant : grants) grant();
}

std::vector<std::function<void()>> InFlightBudget::takeFitting() {
  std::vector<std::function<void()>> grants;
  while (!waiters.empty() && take(waiters.front().bytes)) {
    grants.push_back(std::move(waiters.front().granted));
    waiters.pop_front();
    waiting.fetch_sub(1);
  }
  return grants;
}

std::size_t InFlightBudget::inUse() const { return used.load(); }

}  // namespace connector::net::detail

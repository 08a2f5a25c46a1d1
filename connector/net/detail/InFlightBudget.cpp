#include "connector/net/detail/InFlightBudget.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace connector::net::detail {

bool InFlightBudget::acquire(std::size_t bytes, std::uint64_t id, std::function<void()> granted) {
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (!waiters.empty() || !fits(bytes)) {
      waiters.push_back(Waiter{bytes, id, std::move(granted)});
      return false;
    }
    used += bytes;
  }
  granted();
  return true;
}

bool InFlightBudget::tryAcquire(std::size_t bytes) {
  std::lock_guard<std::mutex> lock(mutex);
  if (!waiters.empty() || !fits(bytes)) return false;
  used += bytes;
  return true;
}

bool InFlightBudget::cancel(std::uint64_t id) {
  std::vector<std::function<void()>> grants;
  {
    std::lock_guard<std::mutex> lock(mutex);
    auto found =
        std::find_if(waiters.begin(), waiters.end(), [id](const Waiter& w) { return w.id == id; });
    if (found == waiters.end()) return false;
    waiters.erase(found);
    // The ones behind it may fit now.
    grants = takeFitting();
  }
  for (auto& grant : grants) grant();
  return true;
}

void InFlightBudget::release(std::size_t bytes) {
  std::vector<std::function<void()>> grants;
  {
    std::lock_guard<std::mutex> lock(mutex);
    used -= std::min(bytes, used);
    grants = takeFitting();
  }
  for (auto& grant : grants) grant();
}

std::vector<std::function<void()>> InFlightBudget::takeFitting() {
  std::vector<std::function<void()>> grants;
  while (!waiters.empty() && fits(waiters.front().bytes)) {
    used += waiters.front().bytes;
    grants.push_back(std::move(waiters.front().granted));
    waiters.pop_front();
  }
  return grants;
}

std::size_t InFlightBudget::inUse() const {
  std::lock_guard<std::mutex> lock(mutex);
  return used;
}

}  // namespace connector::net::detail

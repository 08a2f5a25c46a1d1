#include "connector/nats/detail/PendingRequests.hpp"

#include <vector>

#include "connector/nats/detail/RequestFailures.hpp"

namespace connector::nats::detail {

PendingRequests::PendingRequests(std::chrono::milliseconds timeout)
    : limit(timeout), timer([this] { expireLoop(); }) {}

PendingRequests::~PendingRequests() {
  {
    std::lock_guard<std::mutex> lock(mutex);
    stopping = true;
  }
  wake.notify_all();
  try {
    timer.join();
    failAll([](const Entry& entry) { return connectionClosed(entry.subject); });
  } catch (...) {
    // Out of memory for the failures: the promises left are destroyed unresolved, which
    // fails their futures with the broken-promise error instead.
  }
}

std::pair<std::uint64_t, Future<PendingRequests::MessagePtr>> PendingRequests::add(
    std::string subject, std::string address) {
  Promise<MessagePtr> promise;
  Future<MessagePtr> future = promise.getFuture();
  std::lock_guard<std::mutex> lock(mutex);
  const std::uint64_t token = nextToken++;
  table.emplace_hint(
      table.end(), token,
      Entry{std::move(promise), std::move(subject), std::move(address), Clock::now() + limit});
  return {token, std::move(future)};
}

std::optional<PendingRequests::Entry> PendingRequests::take(std::uint64_t token) {
  std::lock_guard<std::mutex> lock(mutex);
  auto found = table.find(token);
  if (found == table.end()) return std::nullopt;
  std::optional<Entry> entry(std::move(found->second));
  table.erase(found);
  return entry;
}

void PendingRequests::failAll(const std::function<std::exception_ptr(const Entry&)>& make) {
  std::map<std::uint64_t, Entry> failing;
  {
    std::lock_guard<std::mutex> lock(mutex);
    failing.swap(table);
  }
  for (auto& [token, entry] : failing) entry.promise.setException(make(entry));
}

std::size_t PendingRequests::size() const {
  std::lock_guard<std::mutex> lock(mutex);
  return table.size();
}

void PendingRequests::expireLoop() {
  std::unique_lock<std::mutex> lock(mutex);
  std::vector<Entry> due;
  while (!stopping) {
    if (table.empty()) {
      wake.wait_for(lock, limit);
      continue;
    }
    const Clock::time_point now = Clock::now();
    if (table.begin()->second.deadline > now) {
      // A copy: the entry may be taken while this thread sleeps.
      const Clock::time_point next = table.begin()->second.deadline;
      wake.wait_until(lock, next);
      continue;
    }
    while (!table.empty() && table.begin()->second.deadline <= now) {
      due.push_back(std::move(table.begin()->second));
      table.erase(table.begin());
    }
    lock.unlock();
    for (Entry& entry : due) {
      entry.promise.setException(timedOut(entry.subject, entry.address, limit));
    }
    due.clear();
    lock.lock();
  }
}

}  // namespace connector::nats::detail

// detail::InFlightBudget: the bytes of request bodies that a gateway reads and delivers
// at once (HttpGatewayOptions::maxInFlightBytes). A request takes its share before its
// body is read and gives it back once its delivery is over; one that does not fit waits,
// first come first served. A request larger than the whole budget still passes when
// nothing else is in flight, so no request waits for ever. Private to connector/net.
//
//   budget.acquire(length, id, [&] { /* granted, maybe on another thread */ });
//   ...
//   budget.release(length);
//
// While nobody waits, taking and giving back are a compare-and-swap on one counter; the
// lock is taken only to queue a waiter, to grant waiters, or to withdraw one.
//
// Thread-safety: every operation may be called from any thread; grants are called
// outside the lock, on the thread that acquires or releases.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace connector::net::detail {

class InFlightBudget {
 public:
  explicit InFlightBudget(std::size_t limit) : limit(limit) {}

  // Takes `bytes` and calls `granted` at once when they fit (and nobody waits before);
  // otherwise queues the request under `id` and calls `granted` when a release makes
  // room. Returns true when granted without being queued.
  bool acquire(std::size_t bytes, std::uint64_t id, std::function<void()> granted);

  // Takes `bytes` only when they fit now (never waits). Returns whether taken.
  bool tryAcquire(std::size_t bytes);

  // Removes the waiting request `id`; returns false when it is not waiting (already
  // granted, or never queued).
  bool cancel(std::uint64_t id);

  // Gives `bytes` back and grants the waiting requests that now fit, in order.
  void release(std::size_t bytes);

  std::size_t inUse() const;

 private:
  struct Waiter {
    std::size_t bytes;
    std::uint64_t id;
    std::function<void()> granted;
  };

  // Takes `bytes` when they fit now; with the counter alone.
  bool take(std::size_t bytes) noexcept;
  // Takes the waiting requests that fit now, in order. Caller holds mutex.
  std::vector<std::function<void()>> takeFitting();

  const std::size_t limit;
  std::atomic<std::size_t> used{0};
  std::atomic<std::size_t> waiting{0};  // waiters.size(), also read without the lock
  mutable std::mutex mutex;
  std::deque<Waiter> waiters;  // guarded by mutex
};

}  // namespace connector::net::detail

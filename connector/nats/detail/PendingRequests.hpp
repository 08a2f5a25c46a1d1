// detail::PendingRequests: a NatsLink's correlation table. Every request sent and not yet
// answered has an entry here under a token (the last token of its reply subject) with
// the promise of its answer; one timer thread fails the entries whose time is up.
// Private to connector/nats.
//
//   PendingRequests pending(std::chrono::milliseconds(30000));
//   auto [token, future] = pending.add("connector.shop.ReserveItem", "shop/ReserveItem");
//   // ... publish with reply subject "<inbox>.<token>"; when the answer arrives:
//   if (auto entry = pending.take(token)) entry->promise.setValue(std::move(answer));
//
// Deadlines: every entry gets the same time-out, and tokens grow with the time of add(),
// so the table ordered by token is ordered by deadline too. The timer thread sleeps until
// the first entry's deadline (or one time-out when the table is empty: an entry added
// meanwhile cannot be due before that), fails what is due and sleeps again; add() never
// wakes it. Promises are resolved outside the table's lock.
//
// Thread-safety: every operation from any thread. The destructor fails what is left with
// "connection closed" and joins the timer thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "connector/futures/Future.hpp"
#include "connector/futures/Promise.hpp"
#include "connector/host/Message.hpp"

namespace connector::nats::detail {

class PendingRequests {
 public:
  using MessagePtr = std::unique_ptr<Message>;
  using Clock = std::chrono::steady_clock;

  struct Entry {
    Promise<MessagePtr> promise;
    std::string subject;
    std::string address;
    Clock::time_point deadline;
  };

  // `timeout` positive.
  explicit PendingRequests(std::chrono::milliseconds timeout);
  ~PendingRequests();
  PendingRequests(const PendingRequests&) = delete;
  PendingRequests& operator=(const PendingRequests&) = delete;

  // A new entry, due one time-out from now: its token and the future of its promise.
  std::pair<std::uint64_t, Future<MessagePtr>> add(std::string subject, std::string address);

  // Removes and returns the entry of `token`; nothing when it was answered, failed or
  // timed out already.
  std::optional<Entry> take(std::uint64_t token);

  // Fails every entry with the error `make(entry)` returns.
  void failAll(const std::function<std::exception_ptr(const Entry&)>& make);

  // Entries waiting for their answer.
  std::size_t size() const;

  std::chrono::milliseconds timeout() const noexcept { return limit; }

 private:
  void expireLoop();

  const std::chrono::milliseconds limit;
  mutable std::mutex mutex;
  std::condition_variable wake;          // stopping
  std::map<std::uint64_t, Entry> table;  // guarded by mutex; by token = by deadline
  std::uint64_t nextToken = 1;           // guarded by mutex
  bool stopping = false;                 // guarded by mutex
  std::thread timer;
};

}  // namespace connector::nats::detail

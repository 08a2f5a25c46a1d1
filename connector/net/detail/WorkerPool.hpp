// detail::WorkerPool: the threads that run a gateway's deliveries, which block in
// Future::get while a service works, so that the I/O threads never do. Private to
// connector/net.
//
//   WorkerPool pool(16);
//   pool.post([] { /* deliver, then post the answer back to the session */ });
//   pool.stop(std::chrono::milliseconds(100));   // waits that long for busy workers
//
// Waking a sleeping thread costs two context switches, more than a small delivery
// itself; so one idle thread at a time keeps looking for work for a few microseconds
// before it sleeps, and a task posted meanwhile wakes nobody. A sleeping thread is woken
// only when no thread is looking and no awake thread is free, so deliveries that block
// still run side by side, up to the number of threads.
//
// A delivery that never returns cannot be interrupted: stop() leaves the threads still
// busy at its deadline detached (they keep what their task holds) and returns.
//
// Thread-safety: post() from any thread until stop(); stop() once, from one thread,
// when nothing posts any more.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace connector::net::detail {

class WorkerPool {
 public:
  explicit WorkerPool(int count);
  // Stops with no grace (see stop()).
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Queues a task; dropped after stop().
  void post(std::function<void()> task);

  // Lets the queued tasks run, waits at most `grace` for every thread to finish, and
  // detaches the threads still busy then; tasks left queued are dropped. Never throws.
  void stop(std::chrono::milliseconds grace) noexcept;

 private:
  // How long an idle thread keeps looking for the next task before it sleeps.
  static constexpr std::chrono::microseconds kLookForWork{100};

  // Outlives the pool while a detached thread still runs.
  struct Shared {
    std::mutex mutex;
    std::condition_variable wake;      // a task for a sleeping thread, or stop
    std::condition_variable finished;  // a thread ended
    std::deque<std::function<void()>> tasks;
    std::size_t free = 0;  // awake threads not running a task (one may be looking)
    bool looking = false;  // a free thread is looking for work before it sleeps
    bool stopping = false;
    std::size_t running = 0;  // threads not ended
  };

  // Runs tasks until the pool stops.
  static void work(Shared& state);

  std::shared_ptr<Shared> shared;
  std::vector<std::thread> threads;
};

}  // namespace connector::net::detail

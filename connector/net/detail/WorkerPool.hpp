// detail::WorkerPool: the threads that run a gateway's deliveries, which block in
// Future::get while a service works, so that the I/O threads never do. Private to
// connector/net.
//
//   WorkerPool pool(16);
//   pool.post([] { /* deliver, then post the answer back to the session */ });
//   pool.stop(std::chrono::seconds(1));   // waits that long for busy workers
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
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

namespace connector::net::detail {

class WorkerPool {
 public:
  explicit WorkerPool(int threads);
  // Stops with no grace (see stop()).
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Queues a task; dropped after stop().
  template <class Task>
  void post(Task&& task) {
    if (shared) boost::asio::post(shared->context, std::forward<Task>(task));
  }

  // Lets the queued tasks run, waits at most `grace` for every thread to finish, and
  // detaches the threads still busy then. Never throws.
  void stop(std::chrono::milliseconds grace) noexcept;

 private:
  // Outlives the pool while a detached thread still runs.
  struct Shared {
    boost::asio::io_context context{};
    std::mutex mutex;
    std::condition_variable finished;
    std::size_t running = 0;  // guarded by mutex
  };
  std::shared_ptr<Shared> shared;
  std::unique_ptr<boost::asio::executor_work_guard<boost::asio::io_context::executor_type>> guard;
  std::vector<std::thread> threads;
};

}  // namespace connector::net::detail

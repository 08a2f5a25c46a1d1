#include "connector/net/detail/WorkerPool.hpp"

namespace connector::net::detail {

WorkerPool::WorkerPool(int count)
    : shared(std::make_shared<Shared>()),
      guard(std::make_unique<
            boost::asio::executor_work_guard<boost::asio::io_context::executor_type>>(
          shared->context.get_executor())) {
  shared->running = static_cast<std::size_t>(count);
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([state = shared] {
      for (;;) {
        try {
          state->context.run();
          break;
        } catch (...) {
          // A task let an exception out; the pool goes on with the next one.
        }
      }
      std::lock_guard<std::mutex> lock(state->mutex);
      --state->running;
      state->finished.notify_all();
    });
  }
}

WorkerPool::~WorkerPool() { stop(std::chrono::milliseconds(0)); }

void WorkerPool::stop(std::chrono::milliseconds grace) noexcept {
  if (threads.empty()) return;
  guard.reset();  // run() returns once the queue is empty and no task runs
  bool allDone = false;
  {
    std::unique_lock<std::mutex> lock(shared->mutex);
    allDone = shared->finished.wait_for(lock, grace, [this] { return shared->running == 0; });
  }
  for (std::thread& thread : threads) {
    if (allDone) {
      thread.join();
    } else {
      thread.detach();
    }
  }
  threads.clear();
  // With every thread gone, tasks posted after the queue ran empty are dropped with the
  // context (nothing runs them any more); detached threads keep it alive instead.
  if (allDone) shared.reset();
}

}  // namespace connector::net::detail

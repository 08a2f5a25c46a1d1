#include "connector/net/detail/WorkerPool.hpp"

#include <utility>

namespace connector::net::detail {

WorkerPool::WorkerPool(int count) : shared(std::make_shared<Shared>()) {
  shared->running = static_cast<std::size_t>(count);
  shared->free = static_cast<std::size_t>(count);
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([state = shared] {
      work(*state);
      std::lock_guard<std::mutex> lock(state->mutex);
      --state->running;
      state->finished.notify_all();
    });
  }
}

WorkerPool::~WorkerPool() { stop(std::chrono::milliseconds(0)); }

void WorkerPool::post(std::function<void()> task) {
  if (!shared) return;
  std::unique_lock<std::mutex> lock(shared->mutex);
  if (shared->stopping) return;
  shared->tasks.push_back(std::move(task));
  // A looking thread takes it; otherwise wake a sleeper when no awake thread is free.
  const bool wake = !shared->looking && shared->free == 0;
  lock.unlock();
  if (wake) shared->wake.notify_one();
}

void WorkerPool::work(Shared& state) {
  std::unique_lock<std::mutex> lock(state.mutex);
  for (;;) {
    if (!state.tasks.empty()) {
      std::function<void()> task = std::move(state.tasks.front());
      state.tasks.pop_front();
      --state.free;
      // More queued than this thread takes, and nobody else to take it: wake a sleeper
      // (this task may block for long).
      const bool wakeAnother = !state.tasks.empty() && !state.looking && state.free == 0;
      lock.unlock();
      if (wakeAnother) state.wake.notify_one();
      try {
        task();
      } catch (...) {
        // A task let an exception out; the pool goes on with the next one.
      }
      task = nullptr;  // what the task holds goes before the lock is taken
      lock.lock();
      ++state.free;
      continue;
    }
    if (state.stopping) return;
    if (!state.looking) {
      // Look for a moment before sleeping, the lock released between looks.
      state.looking = true;
      const auto until = std::chrono::steady_clock::now() + kLookForWork;
      while (state.tasks.empty() && !state.stopping && std::chrono::steady_clock::now() < until) {
        lock.unlock();
        std::this_thread::yield();
        lock.lock();
      }
      state.looking = false;
      if (!state.tasks.empty() || state.stopping) continue;
    }
    // Asleep, this thread is not free: a task posted now wakes one like it.
    --state.free;
    state.wake.wait(lock, [&] { return !state.tasks.empty() || state.stopping; });
    ++state.free;
  }
}

void WorkerPool::stop(std::chrono::milliseconds grace) noexcept {
  if (threads.empty()) return;
  {
    std::lock_guard<std::mutex> lock(shared->mutex);
    shared->stopping = true;
  }
  shared->wake.notify_all();
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
  // With every thread gone, tasks still queued are dropped with the shared state;
  // detached threads keep it alive instead (and run nothing more once idle).
  if (allDone) shared.reset();
}

}  // namespace connector::net::detail

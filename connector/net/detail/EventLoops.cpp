#include "connector/net/detail/EventLoops.hpp"

#include <utility>

namespace connector::net::detail {

thread_local EventLoops::Loop* EventLoops::current = nullptr;
thread_local bool EventLoops::handedOver = false;
thread_local std::uint64_t EventLoops::deliveryWord = 0;

namespace {

// Looks without a delivery seen before the watcher slows down.
constexpr int kQuietLooks = 100;

}  // namespace

EventLoops::EventLoops(int loops, int spares, std::function<void(std::uint32_t)> stuck)
    : shared(std::make_shared<Shared>()), spareCount(spares) {
  shared->loops.reserve(static_cast<std::size_t>(loops));
  for (int i = 0; i < loops; ++i) {
    shared->loops.push_back(std::make_unique<Loop>(static_cast<std::size_t>(i)));
  }
  shared->stuck = std::move(stuck);
}

EventLoops::~EventLoops() { stop(std::chrono::milliseconds(0)); }

boost::asio::io_context& EventLoops::nextLoop() noexcept {
  const std::size_t index = turn.fetch_add(1, std::memory_order_relaxed) % shared->loops.size();
  return shared->loops[index]->io;
}

void EventLoops::start() {
  const std::size_t count = shared->loops.size() + static_cast<std::size_t>(spareCount);
  {
    std::lock_guard<std::mutex> lock(shared->mutex);
    shared->running = count;
    for (std::size_t i = 0; i < shared->loops.size(); ++i) shared->takeovers.push_back(i);
  }
  threads.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    threads.emplace_back([state = shared] {
      work(state);
      std::lock_guard<std::mutex> lock(state->mutex);
      --state->running;
      state->finished.notify_all();
    });
  }
  watcher = std::thread([state = shared] { watch(*state); });
}

void EventLoops::handOff(std::function<void()> task) {
  {
    std::lock_guard<std::mutex> lock(shared->mutex);
    if (shared->stopping) return;
    shared->tasks.push_back(std::move(task));
  }
  shared->wake.notify_one();
}

bool EventLoops::onLoopThread() noexcept { return current != nullptr; }

void EventLoops::beginDelivery(std::uint32_t lane) noexcept {
  Loop* loop = current;
  if (loop == nullptr) return;
  loop->lane.store(lane, std::memory_order_relaxed);
  const std::uint64_t word = loop->word.load(std::memory_order_relaxed);
  deliveryWord = ((word & ~std::uint64_t{3}) + 4) | kDelivering;
  loop->word.store(deliveryWord, std::memory_order_release);
}

bool EventLoops::endDelivery() noexcept {
  Loop* loop = current;
  if (loop == nullptr) return false;
  // Unchanged unless the watcher set kHandedOver (after which the loop's new runner
  // clears it and counts its own deliveries on).
  std::uint64_t word = deliveryWord;
  if (loop->word.compare_exchange_strong(word, word & ~kDelivering, std::memory_order_acq_rel) &&
      !shared->halted.load(std::memory_order_acquire)) {
    return true;
  }
  current = nullptr;
  handedOver = true;
  return false;
}

void EventLoops::work(const std::shared_ptr<Shared>& state) {
  std::unique_lock<std::mutex> lock(state->mutex);
  for (;;) {
    if (!state->takeovers.empty()) {
      Loop& loop = *state->loops[state->takeovers.front()];
      state->takeovers.pop_front();
      lock.unlock();
      runLoop(*state, loop);
      lock.lock();
      continue;
    }
    if (!state->tasks.empty()) {
      std::function<void()> task = std::move(state->tasks.front());
      state->tasks.pop_front();
      lock.unlock();
      try {
        task();
      } catch (...) {
        // A task let an exception out; the thread goes on with the next one.
      }
      task = nullptr;  // what the task holds goes before the lock is taken
      lock.lock();
      continue;
    }
    if (state->stopping) return;
    state->wake.wait(lock);
  }
}

void EventLoops::runLoop(Shared& state, Loop& loop) {
  current = &loop;
  handedOver = false;
  // A takeover left its flag: clear it, keeping the count of deliveries.
  loop.word.store(loop.word.load(std::memory_order_relaxed) & ~std::uint64_t{3},
                  std::memory_order_release);
  while (!handedOver && !state.halted.load(std::memory_order_acquire)) {
    try {
      if (loop.io.run_one() == 0) break;  // stopped
    } catch (...) {
      // A handler let an exception out; the loop goes on with the next one.
    }
  }
  current = nullptr;
  handedOver = false;
}

void EventLoops::watch(Shared& state) {
  std::vector<std::uint64_t> seen(state.loops.size(), 0);
  int quiet = 0;
  std::unique_lock<std::mutex> lock(state.watchMutex);
  for (;;) {
    const auto period = quiet >= kQuietLooks ? kWatchIdle : kWatchBusy;
    if (state.watchWake.wait_for(lock, period, [&] { return state.watchStopping; })) return;
    bool active = false;
    for (std::size_t i = 0; i < state.loops.size(); ++i) {
      Loop& loop = *state.loops[i];
      std::uint64_t word = loop.word.load(std::memory_order_acquire);
      if (word != seen[i]) active = true;
      if ((word & 3) == kDelivering) {
        active = true;
        // The same delivery as at the last look: the loop goes to a spare thread.
        if (word == seen[i] && loop.word.compare_exchange_strong(word, word | kHandedOver,
                                                                 std::memory_order_acq_rel)) {
          if (state.stuck) state.stuck(loop.lane.load(std::memory_order_relaxed));
          {
            std::lock_guard<std::mutex> guard(state.mutex);
            state.takeovers.push_back(i);
          }
          state.wake.notify_one();
          word |= kHandedOver;
        }
      }
      seen[i] = word;
    }
    quiet = active ? 0 : quiet + 1;
  }
}

void EventLoops::stopLoops() noexcept {
  shared->halted.store(true, std::memory_order_release);
  for (auto& loop : shared->loops) loop->io.stop();
}

void EventLoops::stop(std::chrono::milliseconds grace) noexcept {
  if (watcher.joinable()) {
    {
      std::lock_guard<std::mutex> lock(shared->watchMutex);
      shared->watchStopping = true;
    }
    shared->watchWake.notify_all();
    watcher.join();
  }
  if (threads.empty()) return;
  stopLoops();
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
}

void EventLoops::runLeftovers() noexcept {
  for (auto& loop : shared->loops) {
    try {
      loop->io.restart();
      loop->io.poll();
    } catch (...) {
    }
    loop->io.stop();
  }
}

}  // namespace connector::net::detail

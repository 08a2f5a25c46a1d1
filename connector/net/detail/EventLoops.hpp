// detail::EventLoops: the threads of an HttpGateway. Each of `loops` event loops (an
// io_context) owns a share of the connections and is run by exactly one thread at a
// time, so a connection's handlers never run side by side and need no strand. The other
// threads are spares: they run the deliveries handed to them (handOff) and take over a
// loop whose thread got stuck. Private to connector/net.
//
//   EventLoops loops(1, 16, [](std::uint32_t lane) { /* a delivery in `lane` got stuck */ });
//   loops.start();
//   boost::asio::post(loops.nextLoop(), [] { /* on a loop thread */ });
//   loops.handOff([] { /* on a spare thread; may block */ });
//   loops.stopLoops();                            // the loops stop running handlers
//   loops.stop(std::chrono::milliseconds(100));   // threads end (or are left to end)
//
// A delivery may run on the loop thread that read its request (no hand-over at all when
// the service answers at once). It is bracketed by beginDelivery()/endDelivery(). A
// watcher thread looks at every loop each millisecond while deliveries run (every 20 ms
// when none has run for a while); a loop whose thread is inside the same delivery at two
// looks in a row is handed to a spare thread, which runs it from then on: the loop keeps
// accepting, reading, answering and enforcing its deadlines whatever a service does. The
// stuck thread learns it from endDelivery() (false), must then leave the loop's state
// alone (post to the loop instead), and becomes a spare once its handler returns.
//
// There are loops + spares threads: with at most `spares` deliveries running at once
// (DeliveryScheduler sees to it), a spare is always free for a takeover.
//
// Thread-safety: start, stopLoops and stop from one thread; nextLoop, handOff and loop
// from any thread; beginDelivery/endDelivery on a loop thread only.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

namespace connector::net::detail {

class EventLoops {
 public:
  // How often the watcher looks while deliveries run, and while none has for a while.
  static constexpr std::chrono::milliseconds kWatchBusy{1};
  static constexpr std::chrono::milliseconds kWatchIdle{20};

  // `loops` event loops and `spares` threads beyond their runners (both at least 1).
  // `stuck` is called on the watcher thread with the lane of a delivery that held its
  // loop thread past a look (see beginDelivery).
  EventLoops(int loops, int spares, std::function<void(std::uint32_t lane)> stuck);
  // Stops with no grace (see stop()).
  ~EventLoops();
  EventLoops(const EventLoops&) = delete;
  EventLoops& operator=(const EventLoops&) = delete;

  std::size_t size() const noexcept { return shared->loops.size(); }
  boost::asio::io_context& loop(std::size_t index) noexcept { return shared->loops[index]->io; }
  // The loop a new connection joins: each in turn.
  boost::asio::io_context& nextLoop() noexcept;

  // Starts the threads: every loop gets its runner, the others wait as spares.
  void start();

  // Runs `task` on a spare thread (it may block). Dropped after stop().
  void handOff(std::function<void()> task);

  // Whether the calling thread runs a loop now (false on spares, and on a loop thread
  // once its loop was handed over).
  static bool onLoopThread() noexcept;

  // On a loop thread, around a delivery that runs there. `lane` is told to `stuck` when
  // the watcher hands the loop over during this delivery. endDelivery() returns true
  // when the calling thread still runs the loop, false when the loop went to another
  // thread meanwhile (this thread then touches nothing of the loop but posts to it).
  void beginDelivery(std::uint32_t lane) noexcept;
  bool endDelivery() noexcept;

  // Whether stopLoops() was called.
  bool halted() const noexcept { return shared->halted.load(std::memory_order_acquire); }

  // Makes every loop stop running handlers; their threads turn spare. Never throws.
  void stopLoops() noexcept;
  // Ends the threads: lets the tasks already handed off run, waits at most `grace` for
  // every thread, and leaves the ones still busy then to end on their own (detached;
  // they keep what they run). Never throws.
  void stop(std::chrono::milliseconds grace) noexcept;
  // After stopLoops(): runs what the loops still hold queued (closed sockets' and
  // timers' handlers), so that nothing queued keeps a connection alive. Never throws.
  void runLeftovers() noexcept;

 private:
  // The delivery word of a loop: a count of deliveries begun, times 4, plus these flags.
  static constexpr std::uint64_t kDelivering = 1;
  static constexpr std::uint64_t kHandedOver = 2;

  struct Loop {
    // Not told it has one thread: a stuck thread, still inside one of the loop's
    // handlers, posts to the loop, and such a post must wake the loop's new runner.
    explicit Loop(std::size_t index)
        : index(index), io(BOOST_ASIO_CONCURRENCY_HINT_SAFE), guard(io.get_executor()) {}
    const std::size_t index;
    boost::asio::io_context io;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> guard;
    std::atomic<std::uint64_t> word{0};  // written by its runner and by the watcher
    std::atomic<std::uint32_t> lane{0};  // of the delivery running on it
  };

  // What the threads share; kept alive by every thread, so that a thread left to end
  // on its own (stop()) still finds its loop and queue.
  struct Shared {
    std::vector<std::unique_ptr<Loop>> loops;
    std::function<void(std::uint32_t)> stuck;

    std::mutex mutex;
    std::condition_variable wake;             // work for a spare, or stop
    std::condition_variable finished;         // a thread ended
    std::deque<std::size_t> takeovers;        // loops without a runner; guarded
    std::deque<std::function<void()>> tasks;  // guarded by mutex
    bool stopping = false;                    // guarded by mutex
    std::size_t running = 0;                  // threads not ended; guarded

    std::atomic<bool> halted{false};  // stopLoops() was called

    std::mutex watchMutex;
    std::condition_variable watchWake;
    bool watchStopping = false;  // guarded by watchMutex
  };

  // The loop the calling thread runs, if any; set while it does.
  static thread_local Loop* current;
  static thread_local bool handedOver;
  // The loop's word as beginDelivery() left it: endDelivery() finds it unchanged unless
  // the loop was handed over meanwhile (and perhaps its new runner began deliveries).
  static thread_local std::uint64_t deliveryWord;

  static void work(const std::shared_ptr<Shared>& state);
  static void runLoop(Shared& state, Loop& loop);
  static void watch(Shared& state);

  std::shared_ptr<Shared> shared;
  std::atomic<std::size_t> turn{0};
  std::vector<std::thread> threads;
  std::thread watcher;
  int spareCount;
};

}  // namespace connector::net::detail

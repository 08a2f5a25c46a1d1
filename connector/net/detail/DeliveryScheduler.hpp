// detail::DeliveryScheduler: where and when an HttpGateway's deliveries run. Private to
// connector/net.
//
//   DeliveryScheduler deliveries(router, nullptr, budget, options.threads);
//   EventLoops loops(1, options.threads, [&](std::uint32_t lane) { deliveries.stuck(lane); });
//   deliveries.attach(loops);
//   deliveries.submit(std::move(delivery));   // on the connection's loop thread
//
// A delivery whose service has been answering at once runs on the loop thread that read
// its request, as a handler of its own, and its answer is written from there: no thread
// is woken. Whether a service answers at once is learnt per lane (the addresses are
// hashed into kLanes lanes): the lane's average delivery time, each sample capped at
// kSampleCapUs, must stay under kQuickUs. Any other delivery (a lane that has been slow,
// a body over kInlineBodyBytes) is handed to a spare thread, which posts the answer to
// the connection's loop. A delivery that turns out to block on a loop thread is caught
// by EventLoops' watcher, which hands the loop to a spare thread and marks the lane slow
// (stuck()).
//
// At most `threads` deliveries run at once, on loop threads and spares together; more
// wait, first come first served, for one to end. A waiting delivery whose request was
// answered meanwhile (504) or whose connection closed is withdrawn without running.
//
// Thread-safety: submit() on a loop thread; withdraw(), stuck() and clear() from any
// thread.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <boost/asio/io_context.hpp>

#include "connector/host/Context.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Router.hpp"
#include "connector/net/detail/EventLoops.hpp"
#include "connector/net/detail/InFlightBudget.hpp"
#include "connector/transport/DeliveryAnswer.hpp"

namespace connector::net::detail {

// What a delivery answers to: the connection it came from.
class DeliveryClient {
 public:
  virtual ~DeliveryClient() = default;
  // On the client's loop thread: the answer of its delivery `sequence`.
  virtual void delivered(std::uint64_t sequence, transport::DeliveryAnswer&& answer) = 0;
  // From any other thread: the same, posted to the client's loop.
  virtual void deliveredElsewhere(std::uint64_t sequence, transport::DeliveryAnswer&& answer) = 0;
};

// One request to deliver.
struct Delivery {
  std::shared_ptr<DeliveryClient> client;
  boost::asio::io_context* loop = nullptr;  // the client's loop
  std::uint64_t sequence = 0;               // the client's number for it
  std::size_t heldBytes = 0;                // in-flight budget given back once delivered
  std::string contentType;
  std::string address;
  common::DataBuffer body;
  // When the client stops waiting (it is answered 504 then); a link the delivery goes
  // through tells the next hop what is left of it.
  std::chrono::steady_clock::time_point deadline;
  std::uint32_t lane = 0;  // set by the scheduler
};

class DeliveryScheduler {
 public:
  static constexpr std::size_t kLanes = 64;
  // A lane runs its deliveries on loop threads while their average time stays under this.
  static constexpr std::uint32_t kQuickUs = 100;
  // No sample counts for more than this (a thread preempted once does not make a lane
  // slow); it is also what a stuck delivery marks its lane with.
  static constexpr std::uint32_t kSampleCapUs = 1000;
  // Larger bodies are always delivered on a spare thread.
  static constexpr std::size_t kInlineBodyBytes = std::size_t{64} * 1024;

  // Delivers to `router`, or to `forward` when it is null; gives the deliveries' held
  // bytes back to `budget`. Both must outlive the scheduler.
  DeliveryScheduler(Router* router, Context* forward, InFlightBudget& budget, int threads);
  DeliveryScheduler(const DeliveryScheduler&) = delete;
  DeliveryScheduler& operator=(const DeliveryScheduler&) = delete;

  // The threads to run on; before the first submit().
  void attach(EventLoops& loops) noexcept { this->loops = &loops; }

  // Runs the delivery (see above); its answer reaches delivery.client. On the client's
  // loop thread.
  void submit(Delivery&& delivery);

  // Removes the delivery `sequence` of `client` when it still waits for a thread, giving
  // its budget back; returns whether it was waiting.
  bool withdraw(const DeliveryClient* client, std::uint64_t sequence);

  // The watcher caught a delivery of `lane` holding its loop thread.
  void stuck(std::uint32_t lane) noexcept;

  // Drops every waiting delivery (the gateway has stopped).
  void clear() noexcept;

  // The lane of an address.
  static std::uint32_t laneOf(std::string_view address) noexcept;
  // Whether a lane's deliveries run on loop threads now.
  bool quick(std::uint32_t lane) const noexcept;

 private:
  bool takeSlot() noexcept;
  bool popWaiting(Delivery& next);
  // Starts a delivery that holds a slot, from a loop thread.
  void start(Delivery&& delivery);
  // Starts waiting deliveries while slots are free, from a loop thread.
  void startWaiting();
  // Keeps the finished delivery's slot for the first waiting one (true, in `next`), or
  // gives it back (false).
  bool keepSlotForWaiting(Delivery& next);
  // Delivers, learns the lane's pace, gives the budget back.
  transport::DeliveryAnswer run(Delivery& delivery) noexcept;
  void runOnLoop(Delivery& delivery);
  void runOnSpare(Delivery delivery);
  void record(std::uint32_t lane, std::uint64_t micros) noexcept;

  Router* const router;
  Context* const forward;
  InFlightBudget& budget;
  const int threads;
  EventLoops* loops = nullptr;

  std::atomic<int> running{0};  // deliveries holding a slot
  std::array<std::atomic<std::uint32_t>, kLanes> averageUs{};

  std::mutex mutex;
  std::deque<Delivery> waiting;              // guarded by mutex
  std::atomic<std::size_t> waitingCount{0};  // waiting.size(), also read without the lock
};

}  // namespace connector::net::detail

#include "connector/net/detail/DeliveryScheduler.hpp"

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

#include <boost/asio/post.hpp>

#if defined(__GLIBC__)
#  include <malloc.h>
#endif

namespace connector::net::detail {

namespace {

using Clock = std::chrono::steady_clock;

// A body from which size on a delivery's freed memory is given back to the system.
constexpr std::size_t kLargeBody = std::size_t{256} * 1024;

// The parse of a large body leaves its thread's malloc arena with tens of megabytes
// freed but kept; every thread keeping its own would multiply the in-flight budget by
// the number of threads. Trimming returns them to the system.
void giveBackFreedMemory() {
#if defined(__GLIBC__)
  ::malloc_trim(0);
#endif
}

}  // namespace

DeliveryScheduler::DeliveryScheduler(Router* router, Context* forward, InFlightBudget& budget,
                                     int threads)
    : router(router), forward(forward), budget(budget), threads(threads) {}

std::uint32_t DeliveryScheduler::laneOf(std::string_view address) noexcept {
  return static_cast<std::uint32_t>(std::hash<std::string_view>{}(address) & (kLanes - 1));
}

bool DeliveryScheduler::quick(std::uint32_t lane) const noexcept {
  return averageUs[lane].load(std::memory_order_relaxed) < kQuickUs;
}

void DeliveryScheduler::record(std::uint32_t lane, std::uint64_t micros) noexcept {
  // An average over about the last 16 deliveries of the lane; updates that race lose
  // a sample, which is of no account.
  const auto sample = static_cast<std::uint32_t>(std::min<std::uint64_t>(micros, kSampleCapUs));
  const std::uint32_t average = averageUs[lane].load(std::memory_order_relaxed);
  averageUs[lane].store(average - average / 16 + sample / 16, std::memory_order_relaxed);
}

void DeliveryScheduler::stuck(std::uint32_t lane) noexcept {
  averageUs[lane].store(kSampleCapUs, std::memory_order_relaxed);
}

bool DeliveryScheduler::takeSlot() noexcept {
  int count = running.load(std::memory_order_relaxed);
  while (count < threads) {
    if (running.compare_exchange_weak(count, count + 1)) return true;
  }
  return false;
}

bool DeliveryScheduler::popWaiting(Delivery& next) {
  if (waitingCount.load() == 0) return false;
  std::lock_guard<std::mutex> lock(mutex);
  if (waiting.empty()) return false;
  next = std::move(waiting.front());
  waiting.pop_front();
  waitingCount.fetch_sub(1);
  return true;
}

void DeliveryScheduler::submit(Delivery&& delivery) {
  delivery.lane = laneOf(delivery.address);
  if (takeSlot()) {
    start(std::move(delivery));
    return;
  }
  {
    std::lock_guard<std::mutex> lock(mutex);
    waiting.push_back(std::move(delivery));
    waitingCount.fetch_add(1);
  }
  // A delivery may have ended between the look for a slot and the queueing.
  startWaiting();
}

void DeliveryScheduler::start(Delivery&& delivery) {
  if (delivery.body.size <= kInlineBodyBytes && quick(delivery.lane)) {
    boost::asio::io_context& loop = *delivery.loop;
    boost::asio::post(loop,
                      [this, delivery = std::move(delivery)]() mutable { runOnLoop(delivery); });
    return;
  }
  loops->handOff(
      [this, delivery = std::move(delivery)]() mutable { runOnSpare(std::move(delivery)); });
}

void DeliveryScheduler::startWaiting() {
  // The counters are sequentially consistent: a delivery queued while another gives its
  // slot back is seen by one of the two.
  while (waitingCount.load() > 0 && takeSlot()) {
    Delivery next;
    if (!popWaiting(next)) {
      running.fetch_sub(1);
      continue;
    }
    start(std::move(next));
  }
}

bool DeliveryScheduler::keepSlotForWaiting(Delivery& next) {
  if (popWaiting(next)) return true;
  running.fetch_sub(1);
  while (waitingCount.load() > 0 && takeSlot()) {
    if (popWaiting(next)) return true;
    running.fetch_sub(1);
  }
  return false;
}

transport::DeliveryAnswer DeliveryScheduler::run(Delivery& delivery) noexcept {
  const Clock::time_point begin = Clock::now();
  transport::DeliveryAnswer answer =
      transport::deliverForAnswer(router, forward, std::move(delivery.contentType),
                                  std::move(delivery.body), delivery.address, delivery.deadline);
  const auto micros =
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count();
  record(delivery.lane, static_cast<std::uint64_t>(std::max<std::int64_t>(micros, 0)));
  if (delivery.heldBytes >= kLargeBody) giveBackFreedMemory();
  if (delivery.heldBytes > 0) budget.release(delivery.heldBytes);
  delivery.heldBytes = 0;
  return answer;
}

void DeliveryScheduler::runOnLoop(Delivery& delivery) {
  if (loops->halted()) {
    // Left queued when the gateway stopped: nobody is there to answer.
    if (delivery.heldBytes > 0) budget.release(delivery.heldBytes);
    running.fetch_sub(1);
    return;
  }
  if (!quick(delivery.lane)) {
    // The lane turned slow since this was queued here (another of its deliveries got
    // stuck): a spare runs it rather than this loop's thread.
    loops->handOff(
        [this, delivery = std::move(delivery)]() mutable { runOnSpare(std::move(delivery)); });
    return;
  }
  loops->beginDelivery(delivery.lane);
  transport::DeliveryAnswer answer = run(delivery);
  if (loops->endDelivery()) {
    delivery.client->delivered(delivery.sequence, std::move(answer));
    running.fetch_sub(1);
    startWaiting();
    return;
  }
  // The loop went to another thread while this one delivered: this one is a spare now.
  delivery.client->deliveredElsewhere(delivery.sequence, std::move(answer));
  // The client may hold the last reference to the gateway that owns this scheduler: it is
  // let go once this scheduler is no longer used, or once the next delivery's client
  // holds the gateway.
  std::shared_ptr<DeliveryClient> finished = std::move(delivery.client);
  delivery = Delivery();
  Delivery next;
  if (!keepSlotForWaiting(next)) return;
  finished.reset();
  runOnSpare(std::move(next));
}

void DeliveryScheduler::runOnSpare(Delivery delivery) {
  for (;;) {
    transport::DeliveryAnswer answer = run(delivery);
    delivery.client->deliveredElsewhere(delivery.sequence, std::move(answer));
    // What it holds goes before the next one, except its client, which may hold the last
    // reference to the gateway that owns this scheduler: that goes after the last use.
    std::shared_ptr<DeliveryClient> finished = std::move(delivery.client);
    delivery = Delivery();
    if (!keepSlotForWaiting(delivery)) return;
  }
}

bool DeliveryScheduler::withdraw(const DeliveryClient* client, std::uint64_t sequence) {
  if (waitingCount.load() == 0) return false;
  Delivery withdrawn;
  {
    std::lock_guard<std::mutex> lock(mutex);
    auto found = std::find_if(waiting.begin(), waiting.end(), [&](const Delivery& delivery) {
      return delivery.client.get() == client && delivery.sequence == sequence;
    });
    if (found == waiting.end()) return false;
    withdrawn = std::move(*found);
    waiting.erase(found);
    waitingCount.fetch_sub(1);
  }
  if (withdrawn.heldBytes > 0) budget.release(withdrawn.heldBytes);
  return true;
}

void DeliveryScheduler::clear() noexcept {
  std::deque<Delivery> dropped;
  {
    std::lock_guard<std::mutex> lock(mutex);
    dropped.swap(waiting);
    waitingCount.store(0);
  }
}

}  // namespace connector::net::detail

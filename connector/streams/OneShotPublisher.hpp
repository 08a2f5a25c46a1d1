// connector::reactive_streams::OneShotPublisher<T>: a reactive stream of exactly one
// item, a value that is already in hand.
//
//   std::shared_ptr<PublisherAPI<DataBuffer>> bytes =
//       std::make_shared<OneShotPublisher<DataBuffer>>(std::move(payload));
//   bytes->subscribe(subscriber);   // onSubscribe; on demand onNext(buffer), onComplete()
//
//   Future<DataBuffer> joined = json::reduceSerializedPublisherToDataBuffer(bytes);
//
// Nomenclature:
//   value         - the one item; moved in at construction, handed out as an rvalue
//                   reference (a subscriber that only reads it leaves it here)
//   subscription  - the OneShotSubscription that the publisher creates and alone owns;
//                   its subscriber receives a std::weak_ptr to it
//   demand        - the sum of all request(n) arguments modulo 2^64; any non-zero sum
//                   counts as demand (-1, all ones, stands for unbounded)
//
// States:
//
//              subscribe(s)                  request(n), sum != 0:
//   Fresh --------------------> Subscribed ---------------------------> Done
//     |                             |        onNext(value), onComplete()
//     |  subscription.cancel()      |  subscription.cancel()
//     +-------------> Done <--------+  (no item, no onComplete)
//
//   subscribe(s) in Subscribed or Done -> throws "Only one subscription allowed."
//   A subscriber arriving in Done (cancelled before subscribe) gets onSubscribe only.
//
// Who owns what: the publisher owns the value (until a subscriber takes the bytes),
// the subscription (only strong reference) and its subscriber (strongly). Destruction
// releases the subscription, then the subscriber, then the value.
//
// Thread-safety: none of its own; no lock and no atomic state. Drive a publisher and
// its subscription from one thread at a time. Every subscriber callback runs on the
// thread that called subscribe() or request(), synchronously: a subscriber that asks
// for data inside onSubscribe has received everything before subscribe() returns. A
// subscriber must not hold a lock of its own while it calls request(), since request()
// calls straight back into onNext and onComplete.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/futures/MakeFuture.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Publisher.hpp"
#include "connector/host/Subscriber.hpp"
#include "connector/host/Subscription.hpp"

namespace connector::reactive_streams {

namespace detail {
// Error texts of the one-shot publisher; callers see them in exceptions.
inline constexpr const char* kOnlyOneSubscription = "Only one subscription allowed.";
inline constexpr const char* kNullSubscriber = "Subscriber must not be null.";
}  // namespace detail

template <typename T>
class CONNECTOR_API OneShotPublisher : public PublisherAPI<T> {
 public:
  // The subscription that a one-shot publisher hands its subscriber (as a weak
  // pointer). Adds demand and cancels; both act on the publisher at once.
  class CONNECTOR_API OneShotSubscription : public Subscription {
   public:
    explicit OneShotSubscription(OneShotPublisher* owner) noexcept : publisher(owner) {}

    // Adds n to the demand (modulo 2^64; zero and negative values are accepted and
    // simply added), then emits the value if there is demand and it is still due: the
    // subscriber's onNext and onComplete run inside this call. Throws whatever those
    // callbacks throw. After the publisher is gone, only the sum changes.
    void request(std::int64_t n) override {
      requested += static_cast<std::uint64_t>(n);
      if (publisher != nullptr) {
        publisher->tryEmit();
      }
    }

    // Marks the subscription cancelled and the publisher done: no item and no
    // onComplete are sent afterwards. Calls no subscriber operation; never throws.
    void cancel() override {
      cancelled = true;
      if (publisher != nullptr) {
        publisher->emitted = true;
      }
    }

    // Observers, for diagnostics and tests.
    std::uint64_t demand() const noexcept { return requested; }
    bool isCancelled() const noexcept { return cancelled; }

   private:
    friend class OneShotPublisher;

    OneShotPublisher* publisher;  // not owning; cleared when the publisher dies first
    bool cancelled = false;       // set by cancel(), never cleared
    std::uint64_t requested = 0;  // total demand, modulo 2^64
  };

  // Moves `value` in (the source is left empty) and creates the subscription. Throws
  // std::bad_alloc when the subscription cannot be allocated (nothing leaks).
  explicit OneShotPublisher(T&& value)
      : value(std::move(value)), subscriber(), subscription(new OneShotSubscription(this)) {}

  OneShotPublisher(const OneShotPublisher&) = delete;
  OneShotPublisher& operator=(const OneShotPublisher&) = delete;

  // A subscription that somebody still holds through a locked weak pointer outlives
  // its publisher; it then no longer reaches back.
  ~OneShotPublisher() override { subscription->publisher = nullptr; }

  // A future already resolved with true, whatever the state; a fresh shared state per
  // call. Throws std::bad_alloc when that state cannot be allocated.
  Future<bool> completion() override { return makeReadyFuture<bool>(true); }

  // Stores `s` as the one subscriber, calls its onSubscribe with a weak pointer to the
  // subscription, then emits the value if demand was signalled meanwhile.
  // Throws std::invalid_argument "Only one subscription allowed." when a subscriber was
  // stored before (whatever happened since; the first one and all state stay as they
  // are), std::invalid_argument "Subscriber must not be null." for an empty `s`, and
  // whatever the subscriber's callbacks throw.
  void subscribe(std::shared_ptr<SubscriberAPI<T>> s) override {
    if (subscriber != nullptr) {
      throw std::invalid_argument(detail::kOnlyOneSubscription);
    }
    if (s == nullptr) {
      throw std::invalid_argument(detail::kNullSubscriber);
    }
    subscriber = std::move(s);
    subscriber->onSubscribe(std::weak_ptr<Subscription>(subscription));
    tryEmit();
  }

  // Observer, for diagnostics and tests: true once the value was handed out or the
  // subscription was cancelled.
  bool hasEmitted() const noexcept { return emitted; }

  // Observer, for diagnostics and tests: the value as the publisher holds it now (a
  // subscriber that took the bytes in onNext has left it empty).
  const T& heldValue() const noexcept { return value; }

 private:
  // Hands the value out once: only with a subscriber, uncancelled non-zero demand and
  // nothing emitted yet. `emitted` is set before calling out, so a re-entrant request()
  // from inside the subscriber finds nothing left to do and a throwing callback is
  // never retried.
  void tryEmit() {
    if (subscriber == nullptr || emitted) {
      return;
    }
    if (subscription->cancelled || subscription->requested == 0) {
      return;
    }
    emitted = true;
    subscriber->onNext(std::move(value));
    subscriber->onComplete();
  }

  T value;                                            // the one item
  std::shared_ptr<SubscriberAPI<T>> subscriber;       // empty until subscribe()
  std::shared_ptr<OneShotSubscription> subscription;  // the only strong reference
  bool emitted = false;                               // handed out or cancelled; never cleared
};

#ifndef CONNECTOR_STREAMS_INSTANTIATIONS
// Instantiated once in libconnector_json.
extern template class OneShotPublisher<common::DataBuffer>;
#endif

}  // namespace connector::reactive_streams

// connector::reactive_streams::ReducingSubscriber<T, R>: folds a reactive stream of T
// items into one R, handed out as a Future<R>; and reduce(), which subscribes one to a
// publisher.
//
//   Future<int> total = reduce(numbers,                       // PublisherAPI<int>
//                              [](int&& item, int&& sum) { return sum + item; }, 0);
//   int sum = total.get();
//
//   auto folder = std::make_shared<ReducingSubscriber<DataBuffer, DataBuffer>>(join, DataBuffer());
//   publisher->subscribe(folder);
//   Future<bool> finished = folder->completion();   // true: the stream completed normally
//
// Nomenclature:
//   accumulator  - the running value: reducer(item, accumulator) for every item
//   result       - the future of the final accumulator (result())
//   completion   - the future of "did the stream finish normally" (completion())
//   promises     - made lazily by result() / completion() while Active, resolved by the
//                  transition out of Active; afterwards both return ready futures
//
// States (a ReducerState, 32-bit):
//
//            onNext: accumulator = reducer(item, accumulator)
//            +----+
//            |    v        onComplete          result <- accumulator, completion <- true
//          Active -------------------------> Completed
//            |  |
//            |  |  onError(e)                 result, completion fail with e
//            |  +--------------------------> Failed
//            |
//            |  cancel(), destruction, reducer throws
//            +-----------------------------> Cancelled
//                                             subscription cancelled; result <- accumulator
//                                             (a fold cut short still delivers its value);
//                                             completion <- false
//
//   Completed, Cancelled, Failed: every further signal is ignored; onSubscribe,
//   result() and completion() never change the state.
//
// Who owns the result: the subscriber, in `accumulator`, until a promise is resolved
// with it or result() moves it into a ready future (a second result() then yields a
// moved-from, i.e. empty, value). In Failed, the error stays in the subscriber only if
// no promise existed when it arrived; result() and completion() then hand out a future
// that fails with a std::exception_ptr wrapping it (Future::get surfaces the original
// error; when the error went to the promises instead, the wrapped pointer is null and
// get() throws that null std::exception_ptr object). A null error from onError(nullptr)
// ends the same way on every future: get() throws a null std::exception_ptr object.
//
// Thread-safety: one std::mutex per subscriber. Items and signals may arrive on any
// thread; the mutex serialises them with cancel(), result() and completion() from
// other threads. It is held while the reducer runs and while promises are resolved (so
// continuations attached to the futures run under it: they must not call back into
// this subscriber, and neither may the reducer). Lock order: this subscriber's mutex,
// then a future state's mutex, never the reverse. The subscriber never holds its mutex
// while it calls the subscription: onSubscribe releases it before request(-1), and
// cancellation releases it for the duration of Subscription::cancel().
//
// Memory ordering: everything the reducer wrote into the accumulator, and everything a
// thread did before it delivered an item or signal, happens-before the resolution of
// the promises (same mutex), and so happens-before Future::get() returns on the
// consumer's thread. A result() or completion() that observes a final state also
// observes every item folded before that state was entered. Nothing is published
// outside the mutex; there are no atomics of this class's own.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/futures/MakeFuture.hpp"
#include "connector/futures/Promise.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Publisher.hpp"
#include "connector/host/Subscriber.hpp"
#include "connector/host/Subscription.hpp"

namespace connector::reactive_streams {

// Where a reducing subscriber stands; see the diagram above.
enum class ReducerState : std::uint32_t {
  Active = 0,     // folding items
  Completed = 1,  // the stream completed; the fold is final
  Cancelled = 2,  // cancelled, destroyed or the reducer threw; the fold is cut short
  Failed = 3,     // the stream reported an error
};

namespace detail {
// Error text of a subscription that expired before it could be used.
inline constexpr const char* kSubscriptionWentAway = "Subscription went away!";

// Keeps a parameter out of template argument deduction (std::type_identity in C++20).
template <typename U>
struct NonDeduced {
  using type = U;
};
}  // namespace detail

template <typename T, typename R>
class CONNECTOR_API ReducingSubscriber : public SubscriberAPI<T> {
 public:
  using Reducer = std::function<R(T&&, R&&)>;

  // Keeps the reducer and two separate copies of `initial`: one that is never read
  // again, and the starting accumulator. Throws what copying them throws (for
  // DataBuffer std::runtime_error "Out of memory!").
  ReducingSubscriber(Reducer reducer, R initial)
      : reducer(std::move(reducer)), initial(initial), accumulator(initial) {}

  ReducingSubscriber(const ReducingSubscriber&) = delete;
  ReducingSubscriber& operator=(const ReducingSubscriber&) = delete;

  // Cancels a still Active subscriber (the subscription is cancelled, a pending result
  // receives the accumulator, a pending completion false), then releases the reducer
  // under the mutex. A failure in here ends the process (std::terminate).
  // NOLINTNEXTLINE(bugprone-exception-escape): a failure here ends the process, on purpose.
  ~ReducingSubscriber() override {
    std::unique_lock<std::mutex> lock(mutex);
    cancelLocked(lock);
    reducer = nullptr;
  }

  // Stores `s` (whatever the state) and requests unbounded demand (-1) on it, outside
  // the mutex: with a synchronous publisher the whole stream runs inside this call.
  // Throws std::runtime_error "Subscription went away!" when `s` is empty or expired
  // (the pointer stays stored, the state unchanged), and whatever request() throws.
  void onSubscribe(std::weak_ptr<Subscription> s) override {
    std::shared_ptr<Subscription> strong;
    {
      std::unique_lock<std::mutex> lock(mutex);
      subscription = s;
      strong = s.lock();
      if (strong == nullptr) {
        throw std::runtime_error(detail::kSubscriptionWentAway);
      }
    }
    strong->request(-1);
  }

  // Active: the fold is final; a pending result receives the accumulator, a pending
  // completion true. Otherwise ignored. Throws only on promise misuse (texts of
  // Promise), with the new state already set.
  void onComplete() override {
    std::unique_lock<std::mutex> lock(mutex);
    if (state != ReducerState::Active) {
      return;
    }
    state = ReducerState::Completed;
    if (resultPromise != nullptr) {
      resultPromise->setValue(std::move(accumulator));
    }
    if (completionPromise != nullptr) {
      completionPromise->setValue(true);
    }
  }

  // Active: a new pending future, resolved when the subscriber leaves Active (a future
  // from an earlier call is abandoned and fails with "Promise destroyed before it
  // provided a value."). Completed: ready true. Cancelled: ready false. Failed: a
  // future failed with the wrapped error (see the banner). Never blocks on the stream.
  Future<bool> completion() override {
    std::unique_lock<std::mutex> lock(mutex);
    switch (state) {
      case ReducerState::Active:
        completionPromise = std::make_unique<Promise<bool>>();
        return completionPromise->getFuture();
      case ReducerState::Completed:
        return makeReadyFuture<bool>(true);
      case ReducerState::Cancelled:
        return makeReadyFuture<bool>(false);
      case ReducerState::Failed:
      default:
        return makeFailedFuture<bool>(std::make_exception_ptr(error));
    }
  }

  // Active: accumulator = reducer(item, accumulator), under the mutex. If the reducer
  // throws anything (std::bad_function_call for an empty one included), the exception
  // is swallowed and the subscriber cancels itself: the result receives the
  // accumulator as the reducer left it, the completion false. Otherwise ignored.
  // Throws only on promise misuse during that cancellation.
  void onNext(T&& item) override {
    std::unique_lock<std::mutex> lock(mutex);
    if (state != ReducerState::Active) {
      return;
    }
    try {
      accumulator = reducer(std::move(item), std::move(accumulator));
    } catch (...) {
      cancelLocked(lock);
    }
  }

  // Active: the stream failed; pending promises fail with `e`, which is kept only if
  // neither promise existed. Otherwise `e` is dropped. A null `e` is accepted: pending
  // promises then fail with it wrapped in an exception pointer, exactly as result() and
  // completion() hand out a null error kept from before they were asked, so get()
  // throws a null std::exception_ptr object either way. Throws only on promise misuse.
  void onError(std::exception_ptr e) override {
    std::unique_lock<std::mutex> lock(mutex);
    if (state != ReducerState::Active) {
      return;
    }
    state = ReducerState::Failed;
    // A promise refuses a null error; wrapped, it is not null.
    const std::exception_ptr delivered = e ? e : std::make_exception_ptr(e);
    if (resultPromise != nullptr) {
      resultPromise->setException(delivered);
    }
    if (completionPromise != nullptr) {
      completionPromise->setException(delivered);
    }
    if (resultPromise == nullptr && completionPromise == nullptr) {
      error = std::move(e);
    }
  }

  // Active: stops the fold; the subscription is cancelled (outside the mutex), a
  // pending result receives the accumulator, a pending completion false. Otherwise
  // nothing changes. Throws only on promise misuse or when Subscription::cancel throws.
  virtual void cancel() {
    std::unique_lock<std::mutex> lock(mutex);
    cancelLocked(lock);
  }

  // Active: a new pending future of the final accumulator (a future from an earlier
  // call is abandoned and fails with "Promise destroyed before it provided a value.").
  // Completed or Cancelled: a ready future holding the accumulator, which is moved out
  // (a second call yields an empty value). Failed: a future failed with the wrapped
  // error (see the banner). Never blocks on the stream.
  Future<R> result() {
    std::unique_lock<std::mutex> lock(mutex);
    switch (state) {
      case ReducerState::Active:
        resultPromise = std::make_unique<Promise<R>>();
        return resultPromise->getFuture();
      case ReducerState::Completed:
      case ReducerState::Cancelled:
        return makeReadyFuture<R>(std::move(accumulator));
      case ReducerState::Failed:
      default:
        return makeFailedFuture<R>(std::make_exception_ptr(error));
    }
  }

  // Observer, for diagnostics and tests; takes the mutex.
  ReducerState currentState() const {
    std::lock_guard<std::mutex> guard(mutex);
    return state;
  }

 private:
  // The caller holds `mutex` through `lock`. Active only: moves to Cancelled, cancels
  // the subscription with the mutex released for the call, then resolves the pending
  // promises (result <- accumulator, completion <- false).
  void cancelLocked(std::unique_lock<std::mutex>& lock) {
    if (state != ReducerState::Active) {
      return;
    }
    state = ReducerState::Cancelled;
    if (std::shared_ptr<Subscription> strong = subscription.lock()) {
      lock.unlock();
      strong->cancel();
      lock.lock();
    }
    if (resultPromise != nullptr) {
      resultPromise->setValue(std::move(accumulator));
    }
    if (completionPromise != nullptr) {
      completionPromise->setValue(false);
    }
  }

  mutable std::mutex mutex;
  std::unique_ptr<Promise<R>> resultPromise;         // guarded by mutex; made lazily while Active
  std::unique_ptr<Promise<bool>> completionPromise;  // guarded by mutex; made lazily while Active
  Reducer reducer;                                   // guarded by mutex
  R initial;                                  // guarded by mutex; never read after construction
  R accumulator;                              // guarded by mutex
  std::exception_ptr error;                   // guarded by mutex; kept only without promises
  std::weak_ptr<Subscription> subscription;   // guarded by mutex
  ReducerState state = ReducerState::Active;  // guarded by mutex
};

// Folds everything `publisher` publishes into one R: creates a ReducingSubscriber,
// subscribes it (a null publisher is tolerated and not subscribed to) and returns its
// result future. A synchronous publisher has run the whole stream before reduce()
// returns, so the future is ready; a subscriber that nobody else keeps is destroyed on
// return and resolves the future with what it gathered (the initial value when
// unsubscribed). Throws what subscribe() throws, e.g. std::invalid_argument "Only one
// subscription allowed." or std::runtime_error "Subscription went away!".
template <typename T, typename R>
Future<R> reduce(std::shared_ptr<PublisherAPI<T>> publisher,
                 typename detail::NonDeduced<std::function<R(T&&, R&&)>>::type reducer, R initial) {
  auto subscriber = std::make_shared<ReducingSubscriber<T, R>>(reducer, std::move(initial));
  if (publisher != nullptr) {
    publisher->subscribe(subscriber);
  }
  return subscriber->result();
}

#ifndef CONNECTOR_STREAMS_INSTANTIATIONS
// Instantiated once in libconnector_json.
extern template class ReducingSubscriber<common::DataBuffer, common::DataBuffer>;
#endif

}  // namespace connector::reactive_streams

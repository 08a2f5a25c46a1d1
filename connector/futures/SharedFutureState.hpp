// SharedFutureState<T>: the meeting point of one Promise<T> and one Future<T>.
//
// Users never touch this class directly: Promise<T> resolves it, Future<T> reads it.
//
//   Promise<int> promise;                 // makes a fresh state
//   Future<int> future = promise.getFuture();
//   std::thread producer([p = std::move(promise)]() mutable { p.setValue(42); });
//   int v = future.get();                 // blocks until the producer resolves
//
// Nomenclature:
//   status        - Pending, HasValue, HasException or Cancelled (FutureStatus)
//   result slot   - one owned heap cell; a T when HasValue, a std::exception_ptr
//                   when HasException, nothing otherwise
//   continuation  - at most one callable, run once when the state resolves
//
// Transitions (all under `mutex`):
//
//              setValue                 get() moves the result out; the status stays
//   Pending ------------------> HasValue
//      |   \   setException / promise destroyed while valid
//      |    +-----------------> HasException
//      |  Future::cancel
//      +----------------------> Cancelled   (a later setValue/setException is dropped)
//
//   HasValue/HasException + setValue/setException -> throws "Promise already resolved."
//
// Who owns the result: the state, until a Future moves it out with get(); a value
// cell stays allocated (emptied) until the state dies.
//
// Memory ordering: everything the producer wrote before setValue/setException
// happens-before get() returns (both sides take `mutex`). Waiters are woken with
// notify_all after the lock is released, and only after an attached continuation
// has returned; continuations run on the resolving thread, never under the lock.
#pragma once

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "connector/Export.hpp"
#include "connector/futures/FutureStatus.hpp"

namespace connector {

template <typename T>
class Future;

namespace detail {

template <typename T>
class SharedFutureState;

// Error texts of promises and futures; callers see them in exceptions.
inline constexpr const char* kPromiseStateInvalid = "Promise state isn't valid!";
inline constexpr const char* kPromiseFutureAlreadyReturned = "Promise already returned a future.";
inline constexpr const char* kPromiseAlreadyResolved = "Promise already resolved.";
inline constexpr const char* kPromiseDestroyed = "Promise destroyed before it provided a value.";
inline constexpr const char* kFutureStateInvalid = "Future state isn't valid!";
inline constexpr const char* kFutureAlreadyRetrieved =
    "Future already returned it's value or has an associated continuation.";
inline constexpr const char* kFutureCancelled = "Future has been cancelled.";
inline constexpr const char* kFutureInvalidState = "Invalid Future state reached.";
inline constexpr const char* kFutureContinuationEmpty = "Future continuation must not be empty.";
inline constexpr const char* kPromiseExceptionNull = "Promise exception must not be null.";
inline constexpr const char* kFailedFutureWithoutException =
    "Failed future made from a null exception.";

// A one-shot callable that a state runs once it has resolved.
template <typename T>
class CONNECTOR_API FutureContinuation {
 public:
  virtual ~FutureContinuation() = default;
  // Receives the resolved state; may take a fresh Future over it and read the result.
  virtual void invoke(std::shared_ptr<SharedFutureState<T>> state) = 0;
};

template <typename T>
class CONNECTOR_API SharedFutureState : public std::enable_shared_from_this<SharedFutureState<T>> {
 public:
  SharedFutureState() = default;
  SharedFutureState(const SharedFutureState&) = delete;
  SharedFutureState& operator=(const SharedFutureState&) = delete;
  ~SharedFutureState();

  // Marks the future as handed out and returns shared ownership of this state.
  // Throws std::runtime_error "Promise already returned a future." the second time.
  std::shared_ptr<SharedFutureState> markFutureReturned();

  // Resolve with a value or an exception. Throw "Promise already resolved." when the
  // state is resolved already; drop the argument silently when it was cancelled.
  // setException refuses a null `error` first, leaving the state as it was: throws
  // std::invalid_argument "Promise exception must not be null." (get() would have
  // nothing to rethrow).
  void setValue(T&& value);
  void setException(std::exception_ptr error);

  // Called by a promise that goes away while still valid: a pending state receives
  // "Promise destroyed before it provided a value."; any attached continuation runs.
  void abandon() noexcept;

  // Blocks until resolved, then moves the value out or rethrows the stored error.
  T take();

  // Attaches the one continuation; runs it at once when the state is resolved already.
  // Moves from `next` only when it attaches it: if this throws and `next` still holds
  // the continuation, nothing was attached (the result was taken, or a continuation was
  // set); if `next` is empty, the continuation was attached and what it threw came out.
  void attachContinuation(std::unique_ptr<FutureContinuation<T>>&& next);

  // Moves a pending state to Cancelled and wakes any waiter.
  void cancel();

  FutureStatus currentStatus();

 private:
  using Lock = std::unique_lock<std::mutex>;

  // Runs after every resolution, with `mutex` held through `lock`: hands the result
  // to an attached continuation, then wakes the waiters.
  void completeLocked(Lock lock);
  void destroyResultLocked() noexcept;
  [[noreturn]] static void rethrowUnwrapped(std::exception_ptr error);

  std::mutex mutex;
  std::condition_variable condition;  // waiters of take(); guarded by mutex
  void* resultSlot = nullptr;         // T* or std::exception_ptr*, by status; guarded by mutex
  std::unique_ptr<FutureContinuation<T>> continuation;  // guarded by mutex
  FutureStatus status = FutureStatus::Pending;          // guarded by mutex
  bool futureReturned = false;                          // guarded by mutex
  bool resultTaken = false;                             // guarded by mutex
};

template <typename T>
SharedFutureState<T>::~SharedFutureState() {
  {
    std::lock_guard<std::mutex> guard(mutex);
    destroyResultLocked();
  }
  // An unrun continuation is destroyed with its unique_ptr, without being called.
}

template <typename T>
void SharedFutureState<T>::destroyResultLocked() noexcept {
  if (status == FutureStatus::HasValue) {
    delete static_cast<T*>(resultSlot);
  } else if (status == FutureStatus::HasException) {
    delete static_cast<std::exception_ptr*>(resultSlot);
  }
  resultSlot = nullptr;
}

template <typename T>
std::shared_ptr<SharedFutureState<T>> SharedFutureState<T>::markFutureReturned() {
  std::lock_guard<std::mutex> guard(mutex);
  if (futureReturned) {
    throw std::runtime_error(kPromiseFutureAlreadyReturned);
  }
  auto self = this->shared_from_this();
  futureReturned = true;
  return self;
}

template <typename T>
void SharedFutureState<T>::setValue(T&& value) {
  Lock lock(mutex);
  if (status == FutureStatus::HasValue || status == FutureStatus::HasException) {
    throw std::runtime_error(kPromiseAlreadyResolved);
  }
  if (status == FutureStatus::Cancelled) {
    return;
  }
  resultSlot = new T(std::move(value));
  status = FutureStatus::HasValue;
  completeLocked(std::move(lock));
}

template <typename T>
void SharedFutureState<T>::setException(std::exception_ptr error) {
  if (!error) {
    throw std::invalid_argument(kPromiseExceptionNull);
  }
  Lock lock(mutex);
  if (status == FutureStatus::HasValue || status == FutureStatus::HasException) {
    throw std::runtime_error(kPromiseAlreadyResolved);
  }
  if (status == FutureStatus::Cancelled) {
    return;
  }
  // NOLINTNEXTLINE(bugprone-throw-keyword-missing): stores the error, nothing to throw here.
  resultSlot = new std::exception_ptr(std::move(error));
  status = FutureStatus::HasException;
  completeLocked(std::move(lock));
}

template <typename T>
void SharedFutureState<T>::abandon() noexcept {
  Lock lock(mutex);
  if (status == FutureStatus::Pending) {
    // Runs in ~Promise: running out of memory here ends the process, as any failure
    // inside a destructor does.
    // NOLINTBEGIN(bugprone-unhandled-exception-at-new)
    resultSlot =
        new std::exception_ptr(std::make_exception_ptr(std::runtime_error(kPromiseDestroyed)));
    // NOLINTEND(bugprone-unhandled-exception-at-new)
    status = FutureStatus::HasException;
  }
  completeLocked(std::move(lock));
}

template <typename T>
void SharedFutureState<T>::completeLocked(Lock lock) {
  if (!continuation || (status != FutureStatus::HasValue && status != FutureStatus::HasException)) {
    lock.unlock();
    condition.notify_all();
    return;
  }
  // Detach the continuation and let it take a fresh future over this state.
  std::unique_ptr<FutureContinuation<T>> next = std::move(continuation);
  futureReturned = false;
  resultTaken = false;
  lock.unlock();

  struct WakeWaiters {
    std::condition_variable& condition;
    ~WakeWaiters() { condition.notify_all(); }
  } wake{condition};
  next->invoke(this->shared_from_this());
  next.reset();
}

template <typename T>
void SharedFutureState<T>::rethrowUnwrapped(std::exception_ptr error) {
  try {
    std::rethrow_exception(std::move(error));
  } catch (const std::exception_ptr& inner) {
    // A producer wrapped an exception pointer in another one: surface what it points
    // to. A null inner pointer has nothing to surface, so the wrapper itself goes on.
    if (inner) {
      std::rethrow_exception(inner);
    }
    throw;
  }
}

template <typename T>
T SharedFutureState<T>::take() {
  Lock lock(mutex);
  if (resultTaken || continuation) {
    throw std::runtime_error(kFutureAlreadyRetrieved);
  }
  resultTaken = true;
  condition.wait(lock, [this] { return status != FutureStatus::Pending; });
  switch (status) {
    case FutureStatus::HasValue:
      return std::move(*static_cast<T*>(resultSlot));
    case FutureStatus::HasException: {
      std::exception_ptr error = std::move(*static_cast<std::exception_ptr*>(resultSlot));
      lock.unlock();
      rethrowUnwrapped(std::move(error));
    }
    case FutureStatus::Cancelled:
      throw std::runtime_error(kFutureCancelled);
    default:
      throw std::runtime_error(kFutureInvalidState);
  }
}

template <typename T>
void SharedFutureState<T>::attachContinuation(std::unique_ptr<FutureContinuation<T>>&& next) {
  Lock lock(mutex);
  if (resultTaken || continuation) {
    throw std::runtime_error(kFutureAlreadyRetrieved);
  }
  continuation = std::move(next);
  if (status == FutureStatus::HasValue || status == FutureStatus::HasException) {
    completeLocked(std::move(lock));
  }
}

template <typename T>
void SharedFutureState<T>::cancel() {
  Lock lock(mutex);
  if (status != FutureStatus::Pending) {
    return;
  }
  status = FutureStatus::Cancelled;
  lock.unlock();
  condition.notify_all();
}

template <typename T>
FutureStatus SharedFutureState<T>::currentStatus() {
  std::lock_guard<std::mutex> guard(mutex);
  return status;
}

}  // namespace detail
}  // namespace connector

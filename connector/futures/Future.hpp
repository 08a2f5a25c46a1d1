// Future<T>: the consumer's handle of a one-shot result.
//
//   Future<std::unique_ptr<Message>> answer = context->deliver(std::move(msg), std::move(to));
//   std::unique_ptr<Message> reply = answer.get();   // blocks; rethrows a stored error
//
//   answer.then([](Future<std::unique_ptr<Message>> ready) { use(ready.get()); });
//
// get() may be called once; it blocks without a time-out until the promise resolves
// (or is destroyed, which resolves it with "Promise destroyed before it provided a
// value."). A stored exception that is itself a std::exception_ptr surfaces as the
// exception it points to.
//
// Thread-safety: one future object is used by one thread at a time; the state it
// shares with its promise is locked internally. Memory ordering: whatever the
// producer wrote before resolving is visible to the thread that get() returns on, and
// to the continuation. Move-only; destroying a future only releases its share.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include "connector/Export.hpp"
#include "connector/futures/SharedFutureState.hpp"

namespace connector {

template <typename T>
class Promise;

template <typename T>
class CONNECTOR_API Future {
 public:
  // An invalid future: get() throws "Future state isn't valid!".
  Future() noexcept = default;

  explicit Future(std::shared_ptr<detail::SharedFutureState<T>> sharedState) noexcept
      : state(std::move(sharedState)), validFlag(state != nullptr) {}

  Future(const Future&) = delete;
  Future& operator=(const Future&) = delete;

  Future(Future&& other) noexcept
      : state(std::move(other.state)),
        validFlag(std::exchange(other.validFlag, false)),
        continued(std::exchange(other.continued, false)) {}

  Future& operator=(Future&& other) noexcept {
    if (this != &other) {
      state = std::move(other.state);
      validFlag = std::exchange(other.validFlag, false);
      continued = std::exchange(other.continued, false);
    }
    return *this;
  }

  ~Future() = default;

  // Waits until the state resolves, then returns the value (moved out) or rethrows the
  // error. Throws std::runtime_error: "Future state isn't valid!" on an invalid future;
  // "Future already returned it's value or has an associated continuation." on a second
  // call or after then() (also once the continuation has run and left the result
  // untaken: the result belongs to the continuation's future); "Future has been
  // cancelled." after cancel().
  T get() {
    checkValid();
    if (continued) {
      throw std::runtime_error(detail::kFutureAlreadyRetrieved);
    }
    return state->take();
  }

  bool valid() const noexcept { return validFlag; }

  // Moves a pending state to Cancelled; a later value or error is dropped. A resolved
  // state is left as it is. Throws "Future state isn't valid!" on an invalid future.
  void cancel() {
    checkValid();
    state->cancel();
  }

  // Attaches the continuation: once the state resolves, it receives a fresh future over
  // the same state on the resolving thread (at once, on this thread, when the state is
  // resolved already). This future stays valid; its get() then reports the
  // continuation. Throws like get() when the result was taken or a continuation is set,
  // and std::invalid_argument "Future continuation must not be empty." for an empty
  // function (which could otherwise only fail later, on the resolving thread). A
  // continuation that throws lets its exception out of the call it runs in: out of
  // then() when it runs at once, out of the promise's setValue/setException otherwise
  // (from a promise's destructor, it ends the process). Either way it was attached, so
  // get() still reports the continuation afterwards.
  void then(std::function<void(Future<T>)> continuation) {
    checkValid();
    if (!continuation) {
      throw std::invalid_argument(detail::kFutureContinuationEmpty);
    }
    if (continued) {
      throw std::runtime_error(detail::kFutureAlreadyRetrieved);
    }
    std::unique_ptr<detail::FutureContinuation<T>> next =
        std::make_unique<FunctionContinuation>(std::move(continuation));
    try {
      state->attachContinuation(std::move(next));
    } catch (...) {
      // The state took `next` only if it attached it: a continuation that then ran at
      // once and threw still owns the result.
      continued = next == nullptr;
      throw;
    }
    continued = true;
  }

 private:
  class FunctionContinuation final : public detail::FutureContinuation<T> {
   public:
    explicit FunctionContinuation(std::function<void(Future<T>)> fn) : fn(std::move(fn)) {}
    void invoke(std::shared_ptr<detail::SharedFutureState<T>> resolved) override {
      fn(Future<T>(resolved->markFutureReturned()));
    }

   private:
    std::function<void(Future<T>)> fn;
  };

  void checkValid() const {
    if (!validFlag) {
      throw std::runtime_error(detail::kFutureStateInvalid);
    }
  }

  std::shared_ptr<detail::SharedFutureState<T>> state;
  bool validFlag = false;
  // Set by then(): the result belongs to the continuation's future from then on, even
  // after the continuation has run and the state has cleared its own flags for it.
  bool continued = false;
};

}  // namespace connector

// Promise<T>: the producer's handle of a one-shot result.
//
//   Promise<DataBuffer> promise;
//   Future<DataBuffer> future = promise.getFuture();
//   promise.setValue(DataBuffer("bytes"));      // or setException(std::current_exception())
//
// A promise destroyed before it resolves its state resolves it with the error
// "Promise destroyed before it provided a value.", so a waiting consumer never hangs.
//
// Thread-safety: one promise object is used by one thread at a time; it may be
// resolved on any thread while the consumer waits on another. `valid` is atomic so the
// destructor's hand-over is visible to concurrent readers of valid(). Move-only.
#pragma once

#include <atomic>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/futures/SharedFutureState.hpp"

namespace connector {

template <typename T>
class CONNECTOR_API Promise {
 public:
  // Makes a fresh, pending state.
  Promise() : state(std::make_shared<detail::SharedFutureState<T>>()), validFlag(true) {}

  Promise(const Promise&) = delete;
  Promise& operator=(const Promise&) = delete;

  Promise(Promise&& other) noexcept
      : state(std::move(other.state)), validFlag(other.validFlag.exchange(false)) {}

  Promise& operator=(Promise&& other) noexcept {
    if (this != &other) {
      release();
      state = std::move(other.state);
      validFlag.store(other.validFlag.exchange(false));
    }
    return *this;
  }

  // Abandons a still valid promise (see the class comment); never throws.
  ~Promise() { release(); }

  // Returns the one future of this promise.
  // Throws std::runtime_error "Promise state isn't valid!" on a moved-from promise and
  // "Promise already returned a future." on a second call.
  Future<T> getFuture() {
    checkValid();
    return Future<T>(state->markFutureReturned());
  }

  // Resolves with a value; wakes waiters after running an attached continuation.
  // Throws "Promise state isn't valid!" or "Promise already resolved."; a cancelled
  // state drops the value without error.
  void setValue(T&& value) {
    checkValid();
    std::shared_ptr<detail::SharedFutureState<T>> keep = state;
    keep->setValue(std::move(value));
  }

  // Resolves with an error; same rules as setValue. A null `error` is refused before
  // anything changes (the promise stays valid and pending): throws
  // std::invalid_argument "Promise exception must not be null.".
  void setException(std::exception_ptr error) {
    checkValid();
    std::shared_ptr<detail::SharedFutureState<T>> keep = state;
    keep->setException(std::move(error));
  }

  bool valid() const noexcept { return validFlag.load(); }

 private:
  void checkValid() const {
    if (!validFlag.load()) {
      throw std::runtime_error(detail::kPromiseStateInvalid);
    }
  }

  void release() noexcept {
    if (validFlag.exchange(false)) {
      state->abandon();
    }
    state.reset();
  }

  std::shared_ptr<detail::SharedFutureState<T>> state;
  std::atomic<bool> validFlag;
};

}  // namespace connector

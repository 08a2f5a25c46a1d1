// makeReadyFuture / makeFailedFuture: futures that are resolved before anyone sees them.
//
//   Future<bool> done = makeReadyFuture<bool>(true);              // get() returns at once
//   auto failed = makeFailedFuture<std::unique_ptr<Message>>(
//       std::make_exception_ptr(std::runtime_error("no route")));  // get() rethrows at once
//
// Thread-safety: each call makes its own fresh state; nothing is shared.
#pragma once

#include <exception>
#include <stdexcept>
#include <utility>

#include "connector/futures/Future.hpp"
#include "connector/futures/Promise.hpp"

namespace connector {

// A fresh state resolved with `value`; the promise is let go at once.
template <typename T>
Future<T> makeReadyFuture(T&& value) {
  Promise<T> promise;
  promise.setValue(std::forward<T>(value));
  return promise.getFuture();
}

// A fresh state resolved with `error` (HasException); get() rethrows it at once.
// Never throws for a null `error` (e.g. std::current_exception() outside a handler):
// the future then fails with std::runtime_error "Failed future made from a null
// exception.", so a producer that answers through a future still answers.
template <typename T>
Future<T> makeFailedFuture(std::exception_ptr error) {
  if (!error) {
    error = std::make_exception_ptr(std::runtime_error(detail::kFailedFutureWithoutException));
  }
  Promise<T> promise;
  promise.setException(std::move(error));
  return promise.getFuture();
}

}  // namespace connector

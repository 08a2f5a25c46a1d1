// settle: takes a future of a message apart, telling whether it was resolved already.
//
//   Outcome outcome = settle(serializer->deserialize(publisher));
//   EXPECT_TRUE(outcome.resolved);                    // ready or failed, never pending
//   EXPECT_THROW_TEXT(outcome.rethrow(), std::invalid_argument, "...");
//
// Thread-safety: for use on one test thread.
#pragma once

#include <exception>
#include <memory>
#include <stdexcept>

#include <connector/json.hpp>

namespace connector::testing {

struct Outcome {
  bool resolved = false;
  std::unique_ptr<Message> message;
  std::exception_ptr error;

  void rethrow() const {
    if (error) {
      std::rethrow_exception(error);
    }
  }
};

// A continuation attached to a resolved state runs at once on this thread, so
// `resolved` is true exactly when the future was ready or failed when it was returned.
inline Outcome settle(Future<std::unique_ptr<Message>>&& future) {
  Outcome outcome;
  future.then([&outcome](Future<std::unique_ptr<Message>> ready) {
    outcome.resolved = true;
    try {
      outcome.message = ready.get();
    } catch (...) {
      outcome.error = std::current_exception();
    }
  });
  return outcome;
}

}  // namespace connector::testing

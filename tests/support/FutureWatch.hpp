// watch(future): attaches a continuation that records whether, and with what, a future
// resolved, so that a test can tell a pending future from a resolved one without
// blocking in get().
//
//   auto seen = watch(subscriber->result());
//   EXPECT_FALSE(seen->resolved());
//   publisher->complete();
//   EXPECT_EQ(seen->value->view(), "ab");
//
// Thread-safety: the record is written on the resolving thread; read it only after
// that thread's work is joined or on that same thread.
#pragma once

#include <connector/json.hpp>

#include <exception>
#include <memory>
#include <optional>
#include <utility>

namespace connector::testing {

template <typename V>
struct FutureRecord {
  bool resolved() const { return value.has_value() || error != nullptr; }
  std::optional<V> value;
  std::exception_ptr error;  // whatever get() threw, as thrown
};

template <typename V>
std::shared_ptr<FutureRecord<V>> watch(Future<V>&& future) {
  auto record = std::make_shared<FutureRecord<V>>();
  future.then([record](Future<V> ready) {
    try {
      record->value.emplace(ready.get());
    } catch (...) {
      record->error = std::current_exception();
    }
  });
  return record;
}

}  // namespace connector::testing

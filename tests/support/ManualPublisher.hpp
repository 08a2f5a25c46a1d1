// ManualPublisher<T>: a test publisher that the test drives signal by signal, with a
// subscription that counts what its subscriber asks of it.
//
//   auto publisher = std::make_shared<ManualPublisher<DataBuffer>>();
//   publisher->subscribe(subscriber);        // onSubscribe only
//   publisher->next(DataBuffer("ab"));       // onNext, on the calling thread
//   publisher->complete();                   // onComplete
//   EXPECT_EQ(publisher->subscription->cancels.load(), 0);
//
// Thread-safety: signals go out on whichever thread calls next/complete/fail (one at a
// time); the subscription's counters are atomic, so cancel() and request() may come
// from any thread.
#pragma once

#include <connector/json.hpp>

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <utility>

namespace connector::testing {

class CountingSubscription : public reactive_streams::Subscription {
 public:
  void request(std::int64_t n) override {
    requests.fetch_add(1);
    lastRequest.store(n);
  }
  void cancel() override { cancels.fetch_add(1); }

  std::atomic<int> requests{0};
  std::atomic<std::int64_t> lastRequest{0};
  std::atomic<int> cancels{0};
};

template <typename T>
class ManualPublisher : public reactive_streams::PublisherAPI<T> {
 public:
  Future<bool> completion() override { return makeReadyFuture<bool>(true); }

  void subscribe(std::shared_ptr<reactive_streams::SubscriberAPI<T>> s) override {
    subscriber = std::move(s);
    subscriber->onSubscribe(subscription);
  }

  void next(T&& item) { subscriber->onNext(std::move(item)); }
  void complete() { subscriber->onComplete(); }
  void fail(std::exception_ptr e) { subscriber->onError(std::move(e)); }

  std::shared_ptr<CountingSubscription> subscription = std::make_shared<CountingSubscription>();
  std::shared_ptr<reactive_streams::SubscriberAPI<T>> subscriber;
};

}  // namespace connector::testing

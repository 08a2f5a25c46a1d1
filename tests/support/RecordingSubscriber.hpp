// RecordingSubscriber<T>: a test subscriber that writes down every signal it receives
// and, optionally, requests demand inside onSubscribe.
//
//   auto subscriber = std::make_shared<RecordingSubscriber<DataBuffer>>(1);  // request(1)
//   publisher->subscribe(subscriber);
//   EXPECT_EQ(subscriber->events, (std::vector<std::string>{"subscribe", "next", "complete"}));
//   EXPECT_EQ(subscriber->items[0].view(), "bytes");
//
// Thread-safety: none; drive it from one thread.
#pragma once

#include <connector/json.hpp>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace connector::testing {

template <typename T>
class RecordingSubscriber : public reactive_streams::SubscriberAPI<T> {
 public:
  // With a demand, onSubscribe calls request(demand) on the subscription it receives.
  explicit RecordingSubscriber(std::optional<std::int64_t> demandOnSubscribe = std::nullopt)
      : demandOnSubscribe(demandOnSubscribe) {}

  void onSubscribe(std::weak_ptr<reactive_streams::Subscription> s) override {
    events.emplace_back("subscribe");
    subscription = s;
    if (demandOnSubscribe) {
      s.lock()->request(*demandOnSubscribe);
    }
  }

  void onNext(T&& item) override {
    events.emplace_back("next");
    // Takes the item only when asked to; by default only reads it (copies).
    items.push_back(takeItems ? std::move(item) : T(item));
    if (onNextHook) {
      onNextHook();
    }
  }

  void onComplete() override { events.emplace_back("complete"); }

  void onError(std::exception_ptr e) override {
    events.emplace_back("error");
    errors.push_back(std::move(e));
  }

  Future<bool> completion() override {
    return makeReadyFuture<bool>(!events.empty() && events.back() == "complete");
  }

  std::optional<std::int64_t> demandOnSubscribe;
  bool takeItems = false;
  std::function<void()> onNextHook;  // runs after an item was recorded
  std::vector<std::string> events;
  std::vector<T> items;
  std::vector<std::exception_ptr> errors;
  std::weak_ptr<reactive_streams::Subscription> subscription;
};

}  // namespace connector::testing

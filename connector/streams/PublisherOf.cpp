#include "connector/streams/PublisherOf.hpp"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "connector/futures/MakeFuture.hpp"
#include "connector/host/Subscriber.hpp"
#include "connector/host/Subscription.hpp"
#include "connector/streams/OneShotPublisher.hpp"

namespace connector::json {

namespace {

using common::DataBuffer;
using reactive_streams::PublisherAPI;
using reactive_streams::SubscriberAPI;
using reactive_streams::Subscription;

// One subscriber's view of the shared bytes. `settled` is claimed exactly once, by the
// first request with demand (which then delivers) or by cancel; `finished` is set when
// that claim has run to its end, after which the publisher may drop the subscription.
class TextSubscription final : public Subscription {
 public:
  TextSubscription(std::shared_ptr<const DataBuffer> bytes,
                   std::shared_ptr<SubscriberAPI<DataBuffer>> subscriber) noexcept
      : bytes(std::move(bytes)), subscriber(std::move(subscriber)) {}

  void request(std::int64_t n) override {
    if (n == 0 || settled.exchange(true)) {
      return;
    }
    // Only this call reaches the subscriber from now on; it lets go of it when done.
    struct Finish {
      std::atomic<bool>& flag;
      ~Finish() { flag.store(true); }
    } finish{finished};
    const std::shared_ptr<SubscriberAPI<DataBuffer>> target = std::move(subscriber);
    if (bytes->size != 0) {
      target->onNext(DataBuffer(*bytes));
    }
    target->onComplete();
  }

  void cancel() override {
    if (!settled.exchange(true)) {
      subscriber.reset();
      finished.store(true);
    }
  }

  bool isFinished() const noexcept { return finished.load(); }

 private:
  std::shared_ptr<const DataBuffer> bytes;
  std::shared_ptr<SubscriberAPI<DataBuffer>> subscriber;  // touched only by the claim's owner
  std::atomic<bool> settled{false};
  std::atomic<bool> finished{false};
};

class TextPublisher final : public PublisherAPI<DataBuffer> {
 public:
  explicit TextPublisher(DataBuffer bytes)
      : bytes(std::make_shared<const DataBuffer>(std::move(bytes))) {}

  Future<bool> completion() override { return makeReadyFuture<bool>(true); }

  void subscribe(std::shared_ptr<SubscriberAPI<DataBuffer>> s) override {
    if (s == nullptr) {
      throw std::invalid_argument(reactive_streams::detail::kNullSubscriber);
    }
    auto subscription = std::make_shared<TextSubscription>(bytes, s);
    {
      // The subscriber holds its subscription only weakly: the publisher keeps each one
      // until it has delivered or was cancelled, and forgets those on later subscribes.
      const std::lock_guard<std::mutex> lock(mutex);
      subscriptions.erase(std::remove_if(subscriptions.begin(), subscriptions.end(),
                                         [](const std::shared_ptr<TextSubscription>& each) {
                                           return each->isFinished();
                                         }),
                          subscriptions.end());
      subscriptions.push_back(subscription);
    }
    s->onSubscribe(std::weak_ptr<Subscription>(subscription));
  }

 private:
  const std::shared_ptr<const DataBuffer> bytes;
  std::mutex mutex;
  std::vector<std::shared_ptr<TextSubscription>> subscriptions;  // guarded by mutex
};

}  // namespace

std::shared_ptr<PublisherAPI<DataBuffer>> publisherOf(const std::string& text) {
  return std::make_shared<TextPublisher>(DataBuffer(std::string_view(text)));
}

std::shared_ptr<PublisherAPI<DataBuffer>> publisherOf(DataBuffer bytes) {
  return std::make_shared<TextPublisher>(std::move(bytes));
}

}  // namespace connector::json

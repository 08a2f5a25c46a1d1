// StagedPublisher: a byte publisher that delivers given chunks synchronously, on the
// thread that signals demand, and then ends as told: onComplete, or onError with a
// given error; the end may instead come later from a thread of its own, so that a
// reader sees some bytes before the stream is over.
//
//   auto bytes = std::make_shared<StagedPublisher>(StagedPublisher::split(text, 3));
//   auto failing = std::make_shared<StagedPublisher>(chunks, error);     // onError at the end
//   auto late = std::make_shared<StagedPublisher>(chunks, nullptr, true); // ends from a thread
//
// Empty chunks are delivered as empty buffers. Demand is honoured item by item.
//
// Thread-safety: subscribe once, from one thread; with a late end, the ending thread is
// joined by the destructor.
#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <connector/json.hpp>

namespace connector::testing {

class StagedPublisher final : public reactive_streams::PublisherAPI<common::DataBuffer>,
                              public std::enable_shared_from_this<StagedPublisher> {
 public:
  explicit StagedPublisher(std::vector<std::string> chunks, std::exception_ptr error = nullptr,
                           bool endLater = false)
      : chunks(std::move(chunks)), error(std::move(error)), endLater(endLater) {}

  ~StagedPublisher() override {
    if (ender.joinable()) ender.join();
  }

  // text in chunks of `size` bytes (at least one chunk, even for empty text).
  static std::vector<std::string> split(std::string_view text, std::size_t size) {
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < text.size(); at += size) {
      pieces.emplace_back(text.substr(at, size));
    }
    if (pieces.empty()) pieces.emplace_back();
    return pieces;
  }

  Future<bool> completion() override { return makeReadyFuture<bool>(true); }

  void subscribe(std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>> s) override {
    if (subscriber) {
      throw std::invalid_argument("Only one subscription allowed.");
    }
    subscriber = std::move(s);
    link = std::make_shared<Link>(weak_from_this());
    subscriber->onSubscribe(link);
    emit();
  }

 private:
  class Link final : public reactive_streams::Subscription {
   public:
    explicit Link(std::weak_ptr<StagedPublisher> owner) : owner(std::move(owner)) {}
    void request(std::int64_t n) override {
      if (auto publisher = owner.lock()) {
        publisher->addDemand(n);
        publisher->emit();
      }
    }
    void cancel() override {
      if (auto publisher = owner.lock()) publisher->cancelled = true;
    }

   private:
    std::weak_ptr<StagedPublisher> owner;
  };

  void addDemand(std::int64_t n) {
    constexpr std::uint64_t unbounded = std::numeric_limits<std::uint64_t>::max();
    if (n < 0 || demand > unbounded - static_cast<std::uint64_t>(n)) {
      demand = unbounded;
    } else {
      demand += static_cast<std::uint64_t>(n);
    }
  }

  void emit() {
    if (emitting || !subscriber) return;
    emitting = true;
    while (!cancelled && !done) {
      if (next == chunks.size()) {
        done = true;
        if (endLater) {
          ender = std::thread([target = subscriber, failure = error] {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
            finish(*target, failure);
          });
        } else {
          finish(*subscriber, error);
        }
        break;
      }
      if (demand == 0) break;
      if (demand != std::numeric_limits<std::uint64_t>::max()) --demand;
      const std::string& chunk = chunks[next++];
      subscriber->onNext(common::DataBuffer(chunk.data(), chunk.size()));
    }
    emitting = false;
  }

  static void finish(reactive_streams::SubscriberAPI<common::DataBuffer>& target,
                     const std::exception_ptr& failure) {
    if (failure) {
      target.onError(failure);
    } else {
      target.onComplete();
    }
  }

  std::vector<std::string> chunks;
  std::exception_ptr error;
  bool endLater;
  std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>> subscriber;
  std::shared_ptr<Link> link;
  std::thread ender;
  std::size_t next = 0;
  std::uint64_t demand = 0;
  bool emitting = false;
  bool cancelled = false;
  bool done = false;
};

}  // namespace connector::testing

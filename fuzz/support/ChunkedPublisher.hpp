// ChunkedPublisher: a byte publisher that emits given chunks synchronously, on the thread
// that signals demand, then onComplete.
//
//   auto bytes = std::make_shared<ChunkedPublisher>(std::vector<std::string>{"{\"ty", "pe\":1}"});
//   serializer->deserialize(bytes);   // the reader's request(-1) delivers every chunk at once
//
// Empty chunks are emitted as empty buffers, so a reader sees them as they are. Demand is
// honoured item by item; a request made from inside onNext (re-entrant) only adds demand,
// the outer call goes on emitting.
//
// Thread-safety: none; one thread drives it, as a fuzz target does.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <connector/json.hpp>

namespace connector::fuzzing {

class ChunkedPublisher final : public reactive_streams::PublisherAPI<common::DataBuffer>,
                               public std::enable_shared_from_this<ChunkedPublisher> {
 public:
  explicit ChunkedPublisher(std::vector<std::string> chunks) : chunks(std::move(chunks)) {}

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
    explicit Link(std::weak_ptr<ChunkedPublisher> owner) : owner(std::move(owner)) {}
    void request(std::int64_t n) override {
      if (auto publisher = owner.lock()) {
        publisher->addDemand(n);
        publisher->emit();
      }
    }
    void cancel() override {
      if (auto publisher = owner.lock()) {
        publisher->cancelled = true;
      }
    }

   private:
    std::weak_ptr<ChunkedPublisher> owner;
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
    if (emitting || !subscriber) {
      return;
    }
    emitting = true;
    while (!cancelled && !done) {
      if (next == chunks.size()) {  // completion needs no demand
        done = true;
        subscriber->onComplete();
        break;
      }
      if (demand == 0) {
        break;
      }
      if (demand != std::numeric_limits<std::uint64_t>::max()) {
        --demand;
      }
      const std::string& chunk = chunks[next++];
      subscriber->onNext(common::DataBuffer(chunk.data(), chunk.size()));
    }
    emitting = false;
  }

  std::vector<std::string> chunks;
  std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>> subscriber;
  std::shared_ptr<Link> link;
  std::size_t next = 0;
  std::uint64_t demand = 0;
  bool emitting = false;
  bool cancelled = false;
  bool done = false;
};

}  // namespace connector::fuzzing

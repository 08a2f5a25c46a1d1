// ChunkPublisher: a byte publisher that delivers given chunks from its own thread.
//
//   auto publisher = std::make_shared<ChunkPublisher>(ChunkPublisher::split(text, 1));
//   auto message = serializer->deserialize(publisher).get();
//
// The delivery thread starts on subscribe, waits for demand, sends each chunk as one
// onNext, then onComplete (or onError with the given error, when one is set). The
// destructor joins the thread, so a test never leaves it running.
//
// Thread-safety: subscribe once; request and cancel may come from any thread.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <connector/json.hpp>

namespace connector::testing {

class ChunkPublisher final : public reactive_streams::PublisherAPI<common::DataBuffer>,
                             public std::enable_shared_from_this<ChunkPublisher> {
 public:
  explicit ChunkPublisher(std::vector<std::string> chunks, std::exception_ptr error = nullptr)
      : chunks(std::move(chunks)), error(std::move(error)) {}

  ~ChunkPublisher() override {
    {
      std::lock_guard<std::mutex> guard(mutex);
      cancelled = true;
    }
    wake.notify_all();
    if (worker.joinable()) {
      worker.join();
    }
  }

  // The text cut into chunks of `size` bytes (the last one may be shorter).
  static std::vector<std::string> split(std::string_view text, std::size_t size) {
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < text.size(); at += size) {
      pieces.emplace_back(text.substr(at, size));
    }
    return pieces;
  }

  Future<bool> completion() override {
    std::lock_guard<std::mutex> guard(mutex);
    waiting.emplace_back();
    return waiting.back().getFuture();
  }

  void subscribe(std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>> s) override {
    {
      std::lock_guard<std::mutex> guard(mutex);
      if (subscriber) {
        throw std::invalid_argument("Only one subscription allowed.");
      }
      subscriber = std::move(s);
      subscription = std::make_shared<Link>(weak_from_this());
    }
    subscriber->onSubscribe(subscription);
    worker = std::thread([this] { run(); });
  }

 private:
  class Link final : public reactive_streams::Subscription {
   public:
    explicit Link(std::weak_ptr<ChunkPublisher> owner) : owner(std::move(owner)) {}
    void request(std::int64_t n) override {
      if (auto publisher = owner.lock()) {
        publisher->addDemand(n);
      }
    }
    void cancel() override {
      if (auto publisher = owner.lock()) {
        publisher->stop();
      }
    }

   private:
    std::weak_ptr<ChunkPublisher> owner;
  };

  void addDemand(std::int64_t n) {
    {
      std::lock_guard<std::mutex> guard(mutex);
      if (n < 0) {
        unbounded = true;
      } else {
        demand += static_cast<std::uint64_t>(n);
      }
    }
    wake.notify_all();
  }

  void stop() {
    {
      std::lock_guard<std::mutex> guard(mutex);
      cancelled = true;
    }
    wake.notify_all();
  }

  void run() {
    for (auto& chunk : chunks) {
      {
        std::unique_lock<std::mutex> lock(mutex);
        wake.wait(lock, [this] { return cancelled || unbounded || demand > 0; });
        if (cancelled) {
          resolve(false);
          return;
        }
        if (!unbounded) {
          --demand;
        }
      }
      subscriber->onNext(common::DataBuffer(std::string_view(chunk)));
    }
    if (error) {
      subscriber->onError(error);
    } else {
      subscriber->onComplete();
    }
    std::lock_guard<std::mutex> guard(mutex);
    resolve(true);
  }

  // Caller holds mutex.
  void resolve(bool value) {
    for (auto& promise : waiting) {
      promise.setValue(bool(value));
    }
    waiting.clear();
  }

  const std::vector<std::string> chunks;
  const std::exception_ptr error;
  std::thread worker;
  std::mutex mutex;
  std::condition_variable wake;
  std::shared_ptr<reactive_streams::SubscriberAPI<common::DataBuffer>> subscriber;  // set once
  std::shared_ptr<Link> subscription;  // guarded by mutex
  std::uint64_t demand = 0;            // guarded by mutex
  bool unbounded = false;              // guarded by mutex
  bool cancelled = false;              // guarded by mutex
  std::vector<Promise<bool>> waiting;  // guarded by mutex
};

}  // namespace connector::testing

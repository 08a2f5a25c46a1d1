// Small typed services for the router tests: they answer plain C++ messages, so the
// router is tested without the JSON bridge.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <connector/json.hpp>

namespace connector::testing {

// A request or answer carrying one text and one number.
struct TextMessage : Message {
  TextMessage(std::string text, long number = 0) : text(std::move(text)), number(number) {}
  std::string text;
  long number;
};

inline std::unique_ptr<Message> text(std::string value, long number = 0) {
  return std::make_unique<TextMessage>(std::move(value), number);
}

// Reads the answer of a delivery as a TextMessage; fails the test on any other type.
inline const TextMessage& asText(const std::unique_ptr<Message>& message) {
  auto* typed = dynamic_cast<const TextMessage*>(message.get());
  if (typed == nullptr) {
    throw std::logic_error("answer is not a TextMessage");
  }
  return *typed;
}

// Counts its lifecycle calls; the base for the services below.
class CountingService : public ServiceProvider {
 public:
  void start() override { ++starts; }
  void stop() override { ++stops; }
  std::atomic<int> starts{0};
  std::atomic<int> stops{0};
};

// Answers "<prefix><text>" with the request's number; remembers the last address seen.
class EchoService : public CountingService {
 public:
  explicit EchoService(std::string prefix = "echo: ") : prefix(std::move(prefix)) {}

  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&& address,
                                           std::shared_ptr<Context>&&) override {
    const TextMessage& request = asText(message);
    {
      std::lock_guard<std::mutex> lock(mutex);
      lastAddressSeen = address.str();
    }
    ++deliveries;
    return makeReadyFuture<std::unique_ptr<Message>>(text(prefix + request.text, request.number));
  }

  std::string lastAddress() const {
    std::lock_guard<std::mutex> lock(mutex);
    return lastAddressSeen;
  }

  std::string prefix;
  std::atomic<int> deliveries{0};

 private:
  mutable std::mutex mutex;
  std::string lastAddressSeen;  // guarded by mutex
};

// Sends the request on through its context to `target`, blocks on the answer on the
// delivering thread, and answers "forwarded(<inner answer>)".
class ForwardingService : public CountingService {
 public:
  explicit ForwardingService(std::string target) : target(std::move(target)) {}

  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&&,
                                           std::shared_ptr<Context>&& context) override {
    Future<std::unique_ptr<Message>> inner = context->deliver(std::move(message), Address(target));
    std::unique_ptr<Message> answer = inner.get();
    const TextMessage& typed = asText(answer);
    return makeReadyFuture<std::unique_ptr<Message>>(
        text("forwarded(" + typed.text + ")", typed.number));
  }

  std::string target;
};

// Answers from another thread, after the delivering thread has returned the future.
class AsyncEchoService : public CountingService {
 public:
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&&,
                                           std::shared_ptr<Context>&&) override {
    Promise<std::unique_ptr<Message>> promise;
    Future<std::unique_ptr<Message>> future = promise.getFuture();
    std::lock_guard<std::mutex> lock(mutex);
    workers.emplace_back([promise = std::move(promise), request = std::move(message)]() mutable {
      const TextMessage& typed = asText(request);
      promise.setValue(text("async: " + typed.text, typed.number));
    });
    return future;
  }

  ~AsyncEchoService() override {
    for (std::thread& worker : workers) worker.join();
  }

 private:
  std::mutex mutex;
  std::vector<std::thread> workers;  // guarded by mutex
};

// Throws synchronously from deliver.
class ThrowingService : public CountingService {
 public:
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&&, Address&&,
                                           std::shared_ptr<Context>&&) override {
    throw std::runtime_error("inventory database unreachable");
  }
};

// Fails to start (or to stop) with the given text.
class FailingLifecycleService : public EchoService {
 public:
  FailingLifecycleService(bool failStart, bool failStop)
      : failStart(failStart), failStop(failStop) {}
  void start() override {
    ++starts;
    if (failStart) throw std::runtime_error("cannot start");
  }
  void stop() override {
    ++stops;
    if (failStop) throw std::runtime_error("cannot stop");
  }
  bool failStart;
  bool failStop;
};

}  // namespace connector::testing

// RecordingContext: a test Context that records what it is asked to deliver and answers
// with a future chosen by the test: ready, failed, invalid, or resolved later from
// another thread.
//
//   auto context = std::make_shared<RecordingContext>();
//   context->answerWith([](std::unique_ptr<Message>) { return makeReadyFuture(...); });
//   provider->deliver(std::move(request), Address("a"), context);
//   EXPECT_EQ(context->calls(), 1);
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <connector/json.hpp>

namespace connector::testing {

class RecordingContext : public Context {
 public:
  using Answer = std::function<Future<std::unique_ptr<Message>>(std::unique_ptr<Message>&)>;

  ~RecordingContext() override {
    for (auto& t : lateThreads) {
      t.join();
    }
  }

  // How to answer; by default an invalid future.
  void answerWith(Answer answer) { reply = std::move(answer); }

  // From now on the context does not take the messages it is given: they stay with the
  // caller (`messages` then records nothing).
  void leaveMessagesWithTheCaller() { takesMessages = false; }

  // Answers with the given message, resolved from another thread after a short pause.
  void answerLaterWith(std::function<std::unique_ptr<Message>()> make) {
    reply = [this, make](std::unique_ptr<Message>&) {
      auto promise = std::make_shared<Promise<std::unique_ptr<Message>>>();
      Future<std::unique_ptr<Message>> future = promise->getFuture();
      lateThreads.emplace_back([promise, make] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        promise->setValue(make());
      });
      return future;
    };
  }

  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                           Address&& address) override {
    std::lock_guard<std::mutex> guard(mutex);
    addresses.push_back(address);
    Future<std::unique_ptr<Message>> answer =
        reply ? reply(message) : Future<std::unique_ptr<Message>>();
    ++callCount;
    // The context takes what it was given, as a host would, unless told otherwise.
    if (takesMessages) {
      messages.push_back(std::move(message));
    }
    return answer;
  }

  std::size_t calls() {
    std::lock_guard<std::mutex> guard(mutex);
    return callCount;
  }

  std::vector<std::unique_ptr<Message>> messages;
  std::vector<Address> addresses;

 private:
  std::mutex mutex;
  Answer reply;
  bool takesMessages = true;
  std::size_t callCount = 0;
  std::vector<std::thread> lateThreads;
};

}  // namespace connector::testing

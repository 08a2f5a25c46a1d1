#include "connector/host/IStreamSubscriber.hpp"

#include <exception>
#include <stdexcept>
#include <utility>

#include "connector/futures/MakeFuture.hpp"

namespace connector::reactive_streams {

// A read-only streambuf over a queue of received buffers. The producer side (push,
// finish) runs on the publisher's threads; underflow runs on the one reader thread and
// makes a whole received buffer the get area, so reads take no lock per byte.
class IStreamSubscriber::QueueBuffer : public std::streambuf {
 public:
  void push(common::DataBuffer&& item) {
    if (item.size == 0) {
      return;
    }
    {
      std::lock_guard<std::mutex> guard(mutex);
      if (finished) {
        return;
      }
      queue.push_back(std::move(item));
    }
    arrived.notify_one();
  }

  void finish(std::exception_ptr failure) {
    {
      std::lock_guard<std::mutex> guard(mutex);
      if (finished) {
        return;
      }
      finished = true;
      error = std::move(failure);
    }
    arrived.notify_one();
  }

 protected:
  int_type underflow() override {
    if (gptr() < egptr()) {
      return traits_type::to_int_type(*gptr());
    }
    std::unique_lock<std::mutex> lock(mutex);
    arrived.wait(lock, [this] { return !queue.empty() || finished; });
    if (queue.empty()) {
      std::exception_ptr failure = error;
      lock.unlock();
      if (failure) {
        // The istream turns this into badbit (and rethrows it only when the reader
        // asked for exceptions on badbit).
        std::rethrow_exception(failure);
      }
      return traits_type::eof();
    }
    current = std::move(queue.front());
    queue.pop_front();
    lock.unlock();
    char* begin = reinterpret_cast<char*>(current.data);
    setg(begin, begin, begin + current.size);
    return traits_type::to_int_type(*gptr());
  }

  std::streamsize showmanyc() override {
    std::lock_guard<std::mutex> guard(mutex);
    std::streamsize ready = 0;
    for (const auto& item : queue) {
      ready += static_cast<std::streamsize>(item.size);
    }
    return ready == 0 && finished ? -1 : ready;
  }

 private:
  std::mutex mutex;
  std::condition_variable arrived;       // signalled on push and finish
  std::deque<common::DataBuffer> queue;  // guarded by mutex
  bool finished = false;                 // guarded by mutex
  std::exception_ptr error;              // guarded by mutex
  common::DataBuffer current;            // reader thread only: the get area's storage
};

IStreamSubscriber::IStreamSubscriber()
    : buffer(std::make_unique<QueueBuffer>()), input(buffer.get()) {}

IStreamSubscriber::~IStreamSubscriber() = default;

void IStreamSubscriber::onSubscribe(std::weak_ptr<Subscription> subscription) {
  if (auto strong = subscription.lock()) {
    strong->request(-1);
    return;
  }
  // Nothing can ever arrive: end the stream instead of letting a reader wait forever.
  // The error is built in its own statement so that its temporaries are gone before a
  // reader on another thread can see it (they share the text's reference count).
  std::exception_ptr gone = std::make_exception_ptr(std::runtime_error("Subscription went away!"));
  onError(std::move(gone));
}

void IStreamSubscriber::onNext(common::DataBuffer&& item) { buffer->push(std::move(item)); }

void IStreamSubscriber::onComplete() {
  buffer->finish(nullptr);
  resolveCompletion(nullptr);
}

void IStreamSubscriber::onError(std::exception_ptr error) {
  if (!error) {
    error = std::make_exception_ptr(std::runtime_error("Stream failed without an error."));
  }
  buffer->finish(error);
  resolveCompletion(error);
}

Future<bool> IStreamSubscriber::completion() {
  std::lock_guard<std::mutex> guard(completionMutex);
  if (!finished) {
    waiting.emplace_back();
    return waiting.back().getFuture();
  }
  return failure ? makeFailedFuture<bool>(failure) : makeReadyFuture<bool>(true);
}

void IStreamSubscriber::resolveCompletion(const std::exception_ptr& error) {
  std::vector<Promise<bool>> resolved;
  {
    std::lock_guard<std::mutex> guard(completionMutex);
    if (finished) {
      return;
    }
    finished = true;
    failure = error;
    resolved.swap(waiting);
  }
  // Continuations of the futures run here, outside the lock.
  for (auto& promise : resolved) {
    if (error) {
      promise.setException(error);
    } else {
      promise.setValue(true);
    }
  }
}

}  // namespace connector::reactive_streams

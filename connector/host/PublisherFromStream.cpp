#include "connector/host/PublisherFromStream.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <streambuf>
#include <utility>
#include <vector>

#include "connector/futures/MakeFuture.hpp"
#include "connector/futures/Promise.hpp"

namespace connector::reactive_streams {
namespace {

using common::DataBuffer;

class StreamPublisher;

// The subscription handed to the subscriber; it reaches the publisher weakly, so a
// request after the publisher is gone does nothing.
class StreamSubscription final : public Subscription {
 public:
  explicit StreamSubscription(std::weak_ptr<StreamPublisher> publisher)
      : publisher(std::move(publisher)) {}
  void request(std::int64_t n) override;
  void cancel() override;

 private:
  std::weak_ptr<StreamPublisher> publisher;
};

// Publishes the bytes that a writer callback writes, in chunks of at most
// kStreamChunkSize, honouring demand.
//
// Emission is serialised: whichever thread finds `emitting` clear becomes the emitter
// and delivers queued chunks while there is demand; other threads only add demand or
// chunks and leave. The check that ends an emitter's turn and the clearing of
// `emitting` happen under one lock hold, so nothing queued is ever stranded.
class StreamPublisher final : public PublisherAPI<DataBuffer>,
                              public std::enable_shared_from_this<StreamPublisher> {
 public:
  explicit StreamPublisher(std::function<void(std::ostream&)>&& writer)
      : writer(std::move(writer)) {}

  Future<bool> completion() override {
    std::lock_guard<std::mutex> guard(mutex);
    switch (outcome) {
      case Outcome::Open:
        waiting.emplace_back();
        return waiting.back().getFuture();
      case Outcome::Completed:
        return makeReadyFuture<bool>(true);
      case Outcome::Cancelled:
        return makeReadyFuture<bool>(false);
      case Outcome::Failed:
        break;
    }
    return makeFailedFuture<bool>(writerError);
  }

  void subscribe(std::shared_ptr<SubscriberAPI<DataBuffer>> s) override {
    if (!s) {
      throw std::invalid_argument("Subscriber must not be null.");
    }
    std::shared_ptr<StreamSubscription> link;
    {
      std::lock_guard<std::mutex> guard(mutex);
      if (subscriber) {
        throw std::invalid_argument("Only one subscription allowed.");
      }
      subscriber = s;
      subscription = std::make_shared<StreamSubscription>(weak_from_this());
      link = subscription;
    }
    s->onSubscribe(link);
  }

  void request(std::int64_t n) {
    bool runWriter = false;
    {
      std::lock_guard<std::mutex> guard(mutex);
      if (cancelled || terminalSent || n == 0) {
        return;
      }
      addDemandLocked(n);
      runWriter = !writerStarted;
      writerStarted = true;
    }
    if (runWriter) {
      write();
    } else {
      drain();
    }
  }

  void cancel() {
    std::vector<Promise<bool>> resolved;
    {
      std::lock_guard<std::mutex> guard(mutex);
      if (cancelled || terminalSent) {
        return;
      }
      cancelled = true;
      pending.clear();
      if (outcome == Outcome::Open) {
        outcome = Outcome::Cancelled;
        resolved.swap(waiting);
      }
    }
    for (auto& promise : resolved) {
      promise.setValue(false);
    }
  }

  // Called by the chunking buffer with each full (or final) chunk. Returns false once
  // the stream was cancelled, so the writer's further output is dropped.
  bool publish(DataBuffer&& chunk) {
    {
      std::lock_guard<std::mutex> guard(mutex);
      if (cancelled) {
        return false;
      }
      if (chunk.size > 0) {
        pending.push_back(std::move(chunk));
      }
    }
    drain();
    return true;
  }

 private:
  enum class Outcome { Open, Completed, Cancelled, Failed };

  // A put area that is one DataBuffer of kStreamChunkSize bytes; every full area is
  // handed to the publisher as one item, without copying. The put area is detached
  // before a chunk is handed on, so it never points into storage that has left.
  class ChunkingBuffer final : public std::streambuf {
   public:
    explicit ChunkingBuffer(StreamPublisher& owner) : owner(owner) {}

    // Publishes what is left; false when the stream was cancelled meanwhile.
    bool finish() { return publishCurrent(); }

   protected:
    int_type overflow(int_type ch) override {
      if (!publishCurrent()) {
        return traits_type::eof();
      }
      startChunk();
      if (!traits_type::eq_int_type(ch, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(ch);
        pbump(1);
      }
      return traits_type::not_eof(ch);
    }

    std::streamsize xsputn(const char* bytes, std::streamsize n) override {
      std::streamsize written = 0;
      while (written < n) {
        if (pptr() == epptr()) {
          if (!publishCurrent()) {
            return written;
          }
          startChunk();
        }
        const std::streamsize room = epptr() - pptr();
        const std::streamsize step = std::min(room, n - written);
        traits_type::copy(pptr(), bytes + written, static_cast<std::size_t>(step));
        pbump(static_cast<int>(step));
        written += step;
      }
      return written;
    }

   private:
    // Hands the filled part of the current chunk on; an empty chunk keeps its storage
    // for the next one. False once the stream was cancelled.
    bool publishCurrent() {
      if (pbase() == nullptr) {
        return true;
      }
      chunk.size = static_cast<std::size_t>(pptr() - pbase());
      setp(nullptr, nullptr);
      if (chunk.size == 0) {
        return true;
      }
      return owner.publish(std::move(chunk));
    }

    // Makes the current chunk (allocating one when the last was handed on) the put area.
    void startChunk() {
      chunk.reserve(kStreamChunkSize);
      chunk.size = 0;
      char* begin = reinterpret_cast<char*>(chunk.data);
      setp(begin, begin + kStreamChunkSize);
    }

    StreamPublisher& owner;
    DataBuffer chunk;
  };

  void addDemandLocked(std::int64_t n) {
    constexpr std::uint64_t unbounded = std::numeric_limits<std::uint64_t>::max();
    if (n < 0 || demand > unbounded - static_cast<std::uint64_t>(n)) {
      demand = unbounded;
    } else {
      demand += static_cast<std::uint64_t>(n);
    }
  }

  // Runs the writer once, on the thread that first signalled demand.
  void write() {
    std::exception_ptr failure;
    std::function<void(std::ostream&)> run = std::move(writer);
    ChunkingBuffer chunks(*this);
    std::ostream out(&chunks);
    try {
      run(out);
    } catch (...) {
      failure = std::current_exception();
    }
    try {
      // The bytes written before a failure are published before the error.
      chunks.finish();
    } catch (...) {
      if (!failure) {
        failure = std::current_exception();
      }
    }
    {
      std::lock_guard<std::mutex> guard(mutex);
      writerFinished = true;
      if (!writerError) {  // a subscriber's failure recorded first is kept
        writerError = failure;
      }
    }
    drain();
  }

  // A subscriber whose onNext threw gets nothing more: the stream stops as if
  // cancelled, and completion fails with that exception (the bytes were not all
  // delivered). Entered and left without `mutex` held.
  void abandonDelivery(std::unique_lock<std::mutex>& lock, const std::exception_ptr& error) {
    std::vector<Promise<bool>> resolved;
    lock.lock();
    cancelled = true;
    pending.clear();
    if (outcome == Outcome::Open) {
      outcome = Outcome::Failed;
      writerError = error;
      resolved.swap(waiting);
    }
    lock.unlock();
    for (auto& promise : resolved) {
      promise.setException(error);
    }
  }

  void drain() {
    std::unique_lock<std::mutex> lock(mutex);
    if (emitting) {
      return;
    }
    emitting = true;
    struct EndTurn {
      StreamPublisher& self;
      std::unique_lock<std::mutex>& lock;
      ~EndTurn() {
        if (!lock.owns_lock()) {
          lock.lock();
        }
        self.emitting = false;
      }
    } endTurn{*this, lock};

    std::shared_ptr<SubscriberAPI<DataBuffer>> target = subscriber;
    while (!cancelled) {
      if (demand > 0 && !pending.empty()) {
        DataBuffer item = std::move(pending.front());
        pending.pop_front();
        if (demand != std::numeric_limits<std::uint64_t>::max()) {
          --demand;
        }
        lock.unlock();
        try {
          target->onNext(std::move(item));
        } catch (...) {
          abandonDelivery(lock, std::current_exception());
          throw;
        }
        lock.lock();
        continue;
      }
      if (pending.empty() && writerFinished && !terminalSent) {
        terminalSent = true;
        const bool failed = writerError != nullptr;
        std::exception_ptr failure = writerError;
        outcome = failed ? Outcome::Failed : Outcome::Completed;
        std::vector<Promise<bool>> resolved;
        resolved.swap(waiting);
        lock.unlock();
        if (failed) {
          target->onError(failure);
        } else {
          target->onComplete();
        }
        for (auto& promise : resolved) {
          if (failed) {
            promise.setException(failure);
          } else {
            promise.setValue(true);
          }
        }
        lock.lock();
      }
      break;
    }
  }

  std::mutex mutex;
  std::function<void(std::ostream&)> writer;              // moved out when it runs
  std::shared_ptr<SubscriberAPI<DataBuffer>> subscriber;  // guarded by mutex
  std::shared_ptr<StreamSubscription> subscription;       // guarded by mutex; the only strong ref
  std::deque<DataBuffer> pending;                         // guarded by mutex; chunks not yet sent
  std::uint64_t demand = 0;                               // guarded by mutex; max() = unbounded
  bool writerStarted = false;                             // guarded by mutex
  bool writerFinished = false;                            // guarded by mutex
  std::exception_ptr writerError;                         // guarded by mutex; writer's or onNext's
  bool emitting = false;                                  // guarded by mutex
  bool cancelled = false;                                 // guarded by mutex
  bool terminalSent = false;                              // guarded by mutex
  Outcome outcome = Outcome::Open;                        // guarded by mutex
  std::vector<Promise<bool>> waiting;                     // guarded by mutex
};

void StreamSubscription::request(std::int64_t n) {
  if (auto target = publisher.lock()) {
    target->request(n);
  }
}

void StreamSubscription::cancel() {
  if (auto target = publisher.lock()) {
    target->cancel();
  }
}

}  // namespace

std::shared_ptr<PublisherAPI<common::DataBuffer>> makePublisherFromStream(
    std::function<void(std::ostream&)>&& writer) {
  return std::make_shared<StreamPublisher>(std::move(writer));
}

}  // namespace connector::reactive_streams

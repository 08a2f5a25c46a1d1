// connector::json::detail::ByteCollector: the subscriber that the streamed deserialize
// puts on a byte publisher when a direct codec may read the document. It collects what
// the publisher delivers while subscribe() runs; when the whole stream is there by then,
// the direct codec can read it from memory. Otherwise, or when the direct codec
// declines, handOver() gives a stream reader (IStreamSubscriber) everything received so
// far, in order, and everything that follows, so the converter path reads exactly the
// bytes, the end and the failure that it would have read had it subscribed itself.
//
//   auto collector = std::make_shared<ByteCollector>();
//   publisher->subscribe(collector);                // requests unbounded demand
//   if (collector->completed()) { DirectDocument document(collector->pieces()); ... }
//   auto reader = collector->handOver();            // then parse reader->stream()
//
// Towards the publisher it behaves as a stream reader does: unbounded demand inside
// onSubscribe; a subscription that is already gone ends the stream at once with
// std::runtime_error "Subscription went away!"; completion() resolves true after
// onComplete and fails with the error after onError.
//
// Thread-safety: the publisher may call onNext, onComplete and onError from any thread
// while the deserializing thread calls completed(), bytes() and handOver().
#pragma once

#include <exception>
#include <memory>
#include <mutex>
#include <vector>

#include "connector/futures/Promise.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/IStreamSubscriber.hpp"
#include "connector/host/Subscriber.hpp"

namespace connector::json::detail {

class ByteCollector final : public reactive_streams::SubscriberAPI<common::DataBuffer> {
 public:
  ByteCollector();
  ~ByteCollector() override;

  void onSubscribe(std::weak_ptr<reactive_streams::Subscription> subscription) override;
  void onNext(common::DataBuffer&& item) override;
  void onComplete() override;
  void onError(std::exception_ptr error) override;
  Future<bool> completion() override;

  // True when the stream has completed without error (all bytes are here).
  bool completed();

  // The buffers received, in order (empty ones left out). Once completed() has said
  // true they change no more until handOver(), which empties them.
  const std::vector<common::DataBuffer>& pieces() const noexcept { return received; }

  // A stream reader that has received everything that arrived so far and receives
  // everything that follows. Call once.
  std::shared_ptr<reactive_streams::IStreamSubscriber> handOver();

 private:
  class Unbounded;

  std::mutex mutex;
  std::vector<common::DataBuffer> received;  // guarded by mutex; fixed once finished
  bool finished = false;                     // guarded by mutex
  std::exception_ptr failure;                // guarded by mutex
  std::shared_ptr<reactive_streams::IStreamSubscriber> reader;  // guarded by mutex
  std::shared_ptr<Unbounded> readerSubscription;                // guarded by mutex
  std::vector<Promise<bool>> waiting;                           // guarded by mutex
};

}  // namespace connector::json::detail

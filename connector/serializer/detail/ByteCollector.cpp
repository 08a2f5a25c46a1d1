#include "connector/serializer/detail/ByteCollector.hpp"

#include <stdexcept>
#include <utility>

#include "connector/futures/MakeFuture.hpp"

namespace connector::json::detail {

// The subscription the hand-over reader gets: the publisher's demand is already
// unbounded, so the reader's request changes nothing.
class ByteCollector::Unbounded final : public reactive_streams::Subscription {
 public:
  void request(std::int64_t /*n*/) override {}
  void cancel() override {}
};

ByteCollector::ByteCollector() = default;

ByteCollector::~ByteCollector() = default;

void ByteCollector::onSubscribe(std::weak_ptr<reactive_streams::Subscription> subscription) {
  if (auto strong = subscription.lock()) {
    strong->request(-1);
    return;
  }
  // Nothing can ever arrive: the stream ends at once, as a stream reader ends it.
  std::exception_ptr gone = std::make_exception_ptr(std::runtime_error("Subscription went away!"));
  onError(std::move(gone));
}

void ByteCollector::onNext(common::DataBuffer&& item) {
  std::lock_guard<std::mutex> guard(mutex);
  if (reader) {
    reader->onNext(std::move(item));
    return;
  }
  if (finished || item.size == 0) return;  // as the stream reader drops them
  received.push_back(std::move(item));
}

void ByteCollector::onComplete() {
  std::vector<Promise<bool>> resolved;
  {
    std::lock_guard<std::mutex> guard(mutex);
    if (reader) reader->onComplete();
    if (finished) return;
    finished = true;
    resolved.swap(waiting);
  }
  for (auto& promise : resolved) promise.setValue(true);
}

void ByteCollector::onError(std::exception_ptr error) {
  if (!error) {
    error = std::make_exception_ptr(std::runtime_error("Stream failed without an error."));
  }
  std::vector<Promise<bool>> resolved;
  {
    std::lock_guard<std::mutex> guard(mutex);
    if (reader) reader->onError(error);
    if (finished) return;
    finished = true;
    failure = error;
    resolved.swap(waiting);
  }
  for (auto& promise : resolved) promise.setException(error);
}

Future<bool> ByteCollector::completion() {
  std::lock_guard<std::mutex> guard(mutex);
  if (!finished) {
    waiting.emplace_back();
    return waiting.back().getFuture();
  }
  return failure ? makeFailedFuture<bool>(failure) : makeReadyFuture<bool>(true);
}

bool ByteCollector::completed() {
  std::lock_guard<std::mutex> guard(mutex);
  return finished && !failure;
}

std::shared_ptr<reactive_streams::IStreamSubscriber> ByteCollector::handOver() {
  std::lock_guard<std::mutex> guard(mutex);
  if (reader) return reader;
  reader = std::make_shared<reactive_streams::IStreamSubscriber>();
  readerSubscription = std::make_shared<Unbounded>();
  reader->onSubscribe(readerSubscription);
  for (auto& item : received) reader->onNext(std::move(item));
  received.clear();
  if (finished) {
    if (failure) {
      reader->onError(failure);
    } else {
      reader->onComplete();
    }
  }
  return reader;
}

}  // namespace connector::json::detail

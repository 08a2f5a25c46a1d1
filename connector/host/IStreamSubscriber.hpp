// connector::reactive_streams::IStreamSubscriber: a byte stream read as a std::istream.
//
//   auto reader = std::make_shared<IStreamSubscriber>();
//   publisher->subscribe(reader);              // requests unbounded demand (-1)
//   Poco::JSON::Parser parser;                 // any istream consumer works
//   auto document = parser.parse(reader->stream());
//
// The received buffers are queued (moved, never copied) and read in order. A read
// blocks until bytes arrive or the stream ends; after onComplete the reader sees end
// of file, after onError the stream fails (badbit) once the bytes before the error are
// read. The get area spans a whole received buffer, so readers pull characters
// straight from memory with no lock or wake-up per byte.
//
// Thread-safety: the publisher may call onNext/onComplete/onError from any thread while
// one reader thread reads stream(). The reader side (stream()) is for one thread.
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <istream>
#include <memory>
#include <mutex>
#include <streambuf>
#include <vector>

#include "connector/Export.hpp"
#include "connector/futures/Promise.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Subscriber.hpp"

namespace connector::reactive_streams {

class CONNECTOR_API IStreamSubscriber : public SubscriberAPI<common::DataBuffer> {
 public:
  IStreamSubscriber();
  ~IStreamSubscriber() override;

  // Requests unbounded demand (-1). An empty or expired subscription can never deliver:
  // the stream then ends at once as after onError with std::runtime_error
  // "Subscription went away!".
  void onSubscribe(std::weak_ptr<Subscription> subscription) override;
  void onComplete() override;
  // Resolves true after onComplete; fails with the received error after onError.
  Future<bool> completion() override;
  void onNext(common::DataBuffer&& item) override;
  // Fails the stream (badbit once the bytes before it are read) and completion() with
  // `error`; a null `error` is replaced by std::runtime_error "Stream failed without an
  // error.".
  void onError(std::exception_ptr error) override;

  // The stream over the received bytes; reads block until bytes arrive or the end.
  std::istream& stream() noexcept { return input; }

 private:
  class QueueBuffer;
  void resolveCompletion(const std::exception_ptr& error);

  std::unique_ptr<QueueBuffer> buffer;
  std::istream input;

  std::mutex completionMutex;
  bool finished = false;               // guarded by completionMutex
  std::exception_ptr failure;          // guarded by completionMutex
  std::vector<Promise<bool>> waiting;  // guarded by completionMutex
};

}  // namespace connector::reactive_streams

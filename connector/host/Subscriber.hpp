// connector::reactive_streams::Subscriber and SubscriberAPI<T>: the receiving end of a
// reactive stream.
//
//   onSubscribe(subscription) -> request(n) -> onNext(item)* -> onComplete() | onError(e)
//
// Subscribers are held by std::shared_ptr; the publisher keeps a strong reference to
// the subscriber it serves.
//
// Thread-safety: signals of one stream arrive one at a time, possibly on any thread;
// each subscriber says how it synchronises with its own readers.
#pragma once

#include <exception>
#include <memory>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/Subscription.hpp"

namespace connector::reactive_streams {

class CONNECTOR_API Subscriber {
 public:
  Subscriber();
  Subscriber(const Subscriber&) = delete;
  Subscriber& operator=(const Subscriber&) = delete;
  virtual ~Subscriber();

  virtual void onSubscribe(std::weak_ptr<Subscription> subscription) = 0;
  virtual void onComplete() = 0;
  // Resolves true when the stream finished normally.
  virtual Future<bool> completion() = 0;
};

template <typename T>
class CONNECTOR_API SubscriberAPI : public Subscriber {
 public:
  virtual void onNext(T&& item) = 0;
  virtual void onError(std::exception_ptr error) = 0;
};

}  // namespace connector::reactive_streams

// connector::reactive_streams::Publisher and PublisherAPI<T>: the sending end of a
// reactive stream.
//
//   std::shared_ptr<PublisherAPI<DataBuffer>> bytes = serializer->serialize(message);
//   bytes->subscribe(std::make_shared<IStreamSubscriber>());
//
// Publishers are held by std::shared_ptr<PublisherAPI<DataBuffer>>.
//
// Thread-safety: defined by each publisher.
#pragma once

#include <memory>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/Subscriber.hpp"

namespace connector::reactive_streams {

class CONNECTOR_API Publisher {
 public:
  Publisher();
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;
  virtual ~Publisher();

  // Resolves true when the publisher has sent everything, false when it was cancelled.
  virtual Future<bool> completion() = 0;
};

template <typename T>
class CONNECTOR_API PublisherAPI : public Publisher {
 public:
  // Attaches the subscriber; it receives onSubscribe and, on demand, the items.
  virtual void subscribe(std::shared_ptr<SubscriberAPI<T>> subscriber) = 0;
};

}  // namespace connector::reactive_streams

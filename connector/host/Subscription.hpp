// connector::reactive_streams::Subscription: the link from a subscriber back to its
// publisher, through which the subscriber signals demand and cancels.
//
//   void onSubscribe(std::weak_ptr<Subscription> s) override {
//     if (auto strong = s.lock()) strong->request(-1);   // -1: unbounded demand
//   }
//
// Subscribers receive it as std::weak_ptr; the publisher holds the only strong
// reference, so a subscription never outlives its publisher.
//
// Thread-safety: defined by each publisher.
#pragma once

#include <cstdint>

#include "connector/Export.hpp"

namespace connector::reactive_streams {

class CONNECTOR_API Subscription {
 public:
  Subscription();
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  virtual ~Subscription();

  // Adds n to the demand (the sum is taken modulo 2^64; -1 stands for unbounded).
  virtual void request(std::int64_t n) = 0;
  // Asks the publisher to stop sending.
  virtual void cancel() = 0;
};

}  // namespace connector::reactive_streams

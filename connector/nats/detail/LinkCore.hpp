// detail::LinkCore: what a NatsLink runs on: its connection, its reply-inbox subscription
// and its table of pending requests. Private to connector/nats.
//
//   LinkCore core(options);                       // connects, subscribes "<inbox>.*"
//   Future<...> answer = core.request(subject, address, opaque);
//
// Thread-safety: request() from any thread; the answers and connection events arrive on
// nats.c's threads. The destructor fails what is pending and waits for nats.c's last
// callbacks (see NatsLink).
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <nats/nats.h>

#include "connector/futures/Future.hpp"
#include "connector/host/Message.hpp"
#include "connector/nats/NatsLinkOptions.hpp"
#include "connector/nats/detail/Connection.hpp"
#include "connector/nats/detail/PendingRequests.hpp"
#include "connector/providers/OpaqueMessage.hpp"

namespace connector::nats::detail {

class LinkCore : public ConnectionEvents {
 public:
  explicit LinkCore(const NatsLinkOptions& options);
  ~LinkCore() override;
  LinkCore(const LinkCore&) = delete;
  LinkCore& operator=(const LinkCore&) = delete;

  // Publishes the request; the future carries its answer or failure.
  Future<std::unique_ptr<Message>> request(const std::string& subject, const std::string& address,
                                           const json::OpaqueMessage& message);

  std::size_t inFlight() const { return pending.size(); }
  std::int64_t maxPayload() const { return connection->maxPayload(); }
  std::string connectedUrl() const { return connection->connectedUrl(); }

  void disconnected() override;
  void closed() override;

 private:
  // nats.c's handler of the reply subscription.
  static void onReply(natsConnection* connection, natsSubscription* subscription, natsMsg* message,
                      void* core);
  // nats.c's call once the subscription delivered its last message.
  static void onSubscriptionDone(void* core);
  // Resolves the pending request the answer's subject names.
  void answer(MsgPtr message);

  PendingRequests pending;
  std::atomic<bool> closedForGood{false};
  std::unique_ptr<Connection> connection;
  std::string inbox;  // "_INBOX.<unique id>"; replies come to "<inbox>.<token>"
  natsSubscription* subscription = nullptr;

  std::mutex doneMutex;
  std::condition_variable doneSignal;
  bool subscriptionDone = false;  // guarded by doneMutex
};

}  // namespace connector::nats::detail

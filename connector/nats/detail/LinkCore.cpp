#include "connector/nats/detail/LinkCore.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "connector/futures/MakeFuture.hpp"
#include "connector/nats/NatsHeaders.hpp"
#include "connector/nats/detail/Headers.hpp"
#include "connector/nats/detail/RequestFailures.hpp"
#include "connector/transport/DeliveryDeadline.hpp"
#include "connector/transport/ErrorBody.hpp"

namespace connector::nats::detail {

namespace {

using MessagePtr = std::unique_ptr<Message>;

// How long the destructor waits for the reply subscription's last callback.
constexpr std::chrono::seconds kSubscriptionWait{5};

}  // namespace

LinkCore::LinkCore(const NatsLinkOptions& options) : pending(options.requestTimeout) {
  connection = std::make_unique<Connection>(options, "NatsLink", *this);
  natsInbox* made = nullptr;
  if (natsInbox_Create(&made) != NATS_OK) throw std::bad_alloc();
  inbox = made;
  natsInbox_Destroy(made);
  const std::string replies = inbox + ".*";
  const natsStatus status = natsConnection_Subscribe(&subscription, connection->get(),
                                                     replies.c_str(), &LinkCore::onReply, this);
  if (status == NATS_OK) {
    natsSubscription_SetOnCompleteCB(subscription, &LinkCore::onSubscriptionDone, this);
  } else {
    if (subscription != nullptr) natsSubscription_Destroy(subscription);
    subscription = nullptr;
    throw std::runtime_error("NatsLink cannot subscribe to its replies on " + replies + ": " +
                             natsStatus_GetText(status));
  }
}

LinkCore::~LinkCore() {
  closedForGood.store(true);
  pending.failAll(
      [](const PendingRequests::Entry& entry) { return connectionClosed(entry.subject); });
  // Unsubscribing fails when nats.c closed the connection for good (out of reconnect
  // attempts): the subscription is closed then already. Either way its delivery thread
  // calls onSubscriptionDone last, perhaps still to come: wait for it.
  static_cast<void>(natsSubscription_Unsubscribe(subscription));
  {
    std::unique_lock<std::mutex> lock(doneMutex);
    doneSignal.wait_for(lock, kSubscriptionWait, [this] { return subscriptionDone; });
  }
  natsSubscription_Destroy(subscription);
  connection.reset();  // closes, waits for the last connection event
}

Future<MessagePtr> LinkCore::request(const std::string& subject, const std::string& address,
                                     const json::OpaqueMessage& message) {
  if (closedForGood.load()) return makeFailedFuture<MessagePtr>(connectionClosed(subject));
  // How long the requester still waits: this link's time-out, or less when the delivery
  // runs under an earlier deadline (an edge's own time-out, a far requester's).
  std::chrono::milliseconds wait = pending.timeout();
  if (const auto deadline = transport::DeliveryDeadline::current()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        *deadline - transport::DeliveryDeadline::Clock::now());
    if (left.count() <= 0) return makeFailedFuture<MessagePtr>(deadlinePassed(subject));
    wait = std::min(wait, left);
  }
  const std::string waitText = std::to_string(wait.count());
  const std::string contentType =
      message.contentType.empty() ? std::string(kDefaultContentType) : message.contentType;
  const std::uint64_t bytes = message.payload.size + headerBytes({{kContentTypeHeader, contentType},
                                                                  {kTimeoutHeader, waitText}});
  const std::int64_t limit = connection->maxPayload();
  if (limit > 0 && bytes > static_cast<std::uint64_t>(limit)) {
    return makeFailedFuture<MessagePtr>(tooLarge(subject, bytes, limit));
  }

  auto [token, future] = pending.add(subject, address);
  const std::string reply = inbox + "." + std::to_string(token);
  natsMsg* made = nullptr;
  natsStatus status = natsMsg_Create(&made, subject.c_str(), reply.c_str(),
                                     reinterpret_cast<const char*>(message.payload.data),
                                     static_cast<int>(message.payload.size));
  const MsgPtr request(made);
  if (status == NATS_OK) status = natsMsgHeader_Set(made, kContentTypeHeader, contentType.c_str());
  if (status == NATS_OK) status = natsMsgHeader_Set(made, kTimeoutHeader, waitText.c_str());
  if (status == NATS_OK) status = natsConnection_PublishMsg(connection->get(), made);
  if (status != NATS_OK) {
    if (auto entry = pending.take(token)) {
      entry->promise.setException(
          status == NATS_MAX_PAYLOAD         ? tooLarge(subject, bytes, connection->maxPayload())
          : status == NATS_CONNECTION_CLOSED ? connectionClosed(subject)
                                             : notSent(subject, natsStatus_GetText(status)));
    }
  }
  return std::move(future);
}

void LinkCore::onReply(natsConnection* /*connection*/, natsSubscription* /*subscription*/,
                       natsMsg* message, void* core) {
  static_cast<LinkCore*>(core)->answer(MsgPtr(message));
}

void LinkCore::onSubscriptionDone(void* core) {
  auto* self = static_cast<LinkCore*>(core);
  std::lock_guard<std::mutex> lock(self->doneMutex);
  self->subscriptionDone = true;
  self->doneSignal.notify_all();
}

void LinkCore::answer(MsgPtr message) {
  // The reply subject is "<inbox>.<token>"; anything else is not an answer of this link.
  const std::string_view subject = natsMsg_GetSubject(message.get());
  if (subject.size() <= inbox.size() + 1) return;
  const std::string_view digits = subject.substr(inbox.size() + 1);
  std::uint64_t token = 0;
  const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), token);
  if (parsed.ec != std::errc() || parsed.ptr != digits.data() + digits.size()) return;
  std::optional<PendingRequests::Entry> entry = pending.take(token);
  if (!entry) return;  // answered late: the request failed already

  if (natsMsg_IsNoResponders(message.get())) {
    entry->promise.setException(noResponders(entry->subject, entry->address));
    return;
  }
  const int length = natsMsg_GetDataLength(message.get());
  common::DataBuffer body(natsMsg_GetData(message.get()), static_cast<std::size_t>(length));
  // An error answer: ours (Connector-Status, the text in the body), or any service's
  // that answers the NATS services protocol's way (the text in Nats-Service-Error, else
  // in the body).
  if (const std::string status = header(message.get(), kStatusHeader); !status.empty()) {
    entry->promise.setException(
        farFailure(entry->subject, kStatusHeader, status, transport::errorText(body.view())));
    return;
  }
  if (const std::string code = header(message.get(), kServiceErrorCodeHeader); !code.empty()) {
    std::string text = header(message.get(), kServiceErrorHeader);
    if (text.empty()) text = transport::errorText(body.view());
    entry->promise.setException(
        farFailure(entry->subject, kServiceErrorCodeHeader, code, std::move(text)));
    return;
  }
  std::string contentType = header(message.get(), kContentTypeHeader);
  if (contentType.empty()) contentType = kDefaultContentType;
  entry->promise.setValue(std::make_unique<json::OpaqueMessage>(contentType, std::move(body)));
}

void LinkCore::disconnected() {
  pending.failAll(
      [](const PendingRequests::Entry& entry) { return connectionLost(entry.subject); });
}

void LinkCore::closed() {
  closedForGood.store(true);
  pending.failAll(
      [](const PendingRequests::Entry& entry) { return connectionClosed(entry.subject); });
}

}  // namespace connector::nats::detail

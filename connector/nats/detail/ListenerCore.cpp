#include "connector/nats/detail/ListenerCore.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "connector/nats/NatsHeaders.hpp"
#include "connector/nats/Subjects.hpp"
#include "connector/nats/detail/Headers.hpp"
#include "connector/transport/DeliveryAnswer.hpp"
#include "connector/transport/ErrorBody.hpp"
#include "connector/transport/MetricNames.hpp"

namespace connector::nats::detail {

namespace metric = transport::metric;
using Clock = std::chrono::steady_clock;

namespace {

// How long drain() lets the workers finish once their answers are written.
constexpr std::chrono::milliseconds kWorkerGrace{100};
// How long drain() waits for the last answers to reach the server, at most.
constexpr std::chrono::milliseconds kFlushWait{2000};

std::int64_t millisUntil(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return std::max<std::int64_t>(left.count(), 1);
}

}  // namespace

AnswerCounters::AnswerCounters(transport::MetricsRegistry& registry) : registry(registry) {
  for (std::size_t i = 0; i < kKnown.size(); ++i) {
    known[i] = registry.counter(metric::kNatsRequests, metric::kNatsRequestsHelp,
                                {{metric::kStatusLabel, std::to_string(kKnown[i])}});
  }
}

void AnswerCounters::count(int status) {
  for (std::size_t i = 0; i < kKnown.size(); ++i) {
    if (kKnown[i] == status) {
      known[i].increment();
      return;
    }
  }
  std::lock_guard<std::mutex> lock(mutex);
  auto found = others.find(status);
  if (found == others.end()) {
    found = others
                .emplace(status,
                         registry.counter(metric::kNatsRequests, metric::kNatsRequestsHelp,
                                          {{metric::kStatusLabel, std::to_string(status)}}))
                .first;
  }
  found->second.increment();
}

ListenerCore::ListenerCore(std::shared_ptr<Router> router, const NatsListenerOptions& options)
    : registry(options.metrics ? options.metrics : std::make_shared<transport::MetricsRegistry>()),
      router(std::move(router)),
      options(options),
      counters(*registry),
      workers(std::make_unique<transport::detail::WorkerPool>(options.threads)),
      connection(std::make_unique<Connection>(options, "NatsListener", *this)) {}

ListenerCore::~ListenerCore() {
  drain();
  connection.reset();
}

void ListenerCore::subscribe() {
  const std::string served = subject();
  natsStatus status =
      natsConnection_QueueSubscribe(&subscription, connection->get(), served.c_str(),
                                    options.queueGroup.c_str(), &ListenerCore::onRequest, this);
  if (status == NATS_OK) {
    status = natsSubscription_SetPendingLimits(subscription, options.maxPendingMessages,
                                               static_cast<int>(options.maxPendingBytes));
  }
  // The server has the subscription once it answered the flush's PING.
  if (status == NATS_OK) {
    status = natsConnection_FlushTimeout(connection->get(), options.connectTimeout.count());
  }
  if (status != NATS_OK) {
    if (subscription != nullptr) natsSubscription_Destroy(subscription);
    subscription = nullptr;
    throw std::runtime_error("NatsListener cannot subscribe to " + served + ": " +
                             natsStatus_GetText(status));
  }
}

void ListenerCore::drain() noexcept {
  if (!connection) return;
  const Clock::time_point deadline = Clock::now() + options.drainTimeout;
  if (subscription != nullptr) {
    // The server sends nothing more once it has the unsubscription; what it sent before
    // still reaches onRequest, and so the workers.
    if (natsSubscription_DrainTimeout(subscription, options.drainTimeout.count()) == NATS_OK) {
      natsSubscription_WaitForDrainCompletion(subscription, millisUntil(deadline));
    }
  }
  waitIdle(deadline);
  {
    std::lock_guard<std::mutex> lock(slotsMutex);
    giveUp = true;  // a delivery thread still waiting for a worker drops its request
  }
  slotFreed.notify_all();
  natsConnection_FlushTimeout(connection->get(),
                              std::min<std::int64_t>(millisUntil(deadline), kFlushWait.count()));
  workers->stop(kWorkerGrace);
  if (subscription != nullptr) {
    natsSubscription_Destroy(subscription);
    subscription = nullptr;
  }
  connection->close();
}

bool ListenerCore::waitIdle(Clock::time_point deadline) {
  std::unique_lock<std::mutex> lock(slotsMutex);
  return slotFreed.wait_until(lock, deadline, [this] { return busy == 0; });
}

void ListenerCore::onRequest(natsConnection* /*connection*/, natsSubscription* /*subscription*/,
                             natsMsg* message, void* closure) {
  auto* core = static_cast<ListenerCore*>(closure);
  std::shared_ptr<natsMsg> request(message, &natsMsg_Destroy);
  {
    // A worker for every request taken: with all of them busy, further requests wait in
    // nats.c's queue of the subscription, which its pending limits bound.
    std::unique_lock<std::mutex> lock(core->slotsMutex);
    core->slotFreed.wait(lock, [core] { return core->busy < core->options.threads || core->giveUp; });
    if (core->giveUp) return;
    ++core->busy;
  }
  core->workers->post([core, request] { core->serve(request.get()); });
}

void ListenerCore::serve(natsMsg* request) {
  struct Release {
    ListenerCore& core;
    ~Release() {
      {
        std::lock_guard<std::mutex> lock(core.slotsMutex);
        --core.busy;
      }
      core.slotFreed.notify_all();
    }
  } release{*this};

  transport::DeliveryAnswer answer;
  try {
    const std::string address = addressFor(natsMsg_GetSubject(request), options.subjectPrefix).str();
    const char* contentType = nullptr;
    if (natsMsgHeader_Get(request, kContentTypeHeader, &contentType) != NATS_OK ||
        contentType == nullptr || *contentType == '\0') {
      contentType = kDefaultContentType;
    }
    common::DataBuffer body(natsMsg_GetData(request),
                            static_cast<std::size_t>(natsMsg_GetDataLength(request)));
    answer = transport::deliverForAnswer(router.get(), nullptr, contentType, std::move(body),
                                         address);
  } catch (const std::invalid_argument& refused) {
    answer = {400, kDefaultContentType, common::DataBuffer(transport::errorBody(refused.what()))};
  } catch (const std::exception& failure) {  // out of memory
    answer = {500, kDefaultContentType, common::DataBuffer(transport::errorBody(failure.what()))};
  }

  const char* reply = natsMsg_GetReply(request);
  const bool answering = reply != nullptr && *reply != '\0';
  if (answering) fitAnswer(answer);
  // Counted before the answer leaves, so that whoever has the answer sees it counted.
  counters.count(answer.status);
  answered.fetch_add(1, std::memory_order_relaxed);
  if (answering) publish(reply, answer);
}

void ListenerCore::fitAnswer(transport::DeliveryAnswer& answer) const {
  const std::string status = std::to_string(answer.status);
  const std::size_t bytes =
      answer.body.size +
      (answer.status == 200 ? headerBytes({{kContentTypeHeader, answer.contentType}})
                            : headerBytes({{kContentTypeHeader, answer.contentType},
                                           {kStatusHeader, status}}));
  const std::int64_t limit = connection->maxPayload();
  if (limit <= 0 || bytes <= static_cast<std::uint64_t>(limit)) return;
  // Too large for the server: the requester gets a failure instead of waiting.
  answer = {500, kDefaultContentType,
            common::DataBuffer(transport::errorBody(
                "Answer of " + std::to_string(bytes) + " bytes exceeds the NATS server's limit of " +
                std::to_string(limit) + " bytes"))};
}

void ListenerCore::publish(const char* reply, const transport::DeliveryAnswer& answer) {
  natsMsg* made = nullptr;
  natsStatus result =
      natsMsg_Create(&made, reply, nullptr, reinterpret_cast<const char*>(answer.body.data),
                     static_cast<int>(answer.body.size));
  const MsgPtr message(made);
  if (result == NATS_OK) {
    result = natsMsgHeader_Set(made, kContentTypeHeader, answer.contentType.c_str());
  }
  if (result == NATS_OK && answer.status != 200) {
    result = natsMsgHeader_Set(made, kStatusHeader, std::to_string(answer.status).c_str());
  }
  // A failure here (the connection closed, the reconnect buffer full) leaves the
  // requester to its time-out.
  if (result == NATS_OK) natsConnection_PublishMsg(connection->get(), made);
}

}  // namespace connector::nats::detail

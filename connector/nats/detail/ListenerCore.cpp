#include "connector/nats/detail/ListenerCore.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "connector/nats/NatsHeaders.hpp"
#include "connector/nats/Subjects.hpp"
#include "connector/nats/detail/Headers.hpp"
#include "connector/transport/ErrorBody.hpp"
#include "connector/transport/MetricNames.hpp"

namespace connector::nats::detail {

namespace metric = transport::metric;
using Clock = std::chrono::steady_clock;

namespace {

// How long a worker waits in NextMsg before it looks whether the listener stops.
constexpr std::int64_t kPullWaitMillis = 100;
// How long a worker pauses after NextMsg reported anything but a request or a time-out.
constexpr std::chrono::milliseconds kErrorPause{10};
// How long drain() waits for the last answers to reach the server, at most.
constexpr std::chrono::milliseconds kFlushWait{2000};
// How long drain() waits for the workers to end once nothing is left to serve.
constexpr std::chrono::milliseconds kWorkerGrace{500};

std::int64_t millisUntil(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return std::max<std::int64_t>(left.count(), 1);
}

// A listener's connection reports nothing it acts on: nats.c reconnects and renews the
// subscription by itself, and requests lost meanwhile time out at their requesters.
ConnectionEvents& quietEvents() {
  static ConnectionEvents events;
  return events;
}

}  // namespace

struct ListenerCore::State {
  State(std::shared_ptr<Router> router, const NatsListenerOptions& options)
      : router(std::move(router)),
        options(options),
        registry(options.metrics ? options.metrics
                                 : std::make_shared<transport::MetricsRegistry>()),
        counters(*registry),
        connection(std::make_unique<Connection>(options, "NatsListener", quietEvents())) {}

  const std::shared_ptr<Router> router;
  const NatsListenerOptions options;
  const std::shared_ptr<transport::MetricsRegistry> registry;
  AnswerCounters counters;
  std::atomic<std::uint64_t> answered{0};
  // Closed by drain(); destroyed with the state, after the last worker.
  const std::unique_ptr<Connection> connection;

  // Held shared while a worker waits in NextMsg (and counts what it took), exclusively
  // to end the subscription: no worker is inside nats.c's subscription then.
  std::shared_mutex pullGate;
  natsSubscription* subscription = nullptr;  // guarded by pullGate
  bool stopping = false;                     // guarded by pullGate

  std::mutex mutex;
  std::condition_variable changed;
  int busy = 0;     // guarded by mutex: requests taken and not yet answered
  int running = 0;  // guarded by mutex: worker threads not ended
};

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
                .emplace(status, registry.counter(metric::kNatsRequests, metric::kNatsRequestsHelp,
                                                  {{metric::kStatusLabel, std::to_string(status)}}))
                .first;
  }
  found->second.increment();
}

ListenerCore::ListenerCore(std::shared_ptr<Router> router, const NatsListenerOptions& options)
    : state(std::make_shared<State>(std::move(router), options)) {}

ListenerCore::~ListenerCore() { drain(); }

std::string ListenerCore::subject() const { return state->options.subjectPrefix + ".>"; }

std::string ListenerCore::connectedUrl() const { return state->connection->connectedUrl(); }

std::uint64_t ListenerCore::served() const noexcept {
  return state->answered.load(std::memory_order_relaxed);
}

std::shared_ptr<transport::MetricsRegistry> ListenerCore::registry() const {
  return state->registry;
}

void ListenerCore::subscribe() {
  const std::string served = subject();
  natsConnection* connection = state->connection->get();
  natsSubscription* made = nullptr;
  natsStatus status = natsConnection_QueueSubscribeSync(&made, connection, served.c_str(),
                                                        state->options.queueGroup.c_str());
  if (status == NATS_OK) {
    status = natsSubscription_SetPendingLimits(made, state->options.maxPendingMessages,
                                               static_cast<int>(state->options.maxPendingBytes));
  }
  // The server has the subscription once it answered the flush's PING.
  if (status == NATS_OK) {
    status = natsConnection_FlushTimeout(connection, state->options.connectTimeout.count());
  }
  if (status != NATS_OK) {
    if (made != nullptr) natsSubscription_Destroy(made);
    throw std::runtime_error("NatsListener cannot subscribe to " + served + ": " +
                             natsStatus_GetText(status));
  }
  {
    std::unique_lock<std::shared_mutex> gate(state->pullGate);
    state->subscription = made;
  }
  workers.reserve(static_cast<std::size_t>(state->options.threads));
  for (int i = 0; i < state->options.threads; ++i) {
    {
      std::lock_guard<std::mutex> lock(state->mutex);
      ++state->running;
    }
    workers.emplace_back([shared = state] { work(shared); });
  }
}

void ListenerCore::drain() noexcept {
  State& s = *state;
  if (s.connection->closed()) return;
  const Clock::time_point deadline = Clock::now() + s.options.drainTimeout;
  natsSubscription* subscription = nullptr;
  {
    std::shared_lock<std::shared_mutex> gate(s.pullGate);
    subscription = s.subscription;
  }
  if (subscription != nullptr) {
    // The server sends nothing more once it has the unsubscription; what it sent before
    // is still taken by the workers.
    if (natsSubscription_DrainTimeout(subscription, s.options.drainTimeout.count()) == NATS_OK) {
      natsSubscription_WaitForDrainCompletion(subscription, millisUntil(deadline));
    }
    // Once no worker is inside the subscription, every request taken is counted busy.
    std::unique_lock<std::shared_mutex> gate(s.pullGate);
    s.stopping = true;
    natsSubscription_Destroy(s.subscription);
    s.subscription = nullptr;
  }
  {
    std::unique_lock<std::mutex> lock(s.mutex);
    s.changed.wait_until(lock, deadline, [&s] { return s.busy == 0; });
  }
  natsConnection_FlushTimeout(s.connection->get(),
                              std::min<std::int64_t>(millisUntil(deadline), kFlushWait.count()));
  s.connection->close();
  bool ended = false;
  {
    std::unique_lock<std::mutex> lock(s.mutex);
    ended = s.changed.wait_for(lock, kWorkerGrace, [&s] { return s.running == 0; });
  }
  for (std::thread& worker : workers) {
    if (ended) {
      worker.join();
    } else {
      worker.detach();  // still in a delivery: it keeps the state until it returns
    }
  }
  workers.clear();
}

void ListenerCore::work(const std::shared_ptr<State>& state) {
  State& s = *state;
  for (;;) {
    natsMsg* request = nullptr;
    natsStatus status = NATS_OK;
    {
      std::shared_lock<std::shared_mutex> gate(s.pullGate);
      if (s.stopping || s.subscription == nullptr) break;
      status = natsSubscription_NextMsg(&request, s.subscription, kPullWaitMillis);
      if (status == NATS_OK) {
        std::lock_guard<std::mutex> lock(s.mutex);
        ++s.busy;
      }
    }
    if (status == NATS_OK) {
      serve(s, request);
      {
        std::lock_guard<std::mutex> lock(s.mutex);
        --s.busy;
      }
      s.changed.notify_all();
      continue;
    }
    if (status == NATS_INVALID_SUBSCRIPTION || status == NATS_CONNECTION_CLOSED) break;
    if (status != NATS_TIMEOUT) {
      // A slow-consumer notice (requests were dropped), or the connection is away: the
      // next request is taken as usual, after a pause that keeps an outage from spinning.
      std::this_thread::sleep_for(kErrorPause);
    }
  }
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    --s.running;
  }
  s.changed.notify_all();
}

void ListenerCore::serve(State& state, natsMsg* request) {
  const MsgPtr owned(request);
  transport::DeliveryAnswer answer;
  try {
    const std::string address =
        addressFor(natsMsg_GetSubject(request), state.options.subjectPrefix).str();
    const char* contentType = nullptr;
    if (natsMsgHeader_Get(request, kContentTypeHeader, &contentType) != NATS_OK ||
        contentType == nullptr || *contentType == '\0') {
      contentType = kDefaultContentType;
    }
    common::DataBuffer body(natsMsg_GetData(request),
                            static_cast<std::size_t>(natsMsg_GetDataLength(request)));
    answer = transport::deliverForAnswer(state.router.get(), nullptr, contentType, std::move(body),
                                         address);
  } catch (const std::invalid_argument& refused) {
    answer = {400, kDefaultContentType, common::DataBuffer(transport::errorBody(refused.what()))};
  } catch (const std::exception& failure) {  // out of memory
    answer = {500, kDefaultContentType, common::DataBuffer(transport::errorBody(failure.what()))};
  }

  const char* reply = natsMsg_GetReply(request);
  const bool answering = reply != nullptr && *reply != '\0';
  if (answering) fitAnswer(state, answer);
  // Counted before the answer leaves, so that whoever has the answer sees it counted.
  state.counters.count(answer.status);
  state.answered.fetch_add(1, std::memory_order_relaxed);
  if (answering) publish(state, reply, answer);
}

void ListenerCore::fitAnswer(State& state, transport::DeliveryAnswer& answer) {
  const std::string status = std::to_string(answer.status);
  const std::size_t bytes =
      answer.body.size +
      (answer.status == 200
           ? headerBytes({{kContentTypeHeader, answer.contentType}})
           : headerBytes({{kContentTypeHeader, answer.contentType}, {kStatusHeader, status}}));
  const std::int64_t limit = state.connection->maxPayload();
  if (limit <= 0 || bytes <= static_cast<std::uint64_t>(limit)) return;
  // Too large for the server: the requester gets a failure instead of waiting.
  answer = {500, kDefaultContentType,
            common::DataBuffer(transport::errorBody("Answer of " + std::to_string(bytes) +
                                                    " bytes exceeds the NATS server's limit of " +
                                                    std::to_string(limit) + " bytes"))};
}

void ListenerCore::publish(State& state, const char* reply,
                           const transport::DeliveryAnswer& answer) {
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
  if (result == NATS_OK) natsConnection_PublishMsg(state.connection->get(), made);
}

}  // namespace connector::nats::detail

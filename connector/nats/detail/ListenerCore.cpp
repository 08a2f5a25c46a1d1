#include "connector/nats/detail/ListenerCore.hpp"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

#include "connector/nats/NatsHeaders.hpp"
#include "connector/nats/Subjects.hpp"
#include "connector/nats/detail/Headers.hpp"
#include "connector/transport/ErrorBody.hpp"
#include "connector/transport/MetricNames.hpp"
#include "connector/transport/RequestBody.hpp"

#ifndef CONNECTOR_PACKAGE_VERSION
#  define CONNECTOR_PACKAGE_VERSION "0.0.0"
#endif

namespace connector::nats::detail {

namespace metric = transport::metric;
using Clock = std::chrono::steady_clock;

namespace {

// How long drain() waits for the last answers to reach the server, at most.
constexpr std::chrono::milliseconds kFlushWait{2000};
// How long drain() waits for the workers to end once nothing is left to serve.
constexpr std::chrono::milliseconds kWorkerGrace{500};
// How long drain() waits for a subscription's last callback.
constexpr std::chrono::seconds kCallbackWait{5};
// How long one idle worker keeps looking for the next request before it sleeps: on this
// kind of machine waking a sleeping thread costs more than a small delivery.
constexpr std::chrono::microseconds kLookForWork{100};

std::int64_t millisUntil(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return std::max<std::int64_t>(left.count(), 1);
}

// A listener's connection reports nothing it acts on: nats.c reconnects and renews the
// subscriptions by itself, and requests lost meanwhile time out at their requesters.
ConnectionEvents& quietEvents() {
  static ConnectionEvents events;
  return events;
}

// The requester's time in milliseconds from a Connector-Timeout-Ms value; none for a
// value that is not a whole number of at most 9 digits (the header is then ignored).
std::optional<std::chrono::milliseconds> waitOf(const char* value) {
  if (value == nullptr) return std::nullopt;
  const std::string_view text(value);
  if (text.empty() || text.size() > 9 ||
      text.find_first_not_of("0123456789") != std::string_view::npos) {
    return std::nullopt;
  }
  std::int64_t millis = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), millis);
  if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size()) return std::nullopt;
  return std::chrono::milliseconds(millis);
}

ServiceIdentity identityOf(const NatsListenerOptions& options) {
  return {options.serviceName, newServiceId(),
          options.serviceVersion.empty() ? std::string(CONNECTOR_PACKAGE_VERSION)
                                         : options.serviceVersion,
          options.serviceDescription, startedNow()};
}

// Whether `address` is bound on `router` (asked only for a 404, the rare case).
bool isBound(const Router& router, const std::string& address) {
  const std::vector<Address> bound = router.addresses();
  return std::any_of(bound.begin(), bound.end(),
                     [&](const Address& each) { return each.str() == address; });
}

}  // namespace

struct ListenerCore::State {
  State(std::shared_ptr<Router> router, const NatsListenerOptions& options)
      : router(std::move(router)),
        options(options),
        registry(options.metrics ? options.metrics
                                 : std::make_shared<transport::MetricsRegistry>()),
        counters(*registry),
        expiredCounter(registry->counter(metric::kNatsExpired, metric::kNatsExpiredHelp, {})),
        identity(identityOf(options)),
        connection(std::make_unique<Connection>(options, "NatsListener", quietEvents())) {}

  const std::shared_ptr<Router> router;
  const NatsListenerOptions options;
  const std::shared_ptr<transport::MetricsRegistry> registry;
  AnswerCounters counters;
  transport::MetricsRegistry::Counter expiredCounter;
  std::atomic<std::uint64_t> answered{0};
  std::atomic<std::uint64_t> skipped{0};
  ServiceIdentity identity;  // its started time set by subscribe(), before any reader
  EndpointStats stats;
  // Closed by drain(); destroyed with the state, after the last worker.
  const std::unique_ptr<Connection> connection;
  natsSubscription* requests = nullptr;   // set and destroyed by subscribe() and drain()
  natsSubscription* discovery = nullptr;  // likewise

  std::mutex mutex;
  std::condition_variable ready;    // a request queued, or ending
  std::condition_variable changed;  // busy, running, done flags
  std::deque<Received> queue;       // guarded by mutex
  std::size_t queuedBytes = 0;      // guarded by mutex
  bool ending = false;              // guarded by mutex: workers end once the queue is empty
  bool looking = false;             // guarded by mutex: an idle worker looks before sleeping
  int busy = 0;                     // guarded by mutex: requests taken and not yet answered
  int running = 0;                  // guarded by mutex: worker threads not ended
  bool requestsDone = false;        // guarded by mutex: the last request callback returned
  bool discoveryDone = false;       // guarded by mutex: the last discovery callback returned
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

std::uint64_t ListenerCore::expired() const noexcept {
  return state->skipped.load(std::memory_order_relaxed);
}

const ServiceIdentity& ListenerCore::identity() const noexcept { return state->identity; }

std::shared_ptr<transport::MetricsRegistry> ListenerCore::registry() const {
  return state->registry;
}

void ListenerCore::subscribe() {
  State& s = *state;
  const std::string served = subject();
  natsConnection* connection = s.connection->get();
  s.identity.started = startedNow();
  natsStatus status =
      natsConnection_QueueSubscribe(&s.requests, connection, served.c_str(),
                                    s.options.queueGroup.c_str(), &ListenerCore::onRequest, &s);
  if (status == NATS_OK) {
    status = natsSubscription_SetOnCompleteCB(s.requests, &ListenerCore::onRequestsDone, &s);
  }
  if (status == NATS_OK) {
    status = natsSubscription_SetPendingLimits(s.requests, s.options.maxPendingMessages,
                                               static_cast<int>(s.options.maxPendingBytes));
  }
  std::string failed = served;
  if (status == NATS_OK) {
    failed = kDiscoverySubjects;
    status = natsConnection_Subscribe(&s.discovery, connection, kDiscoverySubjects,
                                      &ListenerCore::onDiscovery, &s);
    if (status == NATS_OK) {
      status = natsSubscription_SetOnCompleteCB(s.discovery, &ListenerCore::onDiscoveryDone, &s);
    }
  }
  // The server has the subscriptions once it answered the flush's PING.
  if (status == NATS_OK) {
    status = natsConnection_FlushTimeout(connection, s.options.connectTimeout.count());
  }
  if (status != NATS_OK) {
    dropSubscriptions(state);  // the connection stays: start() may be tried again
    throw std::runtime_error("NatsListener cannot subscribe to " + failed + ": " +
                             natsStatus_GetText(status));
  }
  workers.reserve(static_cast<std::size_t>(s.options.threads));
  for (int i = 0; i < s.options.threads; ++i) {
    {
      std::lock_guard<std::mutex> lock(s.mutex);
      ++s.running;
    }
    workers.emplace_back([shared = state] { work(shared); });
  }
}

void ListenerCore::drain() noexcept {
  State& s = *state;
  if (s.connection->closed()) return;
  const Clock::time_point deadline = Clock::now() + s.options.drainTimeout;
  if (s.discovery != nullptr) natsSubscription_Unsubscribe(s.discovery);
  if (s.requests != nullptr) {
    // The server sends nothing more once it has the unsubscription; what it sent before
    // is still queued and taken by the workers.
    if (natsSubscription_DrainTimeout(s.requests, s.options.drainTimeout.count()) == NATS_OK) {
      natsSubscription_WaitForDrainCompletion(s.requests, millisUntil(deadline));
    } else {
      natsSubscription_Unsubscribe(s.requests);
    }
  }
  {
    std::unique_lock<std::mutex> lock(s.mutex);
    // Nothing more comes once the subscriptions' last callbacks returned.
    s.changed.wait_for(lock, kCallbackWait, [&s] {
      return (s.requests == nullptr || s.requestsDone) &&
             (s.discovery == nullptr || s.discoveryDone);
    });
    s.ending = true;
    s.ready.notify_all();
    s.changed.wait_until(lock, deadline, [&s] { return s.busy == 0 && s.queue.empty(); });
    s.queue.clear();  // what drainTimeout left: its requesters time out
    s.queuedBytes = 0;
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
  dropSubscriptions(state);
}

void ListenerCore::dropSubscriptions(const std::shared_ptr<State>& state) noexcept {
  State& s = *state;
  for (natsSubscription* subscription : {s.requests, s.discovery}) {
    if (subscription != nullptr) natsSubscription_Unsubscribe(subscription);  // fails if done
  }
  bool callbacksOver = false;
  {
    std::unique_lock<std::mutex> lock(s.mutex);
    callbacksOver = s.changed.wait_for(lock, kCallbackWait, [&s] {
      return (s.requests == nullptr || s.requestsDone) &&
             (s.discovery == nullptr || s.discoveryDone);
    });
    s.requestsDone = false;
    s.discoveryDone = false;
  }
  natsSubscription_Destroy(s.requests);
  natsSubscription_Destroy(s.discovery);
  s.requests = nullptr;
  s.discovery = nullptr;
  // A callback that nats.c still owes reaches the state: it must outlive this core.
  if (!callbacksOver) {
    try {
      static_cast<void>(new std::shared_ptr<State>(state));
    } catch (const std::bad_alloc&) {
      // Out of memory: the state cannot be kept, and a callback nats.c still owes would
      // find it gone.
    }
  }
}

void ListenerCore::onRequest(natsConnection* /*connection*/, natsSubscription* /*subscription*/,
                             natsMsg* message, void* closure) {
  State& s = *static_cast<State*>(closure);
  Received request{MsgPtr(message), Clock::now()};
  const auto bytes = static_cast<std::size_t>(natsMsg_GetDataLength(message));
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.ending || s.queue.size() >= static_cast<std::size_t>(s.options.maxPendingMessages) ||
        s.queuedBytes + bytes > s.options.maxPendingBytes) {
      return;  // dropped: its requester times out
    }
    s.queue.push_back(std::move(request));
    s.queuedBytes += bytes;
    if (s.looking) return;  // a worker looking for work takes it
  }
  s.ready.notify_one();
}

void ListenerCore::onRequestsDone(void* closure) {
  State& s = *static_cast<State*>(closure);
  std::lock_guard<std::mutex> lock(s.mutex);
  s.requestsDone = true;
  s.changed.notify_all();
}

void ListenerCore::onDiscoveryDone(void* closure) {
  State& s = *static_cast<State*>(closure);
  std::lock_guard<std::mutex> lock(s.mutex);
  s.discoveryDone = true;
  s.changed.notify_all();
}

void ListenerCore::onDiscovery(natsConnection* connection, natsSubscription* /*subscription*/,
                               natsMsg* message, void* closure) {
  const MsgPtr owned(message);
  const State& s = *static_cast<State*>(closure);
  const char* reply = natsMsg_GetReply(message);
  if (reply == nullptr || *reply == '\0') return;
  try {
    std::string document;
    switch (verbFor(natsMsg_GetSubject(message), s.identity)) {
      case Verb::None:
        return;
      case Verb::Ping:
        document = pingDocument(s.identity);
        break;
      case Verb::Info:
        document = infoDocument(s.identity, endpoints(s));
        break;
      case Verb::Stats:
        document = statsDocument(s.identity, endpoints(s));
        break;
    }
    natsConnection_Publish(connection, reply, document.data(), static_cast<int>(document.size()));
  } catch (const std::exception&) {
    // Out of memory: the asker gets no answer from this listener.
  }
}

std::vector<EndpointView> ListenerCore::endpoints(const State& s) {
  std::vector<std::string> addresses;
  for (const Address& address : s.router->addresses()) addresses.push_back(address.str());
  std::sort(addresses.begin(), addresses.end());
  const std::vector<std::string> names = endpointNames(addresses);
  std::vector<EndpointView> views;
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    EndpointView view;
    view.name = names[i];
    view.address = addresses[i];
    try {
      view.subject = subjectFor(Address(addresses[i]), s.options.subjectPrefix);
    } catch (const std::invalid_argument&) {
      continue;  // an address no subject reaches is no endpoint
    }
    view.queueGroup = s.options.queueGroup;
    if (s.options.api) {
      for (const json::ApiOperation& operation : s.options.api->operations()) {
        if (operation.address == addresses[i]) view.operation = &operation;
      }
    }
    s.stats.fill(view);
    views.push_back(std::move(view));
  }
  return views;
}

void ListenerCore::work(const std::shared_ptr<State>& state) {
  State& s = *state;
  std::unique_lock<std::mutex> lock(s.mutex);
  for (;;) {
    if (!s.queue.empty()) {
      Received request = std::move(s.queue.front());
      s.queue.pop_front();
      s.queuedBytes -= static_cast<std::size_t>(natsMsg_GetDataLength(request.message.get()));
      ++s.busy;
      // More queued and nobody looking: wake a sleeper (this delivery may take long).
      const bool wakeAnother = !s.queue.empty() && !s.looking;
      lock.unlock();
      if (wakeAnother) s.ready.notify_one();
      serve(s, request);
      request.message.reset();
      lock.lock();
      --s.busy;
      s.changed.notify_all();
      continue;
    }
    if (s.ending) break;
    if (!s.looking) {
      // Look for a moment before sleeping, the lock released between looks.
      s.looking = true;
      const auto until = Clock::now() + kLookForWork;
      while (s.queue.empty() && !s.ending && Clock::now() < until) {
        lock.unlock();
        std::this_thread::yield();
        lock.lock();
      }
      s.looking = false;
      if (!s.queue.empty() || s.ending) continue;
    }
    s.ready.wait(lock, [&s] { return !s.queue.empty() || s.ending; });
  }
  --s.running;
  s.changed.notify_all();
}

void ListenerCore::serve(State& state, Received& received) {
  natsMsg* request = received.message.get();
  // The requester's deadline, counted from the arrival here: no clock of another
  // machine matters.
  std::optional<Clock::time_point> deadline;
  const char* waitText = nullptr;
  if (natsMsgHeader_Get(request, kTimeoutHeader, &waitText) == NATS_OK) {
    if (const auto wait = waitOf(waitText)) {
      deadline = received.at + *wait;
      if (Clock::now() >= *deadline) {
        state.expiredCounter.increment();
        state.skipped.fetch_add(1, std::memory_order_relaxed);
        return;
      }
    }
  }

  transport::DeliveryAnswer answer;
  std::string address;
  std::int64_t nanos = 0;
  try {
    address = addressFor(natsMsg_GetSubject(request), state.options.subjectPrefix).str();
    const char* contentType = nullptr;
    if (natsMsgHeader_Get(request, kContentTypeHeader, &contentType) != NATS_OK ||
        contentType == nullptr || *contentType == '\0') {
      contentType = kDefaultContentType;
    }
    common::DataBuffer body(natsMsg_GetData(request),
                            static_cast<std::size_t>(natsMsg_GetDataLength(request)));
    if (transport::isJsonObjectText(body.view())) {
      const Clock::time_point begin = Clock::now();
      answer = transport::deliverForAnswer(state.router.get(), nullptr, contentType,
                                           std::move(body), address, deadline);
      nanos = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - begin).count();
    } else {
      // Every service takes a JSON object: anything else is refused as the HTTP gateway
      // refuses it, undelivered.
      answer = {400, kDefaultContentType,
                common::DataBuffer(transport::errorBody(transport::kNotAnObjectText))};
    }
  } catch (const std::invalid_argument& refused) {
    answer = {400, kDefaultContentType, common::DataBuffer(transport::errorBody(refused.what()))};
  } catch (const std::exception& failure) {  // out of memory
    answer = {500, kDefaultContentType, common::DataBuffer(transport::errorBody(failure.what()))};
  }

  std::string errorText;
  if (answer.status != 200) errorText = transport::errorText(answer.body.view());
  // An endpoint's figures: for a bound address only (a 404 may mean an unbound one, or
  // a bound service's own answer, e.g. an order it does not know).
  if (!address.empty() &&
      (answer.status != 404 || state.stats.has(address) || isBound(*state.router, address))) {
    state.stats.record(address, answer.status, nanos, errorText);
  }
  const char* reply = natsMsg_GetReply(request);
  const bool answering = reply != nullptr && *reply != '\0';
  if (answering) fitAnswer(state, answer, errorText);
  // Counted before the answer leaves, so that whoever has the answer sees it counted.
  state.counters.count(answer.status);
  state.answered.fetch_add(1, std::memory_order_relaxed);
  if (answering) publish(state, reply, answer, errorText);
}

void ListenerCore::fitAnswer(State& state, transport::DeliveryAnswer& answer,
                             std::string& errorText) {
  const std::string status = std::to_string(answer.status);
  const std::size_t bytes =
      answer.body.size + (answer.status == 200
                              ? headerBytes({{kContentTypeHeader, answer.contentType}})
                              : headerBytes({{kContentTypeHeader, answer.contentType},
                                             {kStatusHeader, status},
                                             {kServiceErrorCodeHeader, status},
                                             {kServiceErrorHeader, errorText}}));
  const std::int64_t limit = state.connection->maxPayload();
  if (limit <= 0 || bytes <= static_cast<std::uint64_t>(limit)) return;
  // Too large for the server: the requester gets a failure instead of waiting.
  errorText = "Answer of " + std::to_string(bytes) + " bytes exceeds the NATS server's limit of " +
              std::to_string(limit) + " bytes";
  answer = {500, kDefaultContentType, common::DataBuffer(transport::errorBody(errorText))};
}

void ListenerCore::publish(State& state, const char* reply, const transport::DeliveryAnswer& answer,
                           const std::string& errorText) {
  natsMsg* made = nullptr;
  natsStatus result =
      natsMsg_Create(&made, reply, nullptr, reinterpret_cast<const char*>(answer.body.data),
                     static_cast<int>(answer.body.size));
  const MsgPtr message(made);
  if (result == NATS_OK) {
    result = natsMsgHeader_Set(made, kContentTypeHeader, answer.contentType.c_str());
  }
  if (result == NATS_OK && answer.status != 200) {
    const std::string status = std::to_string(answer.status);
    result = natsMsgHeader_Set(made, kStatusHeader, status.c_str());
    if (result == NATS_OK)
      result = natsMsgHeader_Set(made, kServiceErrorCodeHeader, status.c_str());
    if (result == NATS_OK) result = natsMsgHeader_Set(made, kServiceErrorHeader, errorText.c_str());
  }
  // A failure here (the connection closed, the reconnect buffer full) leaves the
  // requester to its time-out.
  if (result == NATS_OK) natsConnection_PublishMsg(state.connection->get(), made);
}

}  // namespace connector::nats::detail

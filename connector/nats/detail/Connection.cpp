#include "connector/nats/detail/Connection.hpp"

#include <climits>
#include <stdexcept>
#include <utility>

namespace connector::nats::detail {

namespace {

// How long close() waits for nats.c's closed callback.
constexpr std::chrono::seconds kCloseWait{5};

// Owns a natsOptions.
struct OptionsDeleter {
  void operator()(natsOptions* options) const noexcept { natsOptions_Destroy(options); }
};

void check(natsStatus status, const std::string& who) {
  if (status == NATS_NO_MEMORY) throw std::bad_alloc();
  if (status != NATS_OK) {
    throw std::invalid_argument(who +
                                " cannot set a connection option: " + natsStatus_GetText(status));
  }
}

}  // namespace

std::string displayUrl(const std::string& url) {
  std::string shown;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = url.find(',', start);
    std::string part =
        url.substr(start, end == std::string::npos ? std::string::npos : end - start);
    const std::size_t scheme = part.find("://");
    const std::size_t hostStart = scheme == std::string::npos ? 0 : scheme + 3;
    const std::size_t at = part.find('@', hostStart);
    if (at != std::string::npos && part.find('/', hostStart) > at)
      part.erase(hostStart, at + 1 - hostStart);
    shown += part;
    if (end == std::string::npos) return shown;
    shown += ',';
    start = end + 1;
  }
}

Connection::Connection(const NatsConnectionOptions& options, const std::string& who,
                       ConnectionEvents& events)
    : relay(std::make_unique<Relay>()) {
  if (options.url.empty()) throw std::invalid_argument(who + " needs a server URL");
  if (options.connectTimeout.count() <= 0 || options.reconnectWait.count() <= 0 ||
      options.pingInterval.count() <= 0) {
    throw std::invalid_argument(who + " time-outs and intervals must be positive");
  }
  if (options.reconnectBufferBytes < 1 ||
      options.reconnectBufferBytes > static_cast<std::size_t>(INT_MAX)) {
    throw std::invalid_argument(who + " needs a reconnect buffer of 1 to 2147483647 bytes");
  }
  relay->events = &events;

  natsOptions* made = nullptr;
  if (natsOptions_Create(&made) != NATS_OK) throw std::bad_alloc();
  const std::unique_ptr<natsOptions, OptionsDeleter> settings(made);
  if (const natsStatus status = natsOptions_SetURL(made, options.url.c_str()); status != NATS_OK) {
    if (status == NATS_NO_MEMORY) throw std::bad_alloc();
    throw std::invalid_argument(who + " cannot use the URL '" + displayUrl(options.url) +
                                "': " + natsStatus_GetText(status));
  }
  const std::string name = options.name.empty() ? "connector " + who : options.name;
  check(natsOptions_SetName(made, name.c_str()), who);
  check(natsOptions_SetTimeout(made, options.connectTimeout.count()), who);
  check(natsOptions_SetAllowReconnect(made, true), who);
  check(natsOptions_SetMaxReconnect(made, options.maxReconnects), who);
  check(natsOptions_SetReconnectWait(made, options.reconnectWait.count()), who);
  check(natsOptions_SetReconnectBufSize(made, static_cast<int>(options.reconnectBufferBytes)), who);
  check(natsOptions_SetPingInterval(made, options.pingInterval.count()), who);
  check(natsOptions_SetMaxPingsOut(made, 2), who);
  // Requests and answers are written at once rather than gathered for a flusher thread:
  // each one is awaited by somebody.
  check(natsOptions_SetSendAsap(made, true), who);
  check(natsOptions_SetDisconnectedCB(made, &Connection::onDisconnected, relay.get()), who);
  check(natsOptions_SetReconnectedCB(made, &Connection::onReconnected, relay.get()), who);
  check(natsOptions_SetClosedCB(made, &Connection::onClosed, relay.get()), who);

  const natsStatus status = natsConnection_Connect(&connection, made);
  if (status != NATS_OK) {
    if (connection != nullptr) natsConnection_Destroy(connection);
    connection = nullptr;
    if (status == NATS_NO_MEMORY) throw std::bad_alloc();
    throw std::runtime_error(who + " cannot connect to " + displayUrl(options.url) + ": " +
                             natsStatus_GetText(status));
  }
}

Connection::~Connection() {
  close();
  natsConnection_Destroy(connection);
}

void Connection::close() noexcept {
  if (closeDone) return;
  closeDone = true;
  natsConnection_Close(connection);
  std::unique_lock<std::mutex> lock(relay->mutex);
  if (!relay->closedSeen.wait_for(lock, kCloseWait, [this] { return relay->closed; })) {
    // nats.c has not called back yet and may still do so: the relay stays (leaked) for
    // that call, which then reaches nobody.
    relay->events = nullptr;
    lock.unlock();
    static_cast<void>(relay.release());
  }
}

void Connection::onDisconnected(natsConnection* /*connection*/, void* closure) {
  auto* relay = static_cast<Relay*>(closure);
  std::lock_guard<std::mutex> lock(relay->mutex);
  if (relay->events != nullptr && !relay->closed) relay->events->disconnected();
}

void Connection::onReconnected(natsConnection* /*connection*/, void* closure) {
  auto* relay = static_cast<Relay*>(closure);
  std::lock_guard<std::mutex> lock(relay->mutex);
  if (relay->events != nullptr && !relay->closed) relay->events->reconnected();
}

void Connection::onClosed(natsConnection* /*connection*/, void* closure) {
  auto* relay = static_cast<Relay*>(closure);
  std::lock_guard<std::mutex> lock(relay->mutex);
  if (relay->events != nullptr && !relay->closed) relay->events->closed();
  relay->closed = true;
  relay->closedSeen.notify_all();
}

}  // namespace connector::nats::detail

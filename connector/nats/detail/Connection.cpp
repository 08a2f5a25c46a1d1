#include "connector/nats/detail/Connection.hpp"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "connector/nats/DisplayUrl.hpp"
#include "connector/nats/detail/ServerList.hpp"

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

// An error text of nats.c without the source location it may start with; the status's
// text when there is none.
std::string errorText(natsStatus status, const char* text) {
  std::string detail = text != nullptr ? text : "";
  if (!detail.empty() && detail.front() == '(') {
    const std::size_t close = detail.find("): ");
    if (close != std::string::npos) detail.erase(0, close + 3);
  }
  return detail.empty() ? std::string(natsStatus_GetText(status)) : detail;
}

// nats.c's last error text on this thread.
std::string lastError(natsStatus status) { return errorText(status, nats_GetLastError(nullptr)); }

// Whether a connect failing with `status` reached a server that refused (credentials,
// TLS), rather than reaching none.
bool refused(natsStatus status) {
  return status == NATS_CONNECTION_AUTH_FAILED || status == NATS_NOT_PERMITTED ||
         status == NATS_SECURE_CONNECTION_WANTED || status == NATS_SSL_ERROR;
}

// Why a connect failed with `status`, nats.c's text being `detail`.
std::string connectCause(natsStatus status, const std::string& detail) {
  switch (status) {
    case NATS_CONNECTION_AUTH_FAILED:
    case NATS_NOT_PERMITTED:
      return "the server refused the credentials (" + detail + ")";
    case NATS_SECURE_CONNECTION_WANTED:
      return "the server offers no TLS";
    case NATS_SSL_ERROR: {
      // "SSL handshake error: <X509 error code>:<reason>:depth=..." when the server's
      // certificate did not verify.
      const std::string handshake = "SSL handshake error: ";
      if (detail.rfind(handshake, 0) == 0) {
        const std::size_t code = handshake.size();
        const std::size_t colon = detail.find(':', code);
        const std::size_t depth = detail.find(":depth=", code);
        if (colon != std::string::npos && colon > code && depth != std::string::npos &&
            detail.find_first_not_of("0123456789", code) == colon) {
          return "TLS certificate verification failed: " +
                 detail.substr(colon + 1, depth - colon - 1);
        }
      }
      return "TLS failed: " + detail;
    }
    default:
      return natsStatus_GetText(status);
  }
}

// Trusts the authorities in the PEM file `path`. Throws std::runtime_error "<who> cannot
// load the CA file '<path>': <cause>", the cause the system's (e.g. "No such file or
// directory") or OpenSSL's (e.g. "no certificate or crl found").
void loadAuthorities(natsOptions* options, const std::string& path, const std::string& who) {
  const std::string failed = who + " cannot load the CA file '" + path + "': ";
  if (std::FILE* file = std::fopen(path.c_str(), "rb"); file != nullptr) {
    std::fclose(file);
  } else {
    throw std::runtime_error(failed + std::strerror(errno));
  }
  const natsStatus status = natsOptions_LoadCATrustedCertificates(options, path.c_str());
  if (status == NATS_NO_MEMORY) throw std::bad_alloc();
  if (status != NATS_OK) {
    // nats.c says "Error loading trusted certificates '<path>': <OpenSSL's reason>".
    std::string cause = lastError(status);
    const std::string prefix = "'" + path + "': ";
    if (const std::size_t at = cause.find(prefix); at != std::string::npos) {
      cause.erase(0, at + prefix.size());
    }
    throw std::runtime_error(failed + cause);
  }
}

}  // namespace

Connection::Connection(const NatsConnectionOptions& options, const std::string& who,
                       ConnectionEvents& events)
    : relay(std::make_unique<Relay>()) {
  if (options.url.empty()) throw std::invalid_argument(who + " needs a server URL");
  if (options.connectTimeout.count() <= 0 || options.reconnectWait.count() <= 0 ||
      options.pingInterval.count() <= 0) {
    throw std::invalid_argument(who + " time-outs and intervals must be positive");
  }
  if (options.initialConnectWait.count() < 0) {
    throw std::invalid_argument(who + " initial connect wait must not be negative");
  }
  if (options.reconnectBufferBytes < 1 ||
      options.reconnectBufferBytes > static_cast<std::size_t>(INT_MAX)) {
    throw std::invalid_argument(who + " needs a reconnect buffer of 1 to 2147483647 bytes");
  }
  const std::vector<std::string> servers = serverEntries(options.url);
  const std::string shown = displayUrl(options.url);
  for (const std::string& server : servers) {
    if (server.empty()) {
      std::string text = who;
      text.append(" cannot use the URL '").append(shown).append("': it has an empty entry");
      throw std::invalid_argument(text);
    }
  }
  relay->events = &events;

  natsOptions* made = nullptr;
  if (natsOptions_Create(&made) != NATS_OK) throw std::bad_alloc();
  const std::unique_ptr<natsOptions, OptionsDeleter> settings(made);
  std::vector<const char*> list;
  list.reserve(servers.size());
  for (const std::string& server : servers) list.push_back(server.c_str());
  if (const natsStatus status =
          natsOptions_SetServers(made, list.data(), static_cast<int>(list.size()));
      status != NATS_OK) {
    if (status == NATS_NO_MEMORY) throw std::bad_alloc();
    throw std::invalid_argument(who + " cannot use the URL '" + shown +
                                "': " + natsStatus_GetText(status));
  }
  if (!options.caFile.empty()) loadAuthorities(made, options.caFile, who);
  // nats.c takes "tls://" as a plain URL; TLS only when asked for it explicitly.
  if (!options.caFile.empty() || asksForTls(servers)) check(natsOptions_SetSecure(made, true), who);
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
  const std::string failed = who + " cannot connect to " + shown + ": ";
  const auto waitEnds = std::chrono::steady_clock::now() + options.initialConnectWait;
  natsStatus status = natsConnection_Connect(&connection, made);
  if (status == NATS_NO_SERVER && options.initialConnectWait.count() > 0) {
    // No server answered: nats.c retries the first connect on its reconnect thread
    // (natsConnection_Connect returns NATS_NOT_YET_CONNECTED), onConnected tells when
    // one answered. A server that refused was not waited for (above).
    if (connection != nullptr) natsConnection_Destroy(connection);
    connection = nullptr;
    if (options.onConnectWait) options.onConnectWait(shown);
    check(natsOptions_SetRetryOnFailedConnect(made, true, &Connection::onConnected, relay.get()),
          who);
    status = natsConnection_Connect(&connection, made);
    if (status == NATS_NOT_YET_CONNECTED) {
      if (awaitFirstServer(waitEnds)) return;
      // A server that came up meanwhile and refused is named as such.
      const char* text = nullptr;
      const natsStatus last = natsConnection_GetLastError(connection, &text);
      const std::string cause = refused(last) ? connectCause(last, errorText(last, text))
                                              : natsStatus_GetText(NATS_NO_SERVER);
      abandon();
      throw std::runtime_error(failed + withoutSecrets(cause, servers));
    }
  }
  if (status != NATS_OK) {
    // Trying a list, nats.c may return the status of another server than the one that
    // refused; the refusal it recorded on this thread is the clearer cause.
    natsStatus recorded = NATS_OK;
    const char* recordedText = nats_GetLastError(&recorded);
    if (!refused(status) && refused(recorded)) status = recorded;
    const std::string detail = errorText(status, recordedText);
    if (connection != nullptr) natsConnection_Destroy(connection);
    connection = nullptr;
    if (status == NATS_NO_MEMORY) throw std::bad_alloc();
    throw std::runtime_error(failed + withoutSecrets(connectCause(status, detail), servers));
  }
}

bool Connection::awaitFirstServer(std::chrono::steady_clock::time_point until) {
  std::unique_lock<std::mutex> lock(relay->mutex);
  relay->firstServerSeen.wait_until(lock, until,
                                    [this] { return relay->connected || relay->closed; });
  return relay->connected && !relay->closed;
}

void Connection::abandon() noexcept {
  close();
  natsConnection_Destroy(connection);
  connection = nullptr;
}

std::string Connection::connectedUrl() const {
  char buffer[512] = {};
  if (natsConnection_GetConnectedUrl(connection, buffer, sizeof buffer) != NATS_OK) return {};
  return displayUrl(buffer);
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

void Connection::onConnected(natsConnection* /*connection*/, void* closure) {
  auto* relay = static_cast<Relay*>(closure);
  std::lock_guard<std::mutex> lock(relay->mutex);
  relay->connected = true;
  relay->firstServerSeen.notify_all();
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
  relay->firstServerSeen.notify_all();
}

}  // namespace connector::nats::detail

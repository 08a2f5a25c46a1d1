#include "connector/nats/detail/Connection.hpp"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "connector/nats/DisplayUrl.hpp"

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

// Whether any of the comma-separated URLs asks for TLS.
bool asksForTls(const std::string& url) {
  for (std::size_t start = 0;;) {
    if (url.compare(start, 6, "tls://") == 0) return true;
    start = url.find(',', start);
    if (start == std::string::npos) return false;
    ++start;
  }
}

// The passwords and tokens in the user info of the comma-separated URLs.
std::vector<std::string> secretsOf(const std::string& url) {
  std::vector<std::string> secrets;
  for (std::size_t start = 0;;) {
    const std::size_t end = url.find(',', start);
    const std::string part =
        url.substr(start, end == std::string::npos ? std::string::npos : end - start);
    const std::size_t scheme = part.find("://");
    const std::size_t hostStart = scheme == std::string::npos ? 0 : scheme + 3;
    const std::size_t at = part.rfind('@');
    if (at != std::string::npos && at > hostStart) {
      const std::string info = part.substr(hostStart, at - hostStart);
      const std::size_t colon = info.find(':');
      secrets.push_back(colon == std::string::npos ? info : info.substr(colon + 1));
    }
    if (end == std::string::npos) return secrets;
    start = end + 1;
  }
}

// `text` with every occurrence of the URL's secrets replaced by "***".
std::string withoutSecrets(std::string text, const std::string& url) {
  for (const std::string& secret : secretsOf(url)) {
    if (secret.empty()) continue;
    for (std::size_t at = text.find(secret); at != std::string::npos;
         at = text.find(secret, at + 3)) {
      text.replace(at, secret.size(), "***");
    }
  }
  return text;
}

// nats.c's last error text on this thread without the source location it starts with;
// the status's text when there is none.
std::string lastError(natsStatus status) {
  const char* last = nats_GetLastError(nullptr);
  std::string detail = last != nullptr ? last : "";
  if (!detail.empty() && detail.front() == '(') {
    const std::size_t close = detail.find("): ");
    if (close != std::string::npos) detail.erase(0, close + 3);
  }
  return detail.empty() ? std::string(natsStatus_GetText(status)) : detail;
}

// Why natsConnection_Connect failed.
std::string connectCause(natsStatus status) {
  const std::string detail = lastError(status);
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
  if (!options.caFile.empty()) loadAuthorities(made, options.caFile, who);
  // nats.c takes "tls://" as a plain URL; TLS only when asked for it explicitly.
  if (!options.caFile.empty() || asksForTls(options.url)) {
    check(natsOptions_SetSecure(made, true), who);
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
                             withoutSecrets(connectCause(status), options.url));
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

// detail::Connection: one nats.c connection made from NatsConnectionOptions, with its
// events (lost, back, closed) passed to its owner, and a close that waits until nats.c
// has called back for the last time. Private to connector/nats.
//
//   struct Owner : ConnectionEvents { void disconnected() override { ... } };
//   Connection connection(options, "NatsLink", owner);   // connects, or throws
//   natsConnection_PublishMsg(connection.get(), message);
//   connection.close();                                   // or the destructor
//
// Thread-safety: get() and maxPayload() from any thread; the events arrive on nats.c's
// threads; close() from one thread (the destructor calls it).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <nats/nats.h>

#include "connector/nats/NatsConnectionOptions.hpp"

namespace connector::nats::detail {

// Owns a natsMsg.
struct MsgDeleter {
  void operator()(natsMsg* message) const noexcept { natsMsg_Destroy(message); }
};
using MsgPtr = std::unique_ptr<natsMsg, MsgDeleter>;

// What a connection tells its owner, on nats.c's threads. After close() returns, nothing.
class ConnectionEvents {
 public:
  virtual ~ConnectionEvents() = default;
  // The server was lost; nats.c reconnects (unless out of attempts).
  virtual void disconnected() {}
  // Connected again; the subscriptions are renewed.
  virtual void reconnected() {}
  // Closed for good: by close(), or out of reconnect attempts.
  virtual void closed() {}
};

class Connection {
 public:
  // Connects to any server of the list; when none answers, keeps trying for
  // initialConnectWait (see NatsConnectionOptions). Throws std::invalid_argument "<who>
  // needs a server URL" for an empty url, "<who> time-outs and intervals must be
  // positive", "<who> initial connect wait must not be negative", "<who> needs a reconnect buffer
  // of 1 to 2147483647 bytes", "<who> cannot use the URL '<url>': it has an empty entry" (or
  // nats.c's cause); std::runtime_error
  // "<who> cannot load the CA file '<file>': <cause>"; and std::runtime_error "<who>
  // cannot connect to <url>: <cause>", the cause e.g. "No server available for
  // connection", "the server refused the credentials (Authorization Violation)", "the
  // server offers no TLS", "TLS certificate verification failed: <why>". <url> as
  // displayUrl shows it; no text holds the URL's token or password. Blocks at most about
  // connectTimeout per listed server, or initialConnectWait when that is longer.
  Connection(const NatsConnectionOptions& options, const std::string& who,
             ConnectionEvents& events);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  natsConnection* get() const noexcept { return connection; }

  // The server's limit on one message, headers included, in bytes.
  std::int64_t maxPayload() const noexcept { return natsConnection_GetMaxPayload(connection); }

  // Closes the connection and waits (at most 5 s) for nats.c's closed callback, after
  // which no event reaches the owner. Idempotent. Never throws.
  void close() noexcept;

  // Whether close() was called (by the owner's thread).
  bool closed() const noexcept { return closeDone; }

  // The server connected to, as displayUrl shows it; empty while reconnecting or closed.
  std::string connectedUrl() const;

 private:
  // What nats.c's callbacks reach; outlives the connection when nats.c is late to call
  // back (see close()).
  struct Relay {
    std::mutex mutex;
    std::condition_variable closedSeen;
    std::condition_variable firstServerSeen;
    ConnectionEvents* events = nullptr;  // guarded by mutex; null once close() gave up
    bool closed = false;                 // guarded by mutex
    bool connected = false;              // guarded by mutex: a retried first connect made
  };

  // Waits until nats.c's retried first connect reached a server (true), or until `until`
  // or the connection closed for good (false).
  bool awaitFirstServer(std::chrono::steady_clock::time_point until);
  // Closes and destroys a connection that is given up in the constructor.
  void abandon() noexcept;

  static void onConnected(natsConnection* connection, void* closure);
  static void onDisconnected(natsConnection* connection, void* closure);
  static void onReconnected(natsConnection* connection, void* closure);
  static void onClosed(natsConnection* connection, void* closure);

  std::unique_ptr<Relay> relay;
  natsConnection* connection = nullptr;
  bool closeDone = false;
};

}  // namespace connector::nats::detail

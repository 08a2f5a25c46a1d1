// connector::nats::NatsListener: serves the services bound on a router to NatsLinks in
// other processes, the NATS counterpart of HttpGateway. It subscribes to "<prefix>.>" in
// a queue group; each request becomes an OpaqueMessage (its Content-Type header, else
// "application/json", and its payload) delivered to the router at the subject's address
// ("connector.shop.ReserveItem" -> "shop/ReserveItem"), normally bound to a
// JsonDeserializerServiceProvider; the answer goes back to the request's reply subject
// with its Content-Type.
//
//   auto farNode = std::make_shared<connector::Router>();   // deserializers -> services
//   connector::nats::NatsListenerOptions options;
//   options.url = "nats://127.0.0.1:4222";
//   connector::nats::NatsListener listener(farNode, options);   // connects
//   listener.start();                                            // joins the queue group
//   ...
//   listener.stop();   // leaves the group; answers what it took, then closes
//
// Failures are answered with the headers "Connector-Status: <status>" and
// "Content-Type: application/json" and the body {"error":"<text>"}, with the HTTP
// gateway's statuses and texts (connector/transport/FailureAnswer.hpp):
//   400  the service refused the request (std::invalid_argument), e.g. bytes that are not
//        JSON; a subject that maps to no address ("Subject 'connector.a/b' maps to no
//        address: token 'a/b' holds '/'")
//   404  nothing bound at the address: "No service bound at address '<address>'"
//   503  the service is not running: "Service exists but is not running."
//   500  any other failure, with its text; an answer that is not an OpaqueMessage ("The
//        service at '<address>' answered without an OpaqueMessage"); an answer over the
//        server's limit ("Answer of <n> bytes exceeds the NATS server's limit of <max>
//        bytes")
// The listener keeps serving after every one of them. A request without a reply subject
// is delivered and its answer dropped. Each answer is counted in the metrics as
// connector_nats_requests_total{status="<status>"} (200 for a service's answer).
//
// Threads: `threads` workers take the requests from the subscription (nats.c's
// synchronous kind: a request goes from nats.c's reader thread straight to a waiting
// worker), deliver them, wait for the service and publish the answers. With every worker
// busy, further requests wait in nats.c's queue of the subscription (bounded by
// maxPendingMessages / maxPendingBytes).
//
// Lifecycle: the constructor connects; start() subscribes; stop() drains. A stopped
// listener cannot be started again: make a new one.
//
// Thread-safety: start(), stop() and the accessors from any thread; the destructor stops
// the listener. The router must stay usable while the listener runs (it is held shared);
// its deliveries run on the worker threads, several at once.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "connector/Export.hpp"
#include "connector/host/Router.hpp"
#include "connector/nats/NatsListenerOptions.hpp"
#include "connector/transport/MetricsRegistry.hpp"

namespace connector::nats {

namespace detail {
class ListenerCore;
}

class CONNECTOR_API NatsListener {
 public:
  // Connects to options.url; serves nothing until start(). Blocks at most about
  // connectTimeout. Throws std::invalid_argument "NatsListener needs a router" for a null
  // router, "NatsListener needs at least one thread" for threads < 1, "NatsListener needs
  // a queue group without whitespace" for an empty group or one with whitespace,
  // "NatsListener pending limits must be at least 1" (maxPendingMessages,
  // maxPendingBytes; the byte limit at most 2147483647), "NatsListener drain time-out
  // must be positive", as checkSubjectPrefix for a bad prefix, and as the connection
  // options require ("NatsListener needs a server URL", ...); and std::runtime_error
  // "NatsListener cannot connect to <url>: <cause>" and "NatsListener cannot load the CA
  // file '<file>': <cause>", with the causes NatsLink's constructor lists (credentials
  // refused, TLS verification failed, ...), at once and without any secret in the text.
  explicit NatsListener(std::shared_ptr<Router> router, NatsListenerOptions options = {});

  // Stops the listener (see stop()). Never throws.
  ~NatsListener();

  NatsListener(const NatsListener&) = delete;
  NatsListener& operator=(const NatsListener&) = delete;

  // Subscribes to "<prefix>.>" in the queue group and starts serving; returns once the
  // server has the subscription (at most about connectTimeout), so a request sent after
  // start() returns reaches this listener or another member. Does nothing when already
  // serving. Throws std::logic_error "NatsListener cannot be started again after
  // stop()" after stop(), and std::runtime_error "NatsListener cannot subscribe to
  // <subject>: <cause>".
  void start();

  // Drains and stops: leaves the queue group (the server sends it nothing more; the
  // other members take the new requests), answers every request it had received, waits
  // until the answers are written, then closes the connection. Blocks until then, at
  // most about drainTimeout; requests still unanswered then are dropped (their
  // requesters time out), and a delivery still running keeps its worker thread until it
  // returns. Does nothing when not serving (but closes the connection). Never throws.
  void stop();

  // "<prefix>.>", the subject served.
  std::string subject() const;

  // The server the listener is connected to now, as displayUrl shows it (one entry of
  // the list, or a server its cluster announced); empty while reconnecting and once
  // stopped.
  std::string connectedUrl() const;

  // Requests answered so far, whatever their status.
  std::uint64_t requestsServed() const noexcept;

  // The registry the answers are counted in (options.metrics, or the listener's own).
  std::shared_ptr<transport::MetricsRegistry> metrics() const;

  const NatsListenerOptions& options() const noexcept { return listenerOptions; }

 private:
  NatsListenerOptions listenerOptions;
  std::unique_ptr<detail::ListenerCore> core;

  std::mutex lifecycleMutex;
  enum class Phase { Ready, Serving, Stopped };
  Phase phase = Phase::Ready;  // guarded by lifecycleMutex
};

}  // namespace connector::nats

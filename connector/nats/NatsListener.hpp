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
// Failures are answered with the headers "Connector-Status: <status>",
// "Nats-Service-Error-Code: <status>", "Nats-Service-Error: <text>" (the NATS services
// protocol's error headers, which other NATS clients read) and "Content-Type:
// application/json" and the body {"error":"<text>"}, with the HTTP gateway's statuses
// and texts (connector/transport/FailureAnswer.hpp):
//   400  the service refused the request (std::invalid_argument), e.g. bytes that are not
//        JSON; a subject that maps to no address ("Subject 'connector.a/b' maps to no
//        address: token 'a/b' holds '/'"); a body whose root is not a JSON object (or an
//        empty one): "the request body must be a JSON object", undelivered
//   404  nothing bound at the address: "No service bound at address '<address>'"
//   any  a connector::transport::StatusError of the service: its status and answer text
//        (e.g. 404 "order not found: <id>")
//   503  the service is not running: "Service exists but is not running."
//   500  any other failure, with its text; an answer that is not an OpaqueMessage ("The
//        service at '<address>' answered without an OpaqueMessage"); an answer over the
//        server's limit ("Answer of <n> bytes exceeds the NATS server's limit of <max>
//        bytes")
// The listener keeps serving after every one of them. A request without a reply subject
// is delivered and its answer dropped. Each answer is counted in the metrics as
// connector_nats_requests_total{status="<status>"} (200 for a service's answer).
//
// Deadlines: a request with the header "Connector-Timeout-Ms: <n>" (a NatsLink sends how
// long its requester still waits) is skipped when a worker takes it <n> ms or more after
// it arrived here: not delivered, not answered (its requester has given up), counted as
// connector_nats_expired_total. Otherwise it is delivered under that deadline
// (transport::DeliveryDeadline), so a NatsLink the service calls on tells the next hop
// what is left. The time counts from the arrival in this process, so the clocks of the
// two machines never matter.
//
// Discovery: the listener is a service of the NATS services protocol, so NATS tooling
// finds and watches it (nats.js: nc.services.client().ping(), info(), stats()). It
// answers "$SRV.PING", "$SRV.INFO" and "$SRV.STATS" (each also ".<serviceName>" and
// ".<serviceName>.<serviceId()>") outside the queue group, so every listener answers,
// with the documents io.nats.micro.v1.ping_response, info_response and stats_response:
// name, id, version, metadata, and one endpoint per address bound on the router (its
// name, subject and queue group; its address in the endpoint's metadata). The stats
// count per endpoint the requests delivered, the errors (any answer but 200) with the
// last one's text, and the time spent delivering (processing_time and
// average_processing_time, in nanoseconds); skipped requests and requests to unbound
// addresses are not an endpoint's.
//
// Threads: nats.c's delivery thread of the subscription notes each request's arrival
// and queues it; `threads` workers take the requests, deliver them, wait for the
// service and publish the answers. With every worker busy, further requests wait in the
// queue (bounded by maxPendingMessages / maxPendingBytes; past them requests are
// dropped). Discovery requests are answered on another nats.c delivery thread.
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
  // must be positive", "NatsListener service name '<name>' is not valid: use letters,
  // digits, '_' and '-'", "NatsListener service version '<version>' is not a semantic
  // version such as 1.2.3", as checkSubjectPrefix for a bad prefix, and as the connection
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

  // Requests skipped so far because their requester had stopped waiting
  // (connector_nats_expired_total).
  std::uint64_t requestsExpired() const noexcept;

  // This listener's instance id in the NATS services protocol: 22 letters and digits,
  // new for every listener.
  std::string serviceId() const;

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

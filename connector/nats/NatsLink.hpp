// connector::nats::NatsLink: a context that carries OpaqueMessages to services in other
// processes over NATS, the counterpart of a NatsListener. deliver() sends the message's
// payload as a request to the address's subject ("shop/ReserveItem" ->
// "connector.shop.ReserveItem") with a Content-Type header and a Connector-Timeout-Ms
// header (how long the requester still waits: requestTimeout, or what is left of the
// transport::DeliveryDeadline the delivery runs under, when that is less), and answers
// with an OpaqueMessage holding the reply's payload and content type. Whichever listener of the
// queue group the server picks serves it; the link knows none of them.
//
//   connector::nats::NatsLinkOptions options;
//   options.url = "nats://127.0.0.1:4222";
//   auto link = std::make_shared<connector::nats::NatsLink>(options);   // connects
//   clientNode->bind(connector::Address("shop/ReserveItem"),
//                    std::make_shared<connector::json::JsonSerializerServiceProvider>(serializer),
//                    link);   // the bridge's opaque requests now go out over NATS
//
// Asynchronous: deliver() publishes the request and returns at once; no thread waits per
// request in flight, so one thread may keep hundreds of them in flight. Answers arrive
// on one subscription of the link's own (its reply inbox "_INBOX.<id>.*"; each request's
// reply subject ends in a token that finds its promise in a table) and resolve the
// futures on nats.c's delivery thread; one timer thread fails the requests whose time is
// up. Continuations attached with Future::then run on those threads: keep them short.
//
// Failures arrive through the future, never as exceptions from deliver():
// - a message that is not an OpaqueMessage (or a null one): std::invalid_argument
//   "NatsLink delivers only an OpaqueMessage, not <type>" ("... not a null message");
// - an address that maps to no subject: std::invalid_argument from subjectFor, e.g.
//   "Address 'a.b' cannot map to a NATS subject: segment 'a.b' holds '.'";
// - everything else as connector::transport::StatusError (a std::runtime_error) whose
//   text is "NATS request to <subject> failed: <cause>", and whose status and answer
//   text are what an HTTP edge answers with (HttpGateway::forwarding does):
//     503 "no service is listening" (the server answers at once when no listener
//         subscribes to the subject); answer "No service is listening at '<address>'"
//     504 "no answer within <n> ms" (requestTimeout); answer "No answer from '<address>'
//         within <n> ms"
//     503 "connection lost": the connection to the server broke while the request was in
//         flight (every such request fails at once; nats.c reconnects, and later
//         requests go out once it has)
//     503 "connection closed": the link is being destroyed, or nats.c gave up
//         reconnecting (maxReconnects); every later request fails the same at once
//     413 "request of <n> bytes exceeds the server's limit of <max> bytes": payload and
//         headers over the server's max_payload, refused before anything is sent; answer
//         "Request of <n> bytes exceeds the NATS server's limit of <max> bytes"
//     <status> "status <status>: <text>": the listener's error answer (its
//         Connector-Status header and {"error":"<text>"} body), or any service's error
//         answer in the NATS services protocol's way (Nats-Service-Error-Code and
//         Nats-Service-Error headers; the body's {"error":...} when the latter is
//         missing), e.g. "NATS request to connector.shop.CancelOrder failed: status 500:
//         order not found: ORD-404"; answer "<text>", so an edge answers as local
//         serving would; "the far side answered <status> without an error text" when
//         there is none
//     500 "answer with the unreadable Connector-Status '<value>'" (or
//         Nats-Service-Error-Code): not a number from 400 to 599
//     504 "its requester's deadline passed before it was sent": the DeliveryDeadline of
//         the delivery was already past; nothing is sent
//     503 "<nats.c's text>": a publish nats.c refused (e.g. its reconnect buffer is full)
//
// Thread-safety: deliver() may be called from any number of threads at once. Destroying
// the link fails the requests still in flight ("connection closed"), waits until the
// reply subscription and the connection have called back for the last time, and closes;
// it must not run concurrently with a deliver() on the same link, nor from a
// continuation of one of its futures (hold the link by std::shared_ptr, as the router
// does).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/Address.hpp"
#include "connector/host/Context.hpp"
#include "connector/host/Message.hpp"
#include "connector/nats/NatsLinkOptions.hpp"

namespace connector::nats {

namespace detail {
class LinkCore;
}

class CONNECTOR_API NatsLink : public Context {
 public:
  // Connects to options.url and subscribes to the link's reply inbox. Blocks at most
  // about connectTimeout. Throws std::invalid_argument "NatsLink request time-out must be
  // positive", as checkSubjectPrefix for a bad prefix, and as the connection options
  // require ("NatsLink needs a server URL", "NatsLink time-outs and intervals must be
  // positive", "NatsLink needs a reconnect buffer of 1 to 2147483647 bytes"); and
  // std::runtime_error "NatsLink cannot connect to <url>: <cause>", e.g. "NatsLink cannot
  // connect to nats://127.0.0.1:4222: No server available for connection". Credentials
  // and TLS (see NatsConnectionOptions): a refusal fails at once, never retried, e.g.
  // "NatsLink cannot connect to nats://127.0.0.1:4222: the server refused the
  // credentials (Authorization Violation)" (a wrong or missing token, user or password),
  // "NatsLink cannot connect to tls://127.0.0.1:4222: TLS certificate verification
  // failed: unable to get local issuer certificate" (an authority not trusted; "IP
  // address mismatch" or "Hostname mismatch" for a certificate naming another host),
  // "... : the server offers no TLS" (TLS asked for, a plain server), and
  // "NatsLink cannot load the CA file '<file>': <cause>". <url> never shows the token or
  // password the URL carries, nor does any text.
  explicit NatsLink(NatsLinkOptions options = {});
  ~NatsLink() override;

  // Sends the OpaqueMessage as a request to the address's subject and returns the future
  // of its answer (see the banner for the failures). Never throws (but std::bad_alloc);
  // never blocks but for writing the request to the socket.
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                           Address&& address) override;

  // The subject a delivery to `address` is sent to. Throws as subjectFor.
  std::string subjectFor(const Address& address) const;

  // Requests sent and not yet answered, failed or timed out.
  std::size_t requestsInFlight() const;

  // The server's limit on one message (payload and headers), in bytes.
  std::int64_t maxPayload() const;

  // The server the link is connected to now, as displayUrl shows it (one entry of the
  // list, or a server its cluster announced); empty while reconnecting and once closed.
  std::string connectedUrl() const;

  const NatsLinkOptions& options() const noexcept { return linkOptions; }

 private:
  NatsLinkOptions linkOptions;
  std::unique_ptr<detail::LinkCore> core;
};

}  // namespace connector::nats

// connector::net::HttpGatewayOptions: where an HttpGateway listens, how many threads it
// runs, the limits and deadlines that keep any client from holding it up, and HTTPS and
// bearer tokens that keep the wrong clients out.
//
//   connector::net::HttpGatewayOptions options;
//   options.port = 0;                                  // any free port; port() tells which
//   options.threads = 8;                               // deliveries at once
//   options.maxBodyBytes = 256 * 1024;
//   options.headerTimeout = std::chrono::seconds(5);
//   options.tlsCertificateFile = "/etc/shop/chain.pem";   // HTTPS
//   options.tlsKeyFile = "/etc/shop/key.pem";
//   options.authTokensFile = "/etc/shop/tokens";          // bearer tokens
//   options.api = std::make_shared<connector::json::Api>(api);   // /openapi.json, /docs
//   connector::net::HttpGateway gateway(router, options);
//
// Every limit answers or closes one client and leaves the others alone; none of them
// makes the gateway stop accepting. Refusals are counted in /metrics under
// connector_gateway_rejected_total{reason="..."} (reason named below).
//
// Thread-safety: a plain value, copied into the gateway at construction.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "connector/transport/MetricsRegistry.hpp"
#include "connector/types/Api.hpp"

namespace connector::net {

struct HttpGatewayOptions {
  // Address to listen on: loopback unless told otherwise ("0.0.0.0" for every interface).
  std::string bindAddress = "127.0.0.1";
  // Port to listen on; 0 picks a free one.
  std::uint16_t port = 0;

  // Event loops: each owns a share of the connections (new ones join each in turn) and
  // is run by one thread at a time, which accepts, reads, parses and writes, and also
  // runs the deliveries whose services answer at once (those that took under 100 us on
  // average). One loop is plenty for most loads; more use more cores. At least 1.
  int ioThreads = 1;
  // Deliveries at once, wherever they run, and the spare threads beside the loops' own:
  // a delivery that has been slow (or whose body is over 64 KiB) runs on a spare, and a
  // loop whose thread blocks in a delivery for more than a millisecond or two is taken
  // over by a spare, so no service can stall a loop. More requests than this wait for
  // a delivery to end (and get their 504 after deliveryTimeout if none does). At least 1.
  int threads = 16;

  // Connections open at once. A connection beyond it is answered 503 {"error":"Too many
  // connections (limit <n>)"} with Connection: close and closed (reason "connections").
  // The gateway keeps accepting; when the process runs out of file descriptors it pauses
  // accepting for 100 ms and tries again. At least 1.
  std::size_t maxConnections = 10000;
  // Largest request body, in bytes. A larger Content-Length is answered 413 before the
  // body is read; a chunked body as soon as it grows past the limit (reason "body_size");
  // the connection is then closed. At least 1.
  std::size_t maxBodyBytes = std::size_t{1} << 20;
  // Request body bytes read or being delivered at once, in bytes, over all connections:
  // what bounds the gateway's memory (a parsed JSON body takes about 20 times its size).
  // A request whose body does not fit waits (its body unread) until earlier ones are
  // answered, at most bodyTimeout; then it is answered 503 with Retry-After: 1 and
  // Connection: close (reason "busy"). A chunked body that outgrows the room left is
  // answered the same at once. A single request larger than the budget is let through
  // when nothing else is in flight. At least 1.
  std::size_t maxInFlightBytes = std::size_t{8} << 20;

  // Request headers are capped at this many bytes; a larger one is answered 431
  // (reason "header_size") and the connection closed.
  static constexpr std::size_t kMaxHeaderBytes = std::size_t{8} * 1024;

  // How long a client has for a whole request header, counted from the connection's
  // start (first request) or from its first byte (later ones). Past it the connection
  // is closed without an answer (reason "header_timeout"). Positive.
  std::chrono::milliseconds headerTimeout{10000};
  // Longest wait between two reads of a request body, and for the client to take one
  // write of an answer. Past it the connection is closed (reason "body_timeout").
  // Positive.
  std::chrono::milliseconds bodyTimeout{30000};
  // How long an idle keep-alive connection is held open for its next request; then it
  // is closed. Positive.
  std::chrono::milliseconds keepAliveTimeout{75000};
  // How long a delivery may take. Past it the request is answered 504 {"error":"No
  // answer from '<address>' within <n> ms"} (reason "delivery_timeout"); a delivery
  // still waiting for its turn is dropped, one running finishes and its late answer is
  // dropped. Positive.
  std::chrono::milliseconds deliveryTimeout{30000};
  // How long stop() waits for requests already read to be answered; connections still
  // open then are closed. Positive.
  std::chrono::milliseconds drainTimeout{10000};

  // The JSON document answered to GET /schemas (application/json), normally
  // {"<type name>": <JSON Schema>, ...} for the message types served. Empty: "{}".
  std::string schemas;

  // The operations served, described once (json::Api). Set: GET /openapi.json answers
  // their OpenAPI 3.1.0 document (application/json; with bearer security when
  // authTokensFile is set), and GET /docs answers interactive docs of it (Swagger UI,
  // every file served by the gateway itself, under a strict Content-Security-Policy).
  // Null (the default): both answer 404 {"error":"This gateway has no API description"}.
  // The document is rendered once, at construction.
  std::shared_ptr<const json::Api> api;
  // Where GET /docs finds the Swagger UI files (swagger-ui-dist). Empty (the default):
  // the package's share folder, share/connector_json/swagger-ui beside the library's
  // folder (installed) or inside it (build tree). Without the files, GET /docs answers
  // 404 {"error":"The interactive docs are not installed: ..."}.
  std::string swaggerUiFolder;

  // HTTPS: a PEM file with the server's certificate chain (its own certificate first,
  // then the intermediates) and a PEM file with its private key, not encrypted. Both
  // empty (the default): plain HTTP. With both, every connection must complete a TLS
  // handshake (TLS 1.2 or 1.3) within headerTimeout, counted from the connection's
  // start together with its first request header; a client that sends plain HTTP or
  // anything but a TLS handshake, or offers only older protocols, is closed (reason
  // "tls"). A file that is missing, unreadable or not what it should be fails the
  // gateway's construction. The files are read once, at construction.
  std::string tlsCertificateFile;
  std::string tlsKeyFile;

  // Bearer tokens: a file with one accepted token per line (empty lines and lines
  // starting with '#' are skipped). Empty (the default): no token is asked for. With a
  // file, every request but GET /healthz must carry "Authorization: Bearer <token>"
  // with one of its tokens; any other is answered 401 with "WWW-Authenticate: Bearer"
  // and {"error":"..."} and nothing is delivered (reason "auth"). The file is read at
  // construction and again by HttpGateway::reloadTokens(). Tokens cross the network in
  // clear text unless the gateway serves HTTPS.
  std::string authTokensFile;

  // Where the gateway's metrics go (GET /metrics shows all of this registry). Null: the
  // gateway makes its own. Share one registry to show another transport's metrics too.
  std::shared_ptr<transport::MetricsRegistry> metrics;
};

}  // namespace connector::net

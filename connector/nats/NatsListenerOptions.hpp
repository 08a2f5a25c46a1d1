// connector::nats::NatsListenerOptions: where a NatsListener connects
// (NatsConnectionOptions), which subjects it serves in which queue group, how many
// deliveries it runs at once, how long stop() may take, and what it tells NATS tooling
// about itself (the NATS services protocol).
//
//   connector::nats::NatsListenerOptions options;
//   options.url = "nats://127.0.0.1:4222";
//   options.threads = 8;
//   options.metrics = gateway.metrics();     // one /metrics for HTTP and NATS
//   options.serviceName = "shop";            // found by nats.js: services.client().ping("shop")
//   options.api = std::make_shared<connector::json::Api>(api);   // types and schemas in INFO
//   connector::nats::NatsListener listener(router, options);
//
// Thread-safety: a plain value, copied into the listener at construction.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "connector/nats/NatsConnectionOptions.hpp"
#include "connector/nats/Subjects.hpp"
#include "connector/transport/MetricsRegistry.hpp"
#include "connector/types/Api.hpp"

namespace connector::nats {

struct NatsListenerOptions : NatsConnectionOptions {
  // The listener subscribes to "<prefix>.>": every address under the prefix. One or more
  // '.'-separated tokens (see Subjects.hpp); the links calling it use the same.
  std::string subjectPrefix = kDefaultSubjectPrefix;
  // The queue group: the server hands each request to one member of the group, so any
  // number of listeners (in any number of processes) share the load. Not empty, no
  // whitespace.
  std::string queueGroup = "connector";
  // Worker threads: deliveries run at once (they block while the service works). When
  // all of them are busy, further requests wait in nats.c's queue of the subscription
  // (see the two limits below). At least 1.
  int threads = 16;
  // Requests received and waiting for a thread, at most (messages; payload bytes); past
  // either limit further requests are dropped unanswered and their requesters time out.
  // At least 1 each; the byte limit at most 2147483647.
  int maxPendingMessages = 65536;
  std::size_t maxPendingBytes = std::size_t{64} << 20;
  // How long stop() may take to answer the requests already received; what is left then
  // is dropped (its requesters time out). Positive.
  std::chrono::milliseconds drainTimeout{10000};
  // Where the listener counts its answers (connector_nats_requests_total{status}). Null:
  // the listener makes its own. Share the HTTP gateway's to show both on its /metrics.
  std::shared_ptr<transport::MetricsRegistry> metrics;
  // The listener as a service of the NATS services protocol (it answers "$SRV.PING",
  // "$SRV.INFO" and "$SRV.STATS", for all services, by this name, and by this name and
  // its id; every listener answers, outside the queue group). The name is shared by all
  // listeners that serve alike: one or more of A-Z, a-z, 0-9, '_' and '-'.
  std::string serviceName = "connector";
  // A semantic version ("1.4.0", "2.0.0-rc.1+build.5"); empty (the default): the
  // package's version, e.g. "0.1.0".
  std::string serviceVersion;
  // Free text shown by INFO; empty by default.
  std::string serviceDescription;
  // The operations served, described once (json::Api, as HttpGatewayOptions::api). Set:
  // the INFO answer's endpoint of each bound address that the api declares carries, beside
  // "address", the metadata "summary", "request_type", "request_schema", "answer_type"
  // and "answer_schema" (the protocol's metadata values are strings: the schemas are
  // their JSON text). Null (the default): "address" only.
  std::shared_ptr<const json::Api> api;
};

}  // namespace connector::nats

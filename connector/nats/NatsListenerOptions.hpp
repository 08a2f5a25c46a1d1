// connector::nats::NatsListenerOptions: where a NatsListener connects
// (NatsConnectionOptions), which subjects it serves in which queue group, how many
// deliveries it runs at once, and how long stop() may take.
//
//   connector::nats::NatsListenerOptions options;
//   options.url = "nats://127.0.0.1:4222";
//   options.threads = 8;
//   options.metrics = gateway.metrics();     // one /metrics for HTTP and NATS
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
  // Requests received and waiting for a thread, at most; past either limit the server's
  // further messages are dropped (nats.c reports a slow consumer) and their requesters
  // time out. At least 1 each.
  int maxPendingMessages = 65536;
  std::size_t maxPendingBytes = std::size_t{64} << 20;
  // How long stop() may take to answer the requests already received; what is left then
  // is dropped (its requesters time out). Positive.
  std::chrono::milliseconds drainTimeout{10000};
  // Where the listener counts its answers (connector_nats_requests_total{status}). Null:
  // the listener makes its own. Share the HTTP gateway's to show both on its /metrics.
  std::shared_ptr<transport::MetricsRegistry> metrics;
};

}  // namespace connector::nats

// connector::nats::NatsLinkOptions: where a NatsLink connects (NatsConnectionOptions),
// the prefix of its subjects and how long it waits for an answer.
//
//   connector::nats::NatsLinkOptions options;
//   options.url = "nats://127.0.0.1:4222";
//   options.requestTimeout = std::chrono::seconds(5);
//   auto link = std::make_shared<connector::nats::NatsLink>(options);
//
// Thread-safety: a plain value, copied into the link at construction.
#pragma once

#include <chrono>
#include <string>

#include "connector/nats/NatsConnectionOptions.hpp"
#include "connector/nats/Subjects.hpp"

namespace connector::nats {

struct NatsLinkOptions : NatsConnectionOptions {
  // Subjects are "<prefix>.<address with '/' as '.'>"; the listeners serving them must
  // use the same prefix. One or more '.'-separated tokens (see Subjects.hpp).
  std::string subjectPrefix = kDefaultSubjectPrefix;
  // How long a request waits for its answer. Past it the request fails with "NATS request
  // to <subject> failed: no answer within <n> ms"; an answer arriving later is dropped.
  // Positive.
  std::chrono::milliseconds requestTimeout{30000};
};

}  // namespace connector::nats

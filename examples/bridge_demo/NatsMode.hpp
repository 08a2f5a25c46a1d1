// The demo's --nats mode: the client node's bridge crosses a NatsLink to whichever
// service process (connector-gateway --nats) of the queue group the server picks, instead
// of the in-process link. Kept apart from main.cpp so that the in-process demo reads as
// before.
//
//   natsmode::url = "nats://127.0.0.1:4222";            // from --nats
//   natsmode::timeout = std::chrono::seconds(2);          // from --nats-timeout
//   natsmode::caFile = "ca.pem";                          // from --nats-ca-file
//   natsmode::connectWait = std::chrono::seconds(30);     // from --nats-connect-wait
//   auto link = natsmode::linkFor(std::move(inProcessLink));
//
// Over NATS a far failure arrives as a StatusError "NATS request to connector.<subject>
// failed: status <status>: <text>" (404 for an unknown order), and the far inventories (one per
// service process) are not the local one, so the local stock and reservation-id checks do not
// apply.
//
// Thread-safety: the settings are made once, before any thread starts.
#pragma once

#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include <connector/json.hpp>
#include <connector/nats/DisplayUrl.hpp>
#include <connector/nats/NatsLink.hpp>
#include <connector/transport/StatusError.hpp>

namespace natsmode {

inline std::string url;                               // empty: not over NATS
inline std::chrono::milliseconds timeout{30000};      // the link's requestTimeout
inline std::string caFile;                            // the link's caFile
inline std::chrono::milliseconds connectWait{30000};  // the link's initialConnectWait

inline bool enabled() { return !url.empty(); }

inline std::shared_ptr<connector::Context> linkFor(std::shared_ptr<connector::Context> other) {
  if (!enabled()) return other;
  connector::nats::NatsLinkOptions options;
  options.url = url;
  options.requestTimeout = timeout;
  options.caFile = caFile;
  options.initialConnectWait = connectWait;
  options.onConnectWait = [](const std::string& shown) {
    std::cout << "waiting for the NATS server at " << shown << std::endl;
  };
  try {
    return std::make_shared<connector::nats::NatsLink>(options);
  } catch (const std::exception& error) {  // no server there: nothing to demonstrate
    std::cerr << "bridge_demo: " << error.what() << "\n";
    std::exit(1);
  }
}

// True when `error` is the far failure `expected`, as the NATS link reports it.
inline bool isFarFailure(const std::exception& error, const std::string& expected) {
  if (typeid(error) != typeid(connector::transport::StatusError)) return false;
  if (static_cast<const connector::transport::StatusError&>(error).status() != 404) return false;
  const std::string text = error.what();
  const std::string suffix = " failed: status 404: " + expected;
  return text.rfind("NATS request to ", 0) == 0 && text.size() > suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace natsmode

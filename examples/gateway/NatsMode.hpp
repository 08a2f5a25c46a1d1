// connector-gateway's NATS flags, kept apart from main.cpp so that the HTTP gateway's
// own code reads as before:
//   --nats URL     also serve the router over NATS (a service process; any number of
//                  them form one queue group and share the load)
//   --forward URL  serve no services: an HTTP edge that forwards every POST /<address>
//                  over NATS through a NatsLink, answering with the statuses and JSON
//                  error bodies of local serving (503 when nobody listens, 504 late)
//   --nats-ca-file F  trust the authorities in PEM file F for the NATS server's TLS
//                  certificate (TLS then required); a token or user:password and a
//                  tls:// scheme go in the URL: tls://TOKEN@host:4222
//   --nats-connect-wait S  how long to wait for a NATS server at start (default 30; 0:
//                  fail at once); prints "waiting for the NATS server at <url>" once
//
// URL may list several servers separated by ',' (the seeds of a cluster).
//
//   if (natsmode::accept(arg, value)) continue;         // while parsing the flags
//   auto listener = natsmode::serve(router, gateway);   // null without --nats
//
// Thread-safety: the flags are set once, before any thread starts.
#pragma once

#include <chrono>
#include <iostream>
#include <memory>
#include <string>

#include <connector/nats/DisplayUrl.hpp>
#include <connector/nats/NatsLink.hpp>
#include <connector/nats/NatsListener.hpp>
#include <connector/net/HttpGateway.hpp>

namespace natsmode {

inline std::string serveUrl;                          // --nats
inline std::string forwardUrl;                        // --forward
inline std::string caFile;                            // --nats-ca-file
inline std::chrono::milliseconds connectWait{30000};  // --nats-connect-wait
inline bool connectWaitGiven = false;

// Seconds with at most three decimals ("30", "0.5"), from 0 to a day.
inline bool parseWait(const std::string& text, std::chrono::milliseconds& value) {
  const std::size_t dot = text.find('.');
  const std::string whole = text.substr(0, dot);
  std::string fraction = dot == std::string::npos ? "" : text.substr(dot + 1);
  if (whole.empty() || whole.size() > 5 || fraction.size() > 3 ||
      (dot != std::string::npos && fraction.empty()) ||
      (whole + fraction).find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  fraction.resize(3, '0');
  value = std::chrono::milliseconds(std::stol(whole) * 1000 + std::stol(fraction));
  return value <= std::chrono::hours(24);
}

// Tells, once, that the start waits for the server.
inline void sayWaiting(const std::string& url) {
  std::cout << "waiting for the NATS server at " << url << std::endl;
}

// Whether `arg` is one of the NATS flags.
inline bool isFlag(const std::string& arg) {
  return arg == "--nats" || arg == "--forward" || arg == "--nats-ca-file" ||
         arg == "--nats-connect-wait";
}

// True when `arg` is one of the NATS flags (its `value` taken); `good` false for a value
// that does not parse.
inline bool accept(const std::string& arg, const std::string& value, bool& good) {
  if (arg == "--nats-connect-wait") {
    connectWaitGiven = true;
    good = parseWait(value, connectWait);
    return true;
  }
  if (arg == "--nats") {
    serveUrl = value;
    return true;
  }
  if (arg == "--forward") {
    forwardUrl = value;
    return true;
  }
  if (arg == "--nats-ca-file") {
    caFile = value;
    return true;
  }
  return false;
}

// Empty when the flags go together, else why not.
inline std::string conflict() {
  if (!serveUrl.empty() && !forwardUrl.empty()) {
    return "--nats and --forward exclude each other (an edge serves no services)";
  }
  if (!caFile.empty() && serveUrl.empty() && forwardUrl.empty()) {
    return "--nats-ca-file goes with --nats or --forward";
  }
  if (connectWaitGiven && serveUrl.empty() && forwardUrl.empty()) {
    return "--nats-connect-wait goes with --nats or --forward";
  }
  return {};
}

inline bool forwarding() { return !forwardUrl.empty(); }

// The edge of --forward: an HTTP gateway whose every delivery goes out over NATS.
inline std::unique_ptr<connector::net::HttpGateway> edge(
    const connector::net::HttpGatewayOptions& options) {
  connector::nats::NatsLinkOptions link;
  link.url = forwardUrl;
  link.caFile = caFile;
  link.requestTimeout = options.deliveryTimeout;
  link.initialConnectWait = connectWait;
  link.onConnectWait = sayWaiting;
  auto gateway = connector::net::HttpGateway::forwarding(
      std::make_shared<connector::nats::NatsLink>(link), options);
  std::cout << "forwarding every POST over NATS at " << connector::nats::displayUrl(forwardUrl)
            << std::endl;
  return gateway;
}

// The listener of --nats, serving `router`, counting into the gateway's /metrics and
// describing the gateway's operations (options.api) in $SRV.INFO; null without --nats.
inline std::unique_ptr<connector::nats::NatsListener> serve(
    std::shared_ptr<connector::Router> router, const connector::net::HttpGateway& gateway,
    const connector::net::HttpGatewayOptions& options) {
  if (serveUrl.empty()) return nullptr;
  connector::nats::NatsListenerOptions listen;
  listen.url = serveUrl;
  listen.caFile = caFile;
  listen.initialConnectWait = connectWait;
  listen.onConnectWait = sayWaiting;
  listen.threads = options.threads;
  listen.drainTimeout = options.drainTimeout;
  listen.metrics = gateway.metrics();
  listen.api = options.api;  // the same operations in the services protocol's INFO
  auto listener = std::make_unique<connector::nats::NatsListener>(std::move(router), listen);
  listener->start();
  std::cout << "serving over NATS at " << connector::nats::displayUrl(serveUrl) << " (subjects "
            << listener->subject() << ", queue group " << listen.queueGroup << ")" << std::endl;
  return listener;
}

}  // namespace natsmode

// The demo's --http mode: the client node's bridge crosses an HttpLink to a running
// connector-gateway instead of the in-process link. Kept apart from main.cpp so that the
// in-process demo reads as before.
//
//   httpmode::url = "http://127.0.0.1:8080";             // from --http
//   auto link = httpmode::linkFor(std::move(inProcessLink));
//
// Over HTTP a far failure arrives as "POST <url> failed: HTTP 500 ...: <text>", and the
// far inventory (one per gateway, several behind a balancer) is not the local one, so
// the local stock and reservation-id checks do not apply.
//
// Thread-safety: `url` is set once, before any thread starts.
#pragma once

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include <connector/json.hpp>
#include <connector/net/HttpLink.hpp>

namespace httpmode {

inline std::string url;  // empty: in-process link

inline bool enabled() { return !url.empty(); }

inline std::shared_ptr<connector::Context> linkFor(std::shared_ptr<connector::Context> inProcess) {
  if (!enabled()) return inProcess;
  return std::make_shared<connector::net::HttpLink>(url);
}

// True when `error` is the far failure `expected`, as the link in use reports it.
inline bool isFarFailure(const std::exception& error, const std::string& expected) {
  if (typeid(error) != typeid(std::runtime_error)) return false;
  const std::string text = error.what();
  if (!enabled()) return text == expected;
  const std::string suffix = ": " + expected;
  return text.rfind("POST " + url, 0) == 0 && text.size() > suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace httpmode

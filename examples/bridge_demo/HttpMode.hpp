// The demo's --http mode: the client node's bridge crosses an HttpLink to a running
// connector-gateway instead of the in-process link. Kept apart from main.cpp so that the
// in-process demo reads as before.
//
//   httpmode::url = "http://127.0.0.1:8080";             // from --http
//   auto link = httpmode::linkFor(std::move(inProcessLink));
//
// Over HTTPS, --ca-file names the authorities to trust (the system's store without it)
// and --token-file a file whose first line (empty lines and '#' lines skipped) is the
// bearer token sent with every request:
//
//   bridge_demo --http https://127.0.0.1:8443 --ca-file ca.pem --token-file token
//
// Over HTTP a far failure arrives as "POST <url> failed: HTTP <status> <reason>: <text>",
// e.g. "HTTP 404 Not Found: order not found: ORD-404", and the
// far inventory (one per gateway, several behind a balancer) is not the local one, so
// the local stock and reservation-id checks do not apply.
//
// Thread-safety: `url` is set once, before any thread starts.
#pragma once

#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include <connector/json.hpp>
#include <connector/net/HttpLink.hpp>
#include <connector/transport/StatusError.hpp>

namespace httpmode {

inline std::string url;                              // empty: in-process link
inline connector::net::HttpLinkOptions linkOptions;  // --ca-file, --token-file

inline bool enabled() { return !url.empty(); }

inline std::shared_ptr<connector::Context> linkFor(std::shared_ptr<connector::Context> inProcess) {
  if (!enabled()) return inProcess;
  return std::make_shared<connector::net::HttpLink>(url, linkOptions);
}

// The first line of `path` that is neither empty nor a '#' comment, without the blanks
// around it; empty when there is none. Throws std::runtime_error when it cannot be read.
inline std::string readToken(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot read the token file '" + path + "'");
  std::string line;
  while (std::getline(in, line)) {
    const auto first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#') continue;
    return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
  }
  return {};
}

// Takes "--ca-file F" or "--token-file F" (advancing i): 0 when taken, -1 when `arg` is
// neither, 2 when it is misused (the reason printed).
inline int parseSecurityFlag(const std::string& arg, int argc, char** argv, int& i) {
  if (arg != "--ca-file" && arg != "--token-file") return -1;
  if (i + 1 >= argc) {
    std::cerr << "bridge_demo: " << arg << " needs a file\n";
    return 2;
  }
  const std::string file = argv[++i];
  if (arg == "--ca-file") {
    linkOptions.caFile = file;
    return 0;
  }
  try {
    linkOptions.bearerToken = readToken(file);
  } catch (const std::exception& error) {
    std::cerr << "bridge_demo: " << error.what() << "\n";
    return 2;
  }
  if (linkOptions.bearerToken.empty()) {
    std::cerr << "bridge_demo: the token file '" << file << "' holds no token\n";
    return 2;
  }
  return 0;
}

// False, with the reason printed, when the link of the --http mode cannot be made from
// the flags (a bad URL, a CA file that does not load, a token that is not one).
inline bool usable() {
  if (!enabled()) {
    if (linkOptions.caFile.empty() && linkOptions.bearerToken.empty()) return true;
    std::cerr << "bridge_demo: --ca-file and --token-file go with --http\n";
    return false;
  }
  if (!linkOptions.caFile.empty() && url.rfind("https://", 0) != 0) {
    std::cerr << "bridge_demo: --ca-file goes with an https:// URL in --http\n";
    return false;
  }
  try {
    connector::net::HttpLink probe(url, linkOptions);
    return true;
  } catch (const std::exception& error) {
    std::cerr << "bridge_demo: " << error.what() << "\n";
    return false;
  }
}

// True when `error` is the far failure `expected`, answered 404, as the link in use
// reports it: in process, the service's own StatusError; over HTTP, the link's
// std::runtime_error naming the status.
inline bool isFarFailure(const std::exception& error, const std::string& expected) {
  const std::string text = error.what();
  if (!enabled()) {
    const auto* failure = dynamic_cast<const connector::transport::StatusError*>(&error);
    return typeid(error) == typeid(connector::transport::StatusError) && failure->status() == 404 &&
           text == expected && failure->answerText() == expected;
  }
  if (typeid(error) != typeid(std::runtime_error)) return false;
  const std::string suffix = " failed: HTTP 404 Not Found: " + expected;
  return text.rfind("POST " + url, 0) == 0 && text.size() > suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace httpmode

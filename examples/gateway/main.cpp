// connector-gateway: the shop's far node behind an HTTP gateway. Any HTTP client reaches
// its services by POSTing JSON to http://HOST:PORT/shop/ReserveItem or /shop/CancelOrder;
// bridge_demo --http URL runs the demo's client node against it.
//
//   connector-gateway --port 0          # prints "listening on http://127.0.0.1:PORT"
//   curl -H 'Content-Type: application/json' http://127.0.0.1:PORT/shop/ReserveItem
//        -d '{"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2}'     (one line)
//
// SIGINT or SIGTERM stops it cleanly: requests in flight are answered first, then it
// prints how many requests it served and exits 0.
#include <csignal>
#include <cstdint>
#include <exception>
#include <iostream>
#include <string>

#include <pthread.h>

#include <connector/json.hpp>
#include <connector/net/HttpGateway.hpp>

#include "shop/ShopNodes.hpp"

namespace {

const char* const kUsage =
    "usage: connector-gateway [--bind ADDRESS] [--port N] [--threads N] [--max-body BYTES]\n"
    "\n"
    "Serves the shop example's inventory services over HTTP: POST /<address> with a JSON\n"
    "request, GET / lists the addresses.\n"
    "\n"
    "  --bind ADDRESS    address to listen on (default 127.0.0.1)\n"
    "  --port N          port to listen on; 0 picks a free one (default 8080)\n"
    "  --threads N       worker threads, also the connections served at once (default 16)\n"
    "  --max-body BYTES  largest request body accepted (default 16777216)\n"
    "  --help            print this text\n"
    "\n"
    "Prints \"listening on http://HOST:PORT\" once it serves; SIGINT or SIGTERM stops it.\n";

bool parseNumber(const std::string& text, unsigned long long max, unsigned long long& value) {
  if (text.empty() || text.size() > 12 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  value = std::stoull(text);
  return value <= max;
}

// Returns -1 when the program should go on, else the exit status.
int parseOptions(int argc, char** argv, connector::net::HttpGatewayOptions& options) {
  options.port = 8080;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return 0;
    }
    if (arg != "--bind" && arg != "--port" && arg != "--threads" && arg != "--max-body") {
      std::cerr << "connector-gateway: unknown option '" << arg << "'\n\n" << kUsage;
      return 2;
    }
    if (i + 1 >= argc) {
      std::cerr << "connector-gateway: " << arg << " needs a value\n\n" << kUsage;
      return 2;
    }
    const std::string value = argv[++i];
    unsigned long long number = 0;
    if (arg == "--bind") {
      options.bindAddress = value;
    } else if (arg == "--port" && parseNumber(value, 65535, number)) {
      options.port = static_cast<std::uint16_t>(number);
    } else if (arg == "--threads" && parseNumber(value, 1024, number) && number >= 1) {
      options.threads = static_cast<int>(number);
    } else if (arg == "--max-body" && parseNumber(value, 1ULL << 32, number) && number >= 1) {
      options.maxBodyBytes = static_cast<std::size_t>(number);
    } else {
      std::cerr << "connector-gateway: bad value '" << value << "' for " << arg << "\n\n" << kUsage;
      return 2;
    }
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  connector::net::HttpGatewayOptions options;
  if (int status = parseOptions(argc, argv, options); status >= 0) return status;

  // Block the stop signals before any thread starts, so that every thread inherits the
  // mask and only sigwait below receives them.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  try {
    shop::ShopNodes nodes;  // the far node: gateway router -> deserializers -> services
    connector::net::HttpGateway gateway(nodes.gateway, options);
    gateway.start();
    std::cout << "listening on " << gateway.url() << std::endl;

    int signal = 0;
    sigwait(&stopSignals, &signal);
    gateway.stop();
    std::cout << "connector-gateway: stopped on signal " << signal << ", served "
              << gateway.requestsServed() << " requests" << std::endl;
  } catch (const std::exception& error) {
    std::cerr << "connector-gateway: " << error.what() << std::endl;
    return 1;
  }
  return 0;
}

// connector-gateway: the shop's far node behind an HTTP gateway. Any HTTP client reaches
// its services by POSTing JSON to http://HOST:PORT/shop/ReserveItem or /shop/CancelOrder;
// bridge_demo --http URL runs the demo's client node against it. With --nats URL it also
// serves them over NATS (bridge_demo --nats URL); with --forward URL it is an HTTP edge
// without services that forwards every request over NATS (NatsMode.hpp).
//
//   connector-gateway --port 0          # prints "listening on http://127.0.0.1:PORT"
//   open http://127.0.0.1:PORT/docs     # the services' interactive docs (OpenAPI 3.1)
//   curl -H 'Content-Type: application/json' http://127.0.0.1:PORT/shop/ReserveItem
//        -d '{"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2}'     (one line)
//
// At start it raises its open-file limit to the hard limit (every connection is a
// descriptor) and prints the limits it runs with. SIGINT or SIGTERM drains it: it stops
// accepting, answers the requests already read, prints how many requests it served and
// exits 0. With --tls-cert and --tls-key it serves HTTPS; with --auth-tokens it asks every
// request but GET /healthz for a bearer token, and SIGHUP re-reads the tokens file.
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include <pthread.h>

#include <connector/json.hpp>
#include <connector/net/HttpGateway.hpp>

#include "NatsMode.hpp"
#include "SecurityFlags.hpp"
#include "shop/ShopNodes.hpp"
#include "shop/ShopTypes.hpp"

namespace {

const char* const kUsage =
    "usage: connector-gateway [options]\n"
    "\n"
    "Serves the shop example's inventory services over HTTP: POST /<address> with a JSON\n"
    "request, GET / lists the addresses, GET /healthz and GET /metrics report on the gateway,\n"
    "GET /openapi.json describes the services (OpenAPI 3.1) and GET /docs shows that in a\n"
    "browser, where requests can be tried.\n"
    "Sizes are in bytes, times in seconds (fractions allowed, e.g. 0.5).\n"
    "\n"
    "  --bind ADDRESS               address to listen on (default 127.0.0.1)\n"
    "  --port N                     port to listen on; 0 picks a free one (default 8080)\n"
    "  --io-threads N               event loops, each run by one thread: they own the\n"
    "                               sockets and run the deliveries that answer at once\n"
    "                               (default 1)\n"
    "  --threads N                  deliveries at once, and the spare threads that run the\n"
    "                               slow ones and take over a loop stuck in one (default 16)\n"
    "  --max-connections N          connections open at once; more get 503 (default 10000)\n"
    "  --max-body BYTES             largest request body; larger gets 413 (default 1048576)\n"
    "  --max-in-flight-bytes BYTES  request bytes read or delivered at once; more wait or\n"
    "                               get 503 (default 8388608)\n"
    "  --header-timeout S           time for a whole request header (default 10)\n"
    "  --body-timeout S             longest pause while reading a body (default 30)\n"
    "  --keep-alive-timeout S       idle time before a kept-alive connection closes (default 75)\n"
    "  --delivery-timeout S         time for a service's answer; then 504 (default 30)\n"
    "  --drain-timeout S            time to answer requests in flight on SIGINT/SIGTERM\n"
    "                               (default 10)\n"
    "  --tls-cert FILE              serve HTTPS with this PEM certificate chain (needs\n"
    "                               --tls-key)\n"
    "  --tls-key FILE               the PEM private key of --tls-cert, not encrypted\n"
    "  --auth-tokens FILE           accept only requests with \"Authorization: Bearer T\",\n"
    "                               T a line of FILE (GET /healthz needs none); SIGHUP\n"
    "                               re-reads FILE\n"
    "  --nats URL                   also serve the services over NATS at URL, e.g.\n"
    "                               nats://127.0.0.1:4222 (subjects connector.<address with\n"
    "                               '.' for '/'>, queue group connector); /metrics then counts\n"
    "                               connector_nats_requests_total too; URL may list several\n"
    "                               servers separated by ',' (the seeds of a cluster)\n"
    "  --forward URL                serve no services: forward every POST /<address> over\n"
    "                               NATS at URL to whichever service process listens (an\n"
    "                               HTTP edge; --delivery-timeout bounds each request)\n"
    "  --nats-ca-file FILE          trust the authorities in PEM FILE for the NATS server's\n"
    "                               certificate (TLS required); a token or user:password\n"
    "                               and tls:// go in the URL: tls://TOKEN@HOST:4222\n"
    "  --nats-connect-wait S        how long to wait for a NATS server at start; 0 fails at\n"
    "                               once when none answers (default 30)\n"
    "  --help                       print this text\n"
    "\n"
    "Prints its limits, then \"listening on http://HOST:PORT\" (https:// with --tls-cert)\n"
    "once it serves; SIGHUP re-reads the tokens file; SIGINT or SIGTERM drains it (NATS\n"
    "first, then HTTP) and exits 0.\n";

bool parseNumber(const std::string& text, unsigned long long max, unsigned long long& value) {
  if (text.empty() || text.size() > 12 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  value = std::stoull(text);
  return value <= max;
}

// Seconds with at most three decimals ("10", "0.25"), positive, at most a day.
bool parseSeconds(const std::string& text, std::chrono::milliseconds& value) {
  const std::size_t dot = text.find('.');
  const std::string whole = text.substr(0, dot);
  std::string fraction = dot == std::string::npos ? "" : text.substr(dot + 1);
  unsigned long long seconds = 0;
  unsigned long long millis = 0;
  if (!parseNumber(whole.empty() ? "0" : whole, 86400, seconds) || fraction.size() > 3 ||
      (dot != std::string::npos && fraction.empty())) {
    return false;
  }
  fraction.resize(3, '0');
  if (!parseNumber(fraction, 999, millis)) return false;
  value = std::chrono::milliseconds(seconds * 1000 + millis);
  return value.count() > 0;
}

// The flags of main.cpp's own that take a value (SecurityFlags.hpp and NatsMode.hpp
// name theirs).
const char* const kFlags[] = {"--bind",
                              "--port",
                              "--io-threads",
                              "--threads",
                              "--max-connections",
                              "--max-body",
                              "--max-in-flight-bytes",
                              "--header-timeout",
                              "--body-timeout",
                              "--keep-alive-timeout",
                              "--delivery-timeout",
                              "--drain-timeout"};

bool isFlag(const std::string& arg) {
  for (const char* flag : kFlags) {
    if (arg == flag) return true;
  }
  return security::isFlag(arg) || natsmode::isFlag(arg);
}

// Returns -1 when the program should go on, else the exit status. A usage error prints
// one line naming the flag, never the usage text (--help shows that).
int parseOptions(int argc, char** argv, connector::net::HttpGatewayOptions& options) {
  options.port = 8080;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return 0;
    }
    if (!isFlag(arg)) {
      std::cerr << "connector-gateway: unknown option " << arg << " (see --help)\n";
      return 2;
    }
    if (i + 1 >= argc) {
      std::cerr << "connector-gateway: " << arg << " needs a value\n";
      return 2;
    }
    const std::string value = argv[++i];
    unsigned long long number = 0;
    bool good = true;
    if (arg == "--bind") {
      options.bindAddress = value;
    } else if (arg == "--port") {
      good = parseNumber(value, 65535, number);
      options.port = static_cast<std::uint16_t>(number);
    } else if (arg == "--io-threads" || arg == "--threads") {
      good = parseNumber(value, 1024, number) && number >= 1;
      (arg == "--threads" ? options.threads : options.ioThreads) = static_cast<int>(number);
    } else if (arg == "--max-connections" || arg == "--max-body" ||
               arg == "--max-in-flight-bytes") {
      good = parseNumber(value, 1ULL << 40, number) && number >= 1;
      (arg == "--max-connections" ? options.maxConnections
       : arg == "--max-body"      ? options.maxBodyBytes
                                  : options.maxInFlightBytes) = static_cast<std::size_t>(number);
    } else if (arg == "--header-timeout") {
      good = parseSeconds(value, options.headerTimeout);
    } else if (arg == "--body-timeout") {
      good = parseSeconds(value, options.bodyTimeout);
    } else if (arg == "--keep-alive-timeout") {
      good = parseSeconds(value, options.keepAliveTimeout);
    } else if (arg == "--delivery-timeout") {
      good = parseSeconds(value, options.deliveryTimeout);
    } else if (arg == "--drain-timeout") {
      good = parseSeconds(value, options.drainTimeout);
    } else if (security::parseFlag(arg, value, options)) {  // see SecurityFlags.hpp
    } else if (natsmode::accept(arg, value, good)) {        // see NatsMode.hpp
      good = good && !value.empty();
    }
    if (!good) {
      std::cerr << "connector-gateway: bad value '" << value << "' for " << arg << "\n";
      return 2;
    }
  }
  return -1;
}

// Raises the soft open-file limit to the hard one; returns the limit in force.
rlim_t raiseOpenFileLimit() {
  rlimit limits{};
  if (::getrlimit(RLIMIT_NOFILE, &limits) != 0) return 0;
  if (limits.rlim_cur < limits.rlim_max) {
    rlimit raised = limits;
    raised.rlim_cur = limits.rlim_max;
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) return raised.rlim_cur;
  }
  return limits.rlim_cur;
}

std::string seconds(std::chrono::milliseconds value) {
  const auto ms = value.count();
  std::string text = std::to_string(ms / 1000);
  if (ms % 1000 != 0) {
    std::string fraction = std::to_string(1000 + ms % 1000).substr(1);
    while (fraction.back() == '0') fraction.pop_back();
    text += "." + fraction;
  }
  return text + " s";
}

void printLimits(const connector::net::HttpGatewayOptions& options, rlim_t openFiles) {
  std::cout << "limits: open files " << openFiles << ", connections " << options.maxConnections
            << ", header " << connector::net::HttpGatewayOptions::kMaxHeaderBytes << " bytes, body "
            << options.maxBodyBytes << " bytes, in flight " << options.maxInFlightBytes
            << " bytes\n"
            << "time-outs: header " << seconds(options.headerTimeout) << ", body "
            << seconds(options.bodyTimeout) << ", keep-alive " << seconds(options.keepAliveTimeout)
            << ", delivery " << seconds(options.deliveryTimeout) << ", drain "
            << seconds(options.drainTimeout) << "\n"
            << "threads: event loops " << options.ioThreads << ", deliveries " << options.threads
            << std::endl;
  if (openFiles != 0 && openFiles != RLIM_INFINITY && openFiles < options.maxConnections + 64) {
    std::cout << "note: the open-file limit is below the connection limit; past it the gateway "
                 "pauses accepting until connections close"
              << std::endl;
  }
}

// "1 request", "2 requests".
std::string requests(std::uint64_t count) {
  return std::to_string(count) + (count == 1 ? " request" : " requests");
}

// GET /schemas: the JSON Schemas of the shop's message types, by type name.
std::string schemasText() {
  std::ostringstream out;
  shop::shopSchemas()->stringify(out, 0, -1);
  return out.str();
}

}  // namespace

int main(int argc, char** argv) {
  connector::net::HttpGatewayOptions options;
  if (int status = parseOptions(argc, argv, options); status >= 0) return status;
  std::string conflict = security::conflict(options);
  if (conflict.empty()) conflict = natsmode::conflict();
  if (!conflict.empty()) {
    std::cerr << "connector-gateway: " << conflict << "\n";
    return 2;
  }

  // Block the stop signals before any thread starts, so that every thread inherits the
  // mask and only sigwait below receives them.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGHUP);  // re-reads the tokens file
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  const rlim_t openFiles = raiseOpenFileLimit();
  printLimits(options, openFiles);
  security::printSettings(options);

  try {
    // The far node (gateway router -> deserializers -> services), unless an edge.
    const auto nodes = natsmode::forwarding() ? nullptr : std::make_unique<shop::ShopNodes>();
    options.schemas = schemasText();
    // GET /openapi.json and the interactive docs at GET /docs.
    options.api = std::make_shared<connector::json::Api>(shop::shopApi());
    const auto gateway =
        nodes ? std::make_unique<connector::net::HttpGateway>(nodes->gateway, options)
              : natsmode::edge(options);
    const auto listener = nodes ? natsmode::serve(nodes->gateway, *gateway, options) : nullptr;
    gateway->start();
    std::cout << "listening on " << gateway->url() << std::endl;
    std::cout << "API docs at " << gateway->url() << "/docs" << std::endl;

    int signal = 0;
    while (sigwait(&stopSignals, &signal) == 0 && signal == SIGHUP) {
      security::reloadOnHangup(*gateway);
    }
    if (listener) {
      listener->stop();  // leaves the queue group first; HTTP goes on meanwhile
      std::cout << "connector-gateway: served " << requests(listener->requestsServed())
                << " over NATS" << std::endl;
    }
    gateway->stop();
    std::cout << "connector-gateway: stopped on signal " << signal << ", served "
              << requests(gateway->requestsServed()) << std::endl;
  } catch (const std::exception& error) {
    std::cerr << "connector-gateway: " << error.what() << std::endl;
    return 1;
  }
  return 0;
}

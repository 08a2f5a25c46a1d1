// bridge_demo: two nodes joined by an in-process link; typed requests cross from the
// client node to an inventory service on the far node as JSON, and typed answers come
// back. Prints the JSON that crosses the link for one request, the typed answer, the
// outcome of a request that fails on purpose, then runs a bounded load and prints
// requests per second and p50/p99 latency. Exits 0 only when every answer matched.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <typeinfo>
#include <unordered_set>
#include <vector>

#include <connector/json.hpp>
#include <connector/transport/StatusError.hpp>

#include "HttpMode.hpp"
#include "NatsMode.hpp"
#include "PrintingLink.hpp"
#include "shop/Inventory.hpp"
#include "shop/ShopMessages.hpp"
#include "shop/ShopNodes.hpp"

namespace {

using MessagePtr = std::unique_ptr<connector::Message>;
using Clock = std::chrono::steady_clock;

const char* const kUsage =
    "usage: bridge_demo [--requests N] [--threads N] [--quiet] [--http URL] [--ca-file F]\n"
    "                   [--token-file F] [--nats URL] [--nats-timeout S]\n"
    "                   [--nats-ca-file F] [--nats-connect-wait S] [--help]\n"
    "\n"
    "Joins two nodes with an in-process link and sends typed requests to an inventory\n"
    "service on the far node through the JSON bridge.\n"
    "\n"
    "  --requests N  requests of the load run (default 20000)\n"
    "  --threads N   client threads of the load run (default 2, at most 256)\n"
    "  --quiet       print only the load run's summary line\n"
    "  --http URL    cross to a connector-gateway at URL over HTTP instead\n"
    "  --ca-file F   with an https:// URL: trust the authorities in PEM file F (default:\n"
    "                the system's store)\n"
    "  --token-file F  send the bearer token in file F (its first line) with --http\n"
    "  --nats URL    cross over the NATS server at URL to the service processes\n"
    "                (connector-gateway --nats URL) instead; URL may list several servers\n"
    "                separated by ',' (the seeds of a cluster)\n"
    "  --nats-timeout S  how long a request over NATS waits for its answer (default 30)\n"
    "  --nats-ca-file F  trust the authorities in PEM file F for the NATS server's\n"
    "                certificate (TLS required); a token or user:password and tls:// go\n"
    "                in the URL: --nats tls://TOKEN@HOST:4222\n"
    "  --nats-connect-wait S  how long to wait for a NATS server at start; 0 fails at\n"
    "                once when none answers (default 30)\n"
    "  --help        print this text\n"
    "\n"
    "Exit status: 0 when every answer matched its request, 1 otherwise, 2 on bad usage.\n";

struct Options {
  long requests = 20000;
  int threads = 2;
  bool quiet = false;
};

bool parsePositive(const std::string& text, long max, long& value) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos ||
      text.size() > 9) {
    return false;
  }
  value = std::stol(text);
  return value >= 1 && value <= max;
}

// The flags that take a value.
const char* const kValueFlags[] = {"--requests",     "--threads",      "--http",
                                   "--ca-file",      "--token-file",   "--nats",
                                   "--nats-timeout", "--nats-ca-file", "--nats-connect-wait"};

bool takesValue(const std::string& arg) {
  for (const char* flag : kValueFlags) {
    if (arg == flag) return true;
  }
  return false;
}

// Returns -1 when the program should go on, else the exit status. A usage error prints
// one line naming the flag, never the usage text (--help shows that).
int parseOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return 0;
    }
    if (arg == "--quiet") {
      options.quiet = true;
      continue;
    }
    if (!takesValue(arg)) {
      std::cerr << "bridge_demo: unknown option " << arg << " (see --help)\n";
      return 2;
    }
    if (i + 1 >= argc) {
      std::cerr << "bridge_demo: " << arg << " needs a value\n";
      return 2;
    }
    if (arg == "--http") {  // --http mode, see HttpMode.hpp
      httpmode::url = argv[++i];
      continue;
    }
    if (arg == "--nats") {  // --nats mode, see NatsMode.hpp
      natsmode::url = argv[++i];
      continue;
    }
    if (arg == "--nats-ca-file") {
      natsmode::caFile = argv[++i];
      continue;
    }
    if (arg == "--nats-connect-wait") {
      char* end = nullptr;
      const double seconds = std::strtod(argv[++i], &end);
      if (*end != '\0' || !(seconds >= 0 && seconds <= 86400)) {
        std::cerr << "bridge_demo: --nats-connect-wait needs seconds from 0 to 86400\n";
        return 2;
      }
      natsmode::connectWait = std::chrono::milliseconds(static_cast<long>(seconds * 1000));
      continue;
    }
    if (arg == "--nats-timeout") {
      char* end = nullptr;
      const double seconds = std::strtod(argv[++i], &end);
      if (*end != '\0' || !(seconds >= 0.001 && seconds <= 86400)) {
        std::cerr << "bridge_demo: --nats-timeout needs seconds from 0.001 to 86400\n";
        return 2;
      }
      natsmode::timeout = std::chrono::milliseconds(static_cast<long>(seconds * 1000));
      continue;
    }
    if (const int taken = httpmode::parseSecurityFlag(arg, argc, argv, i); taken >= 0) {
      if (taken == 0) continue;
      return 2;
    }
    if (arg == "--requests" || arg == "--threads") {
      long value = 0;
      const long max = arg == "--requests" ? 100000000L : 256L;
      if (!parsePositive(argv[i + 1], max, value)) {
        std::cerr << "bridge_demo: " << arg << " needs a whole number from 1 to " << max << "\n";
        return 2;
      }
      ++i;
      if (arg == "--requests") {
        options.requests = value;
      } else {
        options.threads = static_cast<int>(value);
      }
      continue;
    }
  }
  return -1;
}

// True when the far node is in another process (its inventory is not the local one).
bool remote() { return httpmode::enabled() || natsmode::enabled(); }

std::string describe(const shop::Reservation& r) {
  std::ostringstream text;
  text << "shop::Reservation{reservationId=\"" << r.reservationId << "\", sku=\"" << r.sku
       << "\", quantity=" << r.quantity << ", accepted=" << (r.accepted ? "true" : "false") << "}";
  return text.str();
}

std::string typeName(const std::exception& error) {
  return foundation::core::diag::detail::demangle_typeid_name(typeid(error).name(), true);
}

// A failure as the demo prints it: its type, its status when it carries one, its text.
std::string describeFailure(const std::exception& error) {
  std::string text = typeName(error);
  if (const auto* status = dynamic_cast<const connector::transport::StatusError*>(&error)) {
    text += " " + std::to_string(status->status());
  }
  return text + " \"" + error.what() + "\"";
}

// One reservation through the bridge, printed; true when it came back as asked.
bool showOneRequest(shop::ShopNodes& nodes, PrintingLink& printing, std::ostream& out) {
  out << "1. Reserve 2 x LAMP-01 (client node -> JSON bridge -> far node)\n";
  printing.setEnabled(true);
  bool ok = false;
  try {
    MessagePtr answer = nodes.client
                            ->deliver(std::make_unique<shop::ReserveItem>("LAMP-01", 2),
                                      connector::Address(shop::kReserveItem))
                            .get();
    auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
    if (reservation != nullptr) {
      out << "  typed answer:  " << describe(*reservation) << "\n";
      ok = reservation->accepted && reservation->sku == "LAMP-01" && reservation->quantity == 2;
    } else {
      out << "  typed answer of an unexpected type\n";
    }
  } catch (const std::exception& error) {
    out << "  failed: " << typeName(error) << " \"" << error.what() << "\"\n";
  }
  printing.setEnabled(false);
  out << "\n";
  return ok;
}

// A cancellation of an unknown order; true when its failure reached the client intact.
bool showFailingRequest(shop::ShopNodes& nodes, PrintingLink& printing, std::ostream& out) {
  const std::string expected = "order not found: ORD-404";
  out << "2. Cancel order ORD-404 (fails on purpose: there is no such order)\n";
  printing.setEnabled(true);
  bool ok = false;
  try {
    nodes.client
        ->deliver(std::make_unique<shop::CancelOrder>("ORD-404"),
                  connector::Address(shop::kCancelOrder))
        .get();
    out << "  outcome: answered, but a failure was expected\n";
  } catch (const std::exception& error) {
    out << "  outcome:       " << describeFailure(error) << "\n";
    ok = natsmode::enabled() ? natsmode::isFarFailure(error, expected)
                             : httpmode::isFarFailure(error, expected);
  }
  printing.setEnabled(false);
  out << "\n";
  return ok;
}

struct ThreadResult {
  std::vector<double> latenciesUs;
  std::vector<std::string> reservationIds;
  long matched = 0;
  long pieces = 0;
  long wrong = 0;
  std::string firstProblem;
  std::map<std::string, long> failures;  // by type and text
  double slowestFailureUs = 0;           // from the request to its failure
};

const std::vector<std::string> kSkus = {"LAMP-01", "DESK-02", "CHAIR-03"};

void runClient(shop::ShopNodes& nodes, long requests, int threads, int self, ThreadResult& result) {
  result.latenciesUs.reserve(static_cast<std::size_t>(requests / threads + 1));
  for (long i = self; i < requests; i += threads) {
    const std::string& sku = kSkus[static_cast<std::size_t>(i) % kSkus.size()];
    const int quantity = 1 + static_cast<int>(i % 3);
    const Clock::time_point begin = Clock::now();
    try {
      MessagePtr answer = nodes.client
                              ->deliver(std::make_unique<shop::ReserveItem>(sku, quantity),
                                        connector::Address(shop::kReserveItem))
                              .get();
      const Clock::time_point end = Clock::now();
      result.latenciesUs.push_back(std::chrono::duration<double, std::micro>(end - begin).count());
      auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
      if (reservation != nullptr && reservation->accepted && reservation->sku == sku &&
          reservation->quantity == quantity && !reservation->reservationId.empty()) {
        ++result.matched;
        result.pieces += quantity;
        result.reservationIds.push_back(std::move(reservation->reservationId));
      } else {
        ++result.wrong;
        if (result.firstProblem.empty()) {
          result.firstProblem = reservation != nullptr
                                    ? "mismatched answer: " + describe(*reservation)
                                    : "answer of an unexpected type";
        }
      }
    } catch (const std::exception& error) {
      ++result.wrong;
      const std::string problem = typeName(error) + " \"" + error.what() + "\"";
      if (result.firstProblem.empty()) result.firstProblem = problem;
      ++result.failures[problem];
      result.slowestFailureUs =
          std::max(result.slowestFailureUs,
                   std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    }
  }
}

double percentile(const std::vector<double>& sorted, double p) {
  if (sorted.empty()) return 0.0;
  auto rank = static_cast<std::size_t>(std::ceil(p * static_cast<double>(sorted.size())));
  return sorted[std::min(sorted.size(), std::max<std::size_t>(rank, 1)) - 1];
}

bool runLoad(shop::ShopNodes& nodes, const Options& options) {
  long stockBefore = 0;
  for (const std::string& sku : kSkus) stockBefore += nodes.inventory->available(sku);

  std::vector<ThreadResult> results(static_cast<std::size_t>(options.threads));
  std::vector<std::thread> clients;
  const Clock::time_point begin = Clock::now();
  for (int t = 0; t < options.threads; ++t) {
    clients.emplace_back(runClient, std::ref(nodes), options.requests, options.threads, t,
                         std::ref(results[static_cast<std::size_t>(t)]));
  }
  for (std::thread& client : clients) client.join();
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();

  std::vector<double> latencies;
  std::unordered_set<std::string> ids;
  long matched = 0;
  long pieces = 0;
  long wrong = 0;
  std::string firstProblem;
  std::map<std::string, long> failures;
  double slowestFailureUs = 0;
  for (ThreadResult& result : results) {
    for (const auto& [problem, count] : result.failures) failures[problem] += count;
    slowestFailureUs = std::max(slowestFailureUs, result.slowestFailureUs);
    latencies.insert(latencies.end(), result.latenciesUs.begin(), result.latenciesUs.end());
    ids.insert(result.reservationIds.begin(), result.reservationIds.end());
    matched += result.matched;
    pieces += result.pieces;
    wrong += result.wrong;
    if (firstProblem.empty()) firstProblem = result.firstProblem;
  }
  std::sort(latencies.begin(), latencies.end());
  long stockAfter = 0;
  for (const std::string& sku : kSkus) stockAfter += nodes.inventory->available(sku);

  const bool allMatched =
      matched == options.requests && wrong == 0 &&
      (remote() ||  // far stock is not the local one
       (static_cast<long>(ids.size()) == matched && stockBefore - stockAfter == pieces));
  const double perSecond = static_cast<double>(options.requests) / seconds;
  const double p50 = percentile(latencies, 0.50);
  const double p99 = percentile(latencies, 0.99);
  if (options.quiet) {
    std::cout << "bridge_demo: " << matched << "/" << options.requests << " answers matched, "
              << static_cast<long>(perSecond) << " requests/s, p50 " << static_cast<long>(p50)
              << " us, p99 " << static_cast<long>(p99) << " us\n";
  } else {
    std::cout << "3. Load: " << options.requests << " reservations on " << options.threads
              << " client thread" << (options.threads == 1 ? "" : "s") << "\n"
              << "  answers matched: " << matched << " / " << options.requests
              << " (distinct reservation ids: " << ids.size() << ", pieces reserved: " << pieces
              << ")\n"
              << "  throughput:      " << static_cast<long>(perSecond) << " requests/s ("
              << std::fixed << std::setprecision(2) << seconds << " s)\n"
              << "  latency:         p50 " << static_cast<long>(p50) << " us, p99 "
              << static_cast<long>(p99) << " us\n";
  }
  if (!allMatched) {
    std::cerr << "bridge_demo: " << wrong << " answer(s) did not match their request";
    if (!firstProblem.empty()) std::cerr << "; first: " << firstProblem;
    if (!remote() && stockBefore - stockAfter != pieces) {
      std::cerr << "; stock moved by " << (stockBefore - stockAfter) << " pieces, answers say "
                << pieces;
    }
    std::cerr << "\n";
    for (const auto& [problem, count] : failures) {
      std::cerr << "bridge_demo: failed " << count << " x " << problem << "\n";
    }
    if (!failures.empty()) {
      std::cerr << "bridge_demo: the slowest failure came after "
                << static_cast<long>(slowestFailureUs / 1000) << " ms\n";
    }
  }
  return allMatched;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (int status = parseOptions(argc, argv, options); status >= 0) {
    return status;
  }
  if (!httpmode::usable()) return 2;  // --http with --ca-file, --token-file

  // With --quiet the two shown requests still run and are checked, but print nothing.
  std::ostream discard(nullptr);
  std::ostream& out = options.quiet ? discard : std::cout;
  std::shared_ptr<PrintingLink> printing;
  shop::ShopNodes nodes([&](std::shared_ptr<connector::Context> link) {
    printing =
        std::make_shared<PrintingLink>(natsmode::linkFor(httpmode::linkFor(std::move(link))), out);
    return printing;
  });

  out << "connector-json bridge demo\n"
      << "  client node: \"shop/ReserveItem\", \"shop/CancelOrder\" -> JSON serializer provider"
         " -> "
      << (natsmode::enabled()   ? "NATS link to " + connector::nats::displayUrl(natsmode::url)
          : httpmode::enabled() ? "HTTP link to " + httpmode::url
                                : "in-process link")
      << "\n"
      << "  far node:    gateway -> JSON deserializer provider -> inventory services\n\n";
  bool ok = true;
  if (!showOneRequest(nodes, *printing, out)) {
    std::cerr << "bridge_demo: the single reservation did not come back as asked\n";
    ok = false;
  }
  if (!showFailingRequest(nodes, *printing, out)) {
    std::cerr << "bridge_demo: the failing cancellation did not fail as expected\n";
    ok = false;
  }
  ok = runLoad(nodes, options) && ok;
  return ok ? 0 : 1;
}

// The NATS transport against raw nats.c doing the same exchange, in one run on one
// nats-server of its own (loopback). The floor: an echo responder in a queue group
// (nats.c's callback publishes the request's bytes back with its Content-Type) and a
// requester calling natsConnection_RequestMsg with the same JSON and header.
//
// Each benchmark alternates the two sides in batches, so that both see the same machine
// load, and reports both and their ratios as counters:
//   BM_SyncRoundTrip: one synchronous client. The full bridge (typed request -> client
//     router -> JSON serializer provider -> NatsLink -> NatsListener -> JSON deserializer
//     provider -> typed inventory service, and back) against the floor.
//     Goals: requests_ratio >= 0.8, p50_ratio <= 1.25.
//   BM_OneThread64InFlight: one client thread keeping 64 requests in flight through a
//     NatsLink (serializing each typed request and reading each typed answer itself)
//     to the same listener and services, against the synchronous floor.
//     Goal: requests_ratio >= 3.
//   BM_TwoListenersCpuBound: a service that burns 200 us of CPU per request, served by
//     one listener with one worker thread, then by two such listeners in one queue group;
//     one client thread keeps 64 requests in flight. Goal: requests_ratio >= 1.5 when
//     the machine has the cores for it (client, server and listeners share them).
//
// The machine's load average (from /proc/loadavg) is printed with the results.
#include <benchmark/benchmark.h>

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <deque>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <Poco/JSON/Parser.h>
#include <nats/nats.h>

#include <connector/json.hpp>
#include <connector/nats/NatsLink.hpp>
#include <connector/nats/NatsListener.hpp>

#include "shop/ShopMessages.hpp"
#include "shop/ShopNodes.hpp"
#include "shop/ShopTypes.hpp"
#include "support/NatsServerProcess.hpp"

namespace {

using namespace connector;
using MessagePtr = std::unique_ptr<Message>;
using Clock = std::chrono::steady_clock;

const char* const kRequestJson = R"({"sku":"LAMP-01","quantity":2,"type":"shop/ReserveItem"})";

connector::testing::NatsServerProcess& server() {
  static connector::testing::NatsServerProcess process;
  if (!process.running()) process.start();
  return process;
}

double microsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

std::string loadAverage() {
  std::ifstream in("/proc/loadavg");
  std::string one;
  std::string five;
  std::string fifteen;
  in >> one >> five >> fifteen;
  return "load " + one + " " + five + " " + fifteen;
}

// Raw nats.c: an echo responder in a queue group and a synchronous requester.
class Floor {
 public:
  explicit Floor(const std::string& url) {
    natsOptions* options = nullptr;
    natsOptions_Create(&options);
    natsOptions_SetURL(options, url.c_str());
    natsOptions_SetSendAsap(options, true);  // a connection that only answers
    check(natsConnection_Connect(&responder, options));
    check(natsConnection_Connect(&requester, options));
    natsOptions_Destroy(options);
    check(natsConnection_QueueSubscribe(&subscription, responder, "floor.echo", "floor",
                                        &Floor::echo, nullptr));
    check(natsConnection_Flush(responder));
  }
  ~Floor() {
    natsSubscription_Destroy(subscription);
    natsConnection_Destroy(requester);
    natsConnection_Destroy(responder);
  }
  Floor(const Floor&) = delete;
  Floor& operator=(const Floor&) = delete;

  // One request and its answer; the latency in microseconds.
  double request() {
    natsMsg* message = nullptr;
    natsMsg_Create(&message, "floor.echo", nullptr, kRequestJson,
                   static_cast<int>(std::strlen(kRequestJson)));
    natsMsgHeader_Set(message, "Content-Type", "application/json");
    const auto begin = Clock::now();
    natsMsg* reply = nullptr;
    check(natsConnection_RequestMsg(&reply, requester, message, 5000));
    const double micros = microsSince(begin);
    natsMsg_Destroy(reply);
    natsMsg_Destroy(message);
    return micros;
  }

 private:
  static void check(natsStatus status) {
    if (status != NATS_OK) throw std::runtime_error(natsStatus_GetText(status));
  }
  static void echo(natsConnection* connection, natsSubscription*, natsMsg* message, void*) {
    natsMsg* reply = nullptr;
    natsMsg_Create(&reply, natsMsg_GetReply(message), nullptr, natsMsg_GetData(message),
                   natsMsg_GetDataLength(message));
    natsMsgHeader_Set(reply, "Content-Type", "application/json");
    natsConnection_PublishMsg(connection, reply);
    natsMsg_Destroy(reply);
    natsMsg_Destroy(message);
  }

  natsConnection* responder = nullptr;
  natsConnection* requester = nullptr;
  natsSubscription* subscription = nullptr;
};

// The shop's far node served over NATS, and a client node whose bridge crosses a
// NatsLink to it.
struct Bridge {
  explicit Bridge(const std::string& url)
      : far(std::make_unique<shop::ShopNodes>()),
        listener(far->gateway, listenerOptions(url)),
        link(std::make_shared<nats::NatsLink>(linkOptions(url))),
        client([this](std::shared_ptr<Context>) { return link; }) {
    listener.start();
  }

  static nats::NatsListenerOptions listenerOptions(const std::string& url) {
    nats::NatsListenerOptions options;
    options.url = url;
    return options;
  }
  static nats::NatsLinkOptions linkOptions(const std::string& url) {
    nats::NatsLinkOptions options;
    options.url = url;
    return options;
  }

  // One typed reservation through the whole bridge; the latency in microseconds.
  double reserve() {
    const auto begin = Clock::now();
    MessagePtr answer = client.client
                            ->deliver(std::make_unique<shop::ReserveItem>("LAMP-01", 2),
                                      Address(shop::kReserveItem))
                            .get();
    const double micros = microsSince(begin);
    if (!dynamic_cast<shop::Reservation&>(*answer).accepted) throw std::runtime_error("refused");
    return micros;
  }

  std::unique_ptr<shop::ShopNodes> far;
  nats::NatsListener listener;
  std::shared_ptr<nats::NatsLink> link;
  shop::ShopNodes client;  // its own serializer; its far side is never used
};

// One client thread with `window` requests in flight through `link`: serializes each
// typed request, sends it, and reads each typed answer as it completes (oldest first).
// Returns requests per second over `count` requests.
double pipelined(nats::NatsLink& link, json::JsonSerializerImpl& serializer, const Address& to,
                 int count, int window) {
  std::deque<Future<MessagePtr>> inFlight;
  auto send = [&] {
    MessagePtr request = std::make_unique<shop::ReserveItem>("LAMP-01", 1);
    std::ostringstream text;
    serializer.serialize(request, text);
    inFlight.push_back(
        link.deliver(std::make_unique<json::OpaqueMessage>(
                         "application/json", common::DataBuffer(std::string_view(text.str()))),
                     Address(to)));
  };
  auto receive = [&] {
    MessagePtr answer = inFlight.front().get();
    inFlight.pop_front();
    auto& opaque = dynamic_cast<json::OpaqueMessage&>(*answer);
    Poco::JSON::Parser parser;
    auto object =
        parser.parse(std::string(opaque.payload.view())).extract<Poco::JSON::Object::Ptr>();
    MessagePtr typed = serializer.deserialize(std::move(object));
    benchmark::DoNotOptimize(typed);
  };
  const auto begin = Clock::now();
  for (int sent = 0; sent < count; ++sent) {
    if (static_cast<int>(inFlight.size()) == window) receive();
    send();
  }
  while (!inFlight.empty()) receive();
  return count / (microsSince(begin) * 1e-6);
}

std::shared_ptr<json::JsonSerializerImpl> shopSerializer() {
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  shop::registerShopTypes(*serializer);
  return serializer;
}

void BM_SyncRoundTrip(benchmark::State& state) {
  Floor floor(server().url());
  Bridge bridge(server().url());
  constexpr int kBatch = 200;
  for (int i = 0; i < 50; ++i) {  // warm-up
    floor.request();
    bridge.reserve();
  }
  std::vector<double> floorLatencies;
  std::vector<double> bridgeLatencies;
  double floorMicros = 0;
  double bridgeMicros = 0;
  for (auto _ : state) {
    auto begin = Clock::now();
    for (int i = 0; i < kBatch; ++i) floorLatencies.push_back(floor.request());
    floorMicros += microsSince(begin);
    begin = Clock::now();
    for (int i = 0; i < kBatch; ++i) bridgeLatencies.push_back(bridge.reserve());
    bridgeMicros += microsSince(begin);
  }
  const double requests = static_cast<double>(kBatch) * static_cast<double>(state.iterations());
  const double floorRate = requests / (floorMicros * 1e-6);
  const double bridgeRate = requests / (bridgeMicros * 1e-6);
  const double floorP50 = median(floorLatencies);
  const double bridgeP50 = median(bridgeLatencies);
  state.counters["floor_rps"] = floorRate;
  state.counters["bridge_rps"] = bridgeRate;
  state.counters["floor_p50_us"] = floorP50;
  state.counters["bridge_p50_us"] = bridgeP50;
  state.counters["requests_ratio"] = bridgeRate / floorRate;
  state.counters["p50_ratio"] = bridgeP50 / floorP50;
  state.SetLabel("goal requests_ratio >= 0.8, p50_ratio <= 1.25; " + loadAverage());
}
BENCHMARK(BM_SyncRoundTrip)->Iterations(25)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_OneThread64InFlight(benchmark::State& state) {
  Floor floor(server().url());
  Bridge bridge(server().url());
  auto serializer = shopSerializer();
  constexpr int kFloorBatch = 200;
  constexpr int kPipelined = 2000;
  pipelined(*bridge.link, *serializer, Address(shop::kReserveItem), 500, 64);  // warm-up
  double floorMicros = 0;
  double pipelinedSeconds = 0;
  for (auto _ : state) {
    const auto begin = Clock::now();
    for (int i = 0; i < kFloorBatch; ++i) floor.request();
    floorMicros += microsSince(begin);
    pipelinedSeconds += kPipelined / pipelined(*bridge.link, *serializer,
                                               Address(shop::kReserveItem), kPipelined, 64);
  }
  const double iterations = static_cast<double>(state.iterations());
  const double floorRate = kFloorBatch * iterations / (floorMicros * 1e-6);
  const double pipelinedRate = kPipelined * iterations / pipelinedSeconds;
  state.counters["floor_sync_rps"] = floorRate;
  state.counters["pipelined_rps"] = pipelinedRate;
  state.counters["requests_ratio"] = pipelinedRate / floorRate;
  state.SetLabel("goal requests_ratio >= 3; " + loadAverage());
}
BENCHMARK(BM_OneThread64InFlight)->Iterations(10)->Unit(benchmark::kMillisecond)->UseRealTime();

// Burns `cpu` of this thread's CPU time, then answers the request's bytes.
class CpuBoundEcho : public ServiceProvider {
 public:
  explicit CpuBoundEcho(std::chrono::microseconds cpu) : cpu(cpu) {}
  void start() override {}
  void stop() override {}
  Future<MessagePtr> deliver(MessagePtr&& message, Address&&, std::shared_ptr<Context>&&) override {
    timespec start{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
    const long until = start.tv_sec * 1000000000L + start.tv_nsec + cpu.count() * 1000L;
    volatile unsigned sink = 0;
    for (;;) {
      for (int i = 0; i < 1000; ++i) sink = sink * 31 + static_cast<unsigned>(i);
      timespec now{};
      ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
      if (now.tv_sec * 1000000000L + now.tv_nsec >= until) break;
    }
    auto& request = dynamic_cast<json::OpaqueMessage&>(*message);
    return makeReadyFuture<MessagePtr>(
        std::make_unique<json::OpaqueMessage>(request.contentType, std::move(request.payload)));
  }

 private:
  const std::chrono::microseconds cpu;
};

// A listener with one worker thread serving the CPU-bound echo under `prefix`.
std::unique_ptr<nats::NatsListener> cpuBoundListener(const std::string& prefix) {
  auto router = std::make_shared<Router>();
  router->bind(Address("bench/work"),
               std::make_shared<CpuBoundEcho>(std::chrono::microseconds(200)));
  router->start();
  nats::NatsListenerOptions options;
  options.url = server().url();
  options.subjectPrefix = prefix;
  options.queueGroup = prefix;
  options.threads = 1;
  auto listener = std::make_unique<nats::NatsListener>(router, options);
  listener->start();
  return listener;
}

// Requests per second through `link` to "bench/work" with 64 in flight.
double cpuBoundRate(nats::NatsLink& link, int count) {
  std::deque<Future<MessagePtr>> inFlight;
  const auto begin = Clock::now();
  for (int sent = 0; sent < count; ++sent) {
    if (inFlight.size() == 64) {
      inFlight.front().get();
      inFlight.pop_front();
    }
    inFlight.push_back(
        link.deliver(std::make_unique<json::OpaqueMessage>(
                         "application/json", common::DataBuffer(std::string_view("{}"))),
                     Address("bench/work")));
  }
  while (!inFlight.empty()) {
    inFlight.front().get();
    inFlight.pop_front();
  }
  return count / (microsSince(begin) * 1e-6);
}

void BM_TwoListenersCpuBound(benchmark::State& state) {
  const auto single = cpuBoundListener("one");
  const auto first = cpuBoundListener("two");
  const auto second = cpuBoundListener("two");
  nats::NatsLinkOptions oneOptions = Bridge::linkOptions(server().url());
  oneOptions.subjectPrefix = "one";
  nats::NatsLinkOptions twoOptions = Bridge::linkOptions(server().url());
  twoOptions.subjectPrefix = "two";
  nats::NatsLink toOne(oneOptions);
  nats::NatsLink toTwo(twoOptions);
  constexpr int kCount = 1000;
  cpuBoundRate(toOne, 200);  // warm-up
  cpuBoundRate(toTwo, 200);
  double oneSeconds = 0;
  double twoSeconds = 0;
  for (auto _ : state) {
    oneSeconds += kCount / cpuBoundRate(toOne, kCount);
    twoSeconds += kCount / cpuBoundRate(toTwo, kCount);
  }
  const double iterations = static_cast<double>(state.iterations());
  const double oneRate = kCount * iterations / oneSeconds;
  const double twoRate = kCount * iterations / twoSeconds;
  state.counters["one_listener_rps"] = oneRate;
  state.counters["two_listeners_rps"] = twoRate;
  state.counters["requests_ratio"] = twoRate / oneRate;
  state.counters["second_share"] =
      static_cast<double>(second->requestsServed()) /
      static_cast<double>(first->requestsServed() + second->requestsServed());
  state.SetLabel("goal requests_ratio >= 1.5 (cores permitting); " + loadAverage());
}
BENCHMARK(BM_TwoListenersCpuBound)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

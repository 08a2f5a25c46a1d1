// What the router costs: one bridged round trip of a "shop/ReserveItem" request and its
// "shop/Reservation" answer through two nodes (client router -> JSON serializer provider
// -> in-process link -> gateway router -> JSON deserializer provider -> services router ->
// service), against the same round trip through the providers alone, wired by hand with
// contexts that call the next provider directly.
//
// BM_RouterOverhead interleaves the two (one of each per iteration, so both see the same
// machine load) and reports the counter "router_over_providers": the routed round trip's
// time over the hand-wired one's. Goal: at most 1.10.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <utility>

#include <connector/json.hpp>

#include "shop/ShopMessages.hpp"
#include "shop/ShopTypes.hpp"

namespace {

using namespace connector;
using MessagePtr = std::unique_ptr<Message>;

// The far service: answers every reservation at once, with no state, so that only the
// path to it differs between the two set-ups.
class ReservationDesk : public ServiceProvider {
 public:
  void start() override {}
  void stop() override {}
  Future<MessagePtr> deliver(MessagePtr&& message, Address&&, std::shared_ptr<Context>&&) override {
    auto& request = static_cast<shop::ReserveItem&>(*message);
    return makeReadyFuture<MessagePtr>(
        std::make_unique<shop::Reservation>("R-000001", request.sku, request.quantity, true));
  }
};

// Hands a message straight to a provider with a fixed next context.
class DirectContext : public Context {
 public:
  DirectContext(std::shared_ptr<ServiceProvider> provider, std::shared_ptr<Context> next)
      : provider(std::move(provider)), next(std::move(next)) {}
  Future<MessagePtr> deliver(MessagePtr&& message, Address&& address) override {
    return provider->deliver(std::move(message), std::move(address),
                             std::shared_ptr<Context>(next));
  }

 private:
  std::shared_ptr<ServiceProvider> provider;
  std::shared_ptr<Context> next;
};

std::shared_ptr<json::JsonSerializerImpl> shopSerializer() {
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  shop::registerShopTypes(*serializer);
  return serializer;
}

// Two nodes and three routers, as in the bridge demo.
struct Routed {
  Routed() {
    const Address at(shop::kReserveItem);
    services->bind(at, std::make_shared<ReservationDesk>());
    gateway->bind(at, std::make_shared<json::JsonDeserializerServiceProvider>(farSerializer),
                  services->context());
    client->bind(at, std::make_shared<json::JsonSerializerServiceProvider>(clientSerializer),
                 std::make_shared<InProcessLink>(gateway));
    services->start();
    gateway->start();
    client->start();
  }
  MessagePtr roundTrip() {
    return client
        ->deliver(std::make_unique<shop::ReserveItem>("LAMP-01", 2), Address(shop::kReserveItem))
        .get();
  }
  std::shared_ptr<json::JsonSerializerImpl> clientSerializer = shopSerializer();
  std::shared_ptr<json::JsonSerializerImpl> farSerializer = shopSerializer();
  std::shared_ptr<Router> services = std::make_shared<Router>();
  std::shared_ptr<Router> gateway = std::make_shared<Router>();
  std::shared_ptr<Router> client = std::make_shared<Router>();
};

// The same providers and service, joined by contexts that call them directly.
struct HandWired {
  HandWired() { deserializer->setRunning(true); }
  MessagePtr roundTrip() {
    return bridge
        ->deliver(std::make_unique<shop::ReserveItem>("LAMP-01", 2), Address(shop::kReserveItem),
                  std::shared_ptr<Context>(link))
        .get();
  }
  std::shared_ptr<json::JsonSerializerImpl> clientSerializer = shopSerializer();
  std::shared_ptr<json::JsonSerializerImpl> farSerializer = shopSerializer();
  std::shared_ptr<json::JsonSerializerServiceProvider> bridge =
      std::make_shared<json::JsonSerializerServiceProvider>(clientSerializer);
  std::shared_ptr<json::JsonDeserializerServiceProvider> deserializer =
      std::make_shared<json::JsonDeserializerServiceProvider>(farSerializer);
  std::shared_ptr<Context> link = std::make_shared<DirectContext>(
      deserializer, std::make_shared<DirectContext>(std::make_shared<ReservationDesk>(), nullptr));
};

void BM_RoundTripThroughRouters(benchmark::State& state) {
  Routed routed;
  for (auto _ : state) {
    MessagePtr answer = routed.roundTrip();
    benchmark::DoNotOptimize(answer.get());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RoundTripThroughRouters);

void BM_RoundTripThroughProvidersAlone(benchmark::State& state) {
  HandWired wired;
  for (auto _ : state) {
    MessagePtr answer = wired.roundTrip();
    benchmark::DoNotOptimize(answer.get());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RoundTripThroughProvidersAlone);

void BM_RouterOverhead(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  Routed routed;
  HandWired wired;
  Clock::duration routedTime{};
  Clock::duration wiredTime{};
  for (auto _ : state) {
    Clock::time_point t0 = Clock::now();
    MessagePtr a = wired.roundTrip();
    Clock::time_point t1 = Clock::now();
    MessagePtr b = routed.roundTrip();
    Clock::time_point t2 = Clock::now();
    benchmark::DoNotOptimize(a.get());
    benchmark::DoNotOptimize(b.get());
    wiredTime += t1 - t0;
    routedTime += t2 - t1;
  }
  const double iterations = static_cast<double>(state.iterations());
  state.counters["routed_ns"] =
      std::chrono::duration<double, std::nano>(routedTime).count() / iterations;
  state.counters["providers_ns"] =
      std::chrono::duration<double, std::nano>(wiredTime).count() / iterations;
  state.counters["router_over_providers"] = std::chrono::duration<double>(routedTime).count() /
                                            std::chrono::duration<double>(wiredTime).count();
}
BENCHMARK(BM_RouterOverhead)->Repetitions(5)->DisplayAggregatesOnly(true);

}  // namespace

BENCHMARK_MAIN();

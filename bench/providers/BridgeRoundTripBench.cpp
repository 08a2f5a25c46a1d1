// One round trip of a small typed request and answer (five members each) through both
// bridge providers in one process, against the work it cannot avoid: Poco stringify and
// parse of the same request and answer objects. Also the throughput of two client
// threads against one (the registry lock must not serialise conversions).
//
// Read the ratio off the counters: BM_BridgeRoundTrip's time over BM_PocoRoundTrip's.
#include <benchmark/benchmark.h>

#include <sstream>

#include <Poco/JSON/Object.h>
#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "support/BridgeWiring.hpp"

namespace {

using namespace connector;
using namespace connector::json;

struct Order : Message {
  std::string sku = "SKU-12345";
  std::int64_t quantity = 3;
  std::string customer = "customer-42";
  bool express = true;
  double price = 19.99;
};

struct Receipt : Message {
  std::string id = "R-000123";
  std::string sku = "SKU-12345";
  std::int64_t quantity = 3;
  bool accepted = true;
  double total = 59.97;
};

Poco::SharedPtr<Poco::JSON::Object> orderObject(const Order& o) {
  Poco::SharedPtr<Poco::JSON::Object> json = new Poco::JSON::Object();
  json->set("sku", o.sku);
  json->set("quantity", o.quantity);
  json->set("customer", o.customer);
  json->set("express", o.express);
  json->set("price", o.price);
  return json;
}

Poco::SharedPtr<Poco::JSON::Object> receiptObject(const Receipt& r) {
  Poco::SharedPtr<Poco::JSON::Object> json = new Poco::JSON::Object();
  json->set("id", r.id);
  json->set("sku", r.sku);
  json->set("quantity", r.quantity);
  json->set("accepted", r.accepted);
  json->set("total", r.total);
  return json;
}

void registerShop(JsonSerializer& s) {
  s.registerType(
      "bench/Order", typeid(Order),
      [](const std::unique_ptr<Message>& m) { return orderObject(static_cast<const Order&>(*m)); },
      [](Poco::SharedPtr<Poco::JSON::Object> j) -> std::unique_ptr<Message> {
        auto o = std::make_unique<Order>();
        o->sku = j->getValue<std::string>("sku");
        o->quantity = j->getValue<std::int64_t>("quantity");
        o->customer = j->getValue<std::string>("customer");
        o->express = j->getValue<bool>("express");
        o->price = j->getValue<double>("price");
        return o;
      });
  s.registerType(
      "bench/Receipt", typeid(Receipt),
      [](const std::unique_ptr<Message>& m) {
        return receiptObject(static_cast<const Receipt&>(*m));
      },
      [](Poco::SharedPtr<Poco::JSON::Object> j) -> std::unique_ptr<Message> {
        auto r = std::make_unique<Receipt>();
        r->id = j->getValue<std::string>("id");
        r->sku = j->getValue<std::string>("sku");
        r->quantity = j->getValue<std::int64_t>("quantity");
        r->accepted = j->getValue<bool>("accepted");
        r->total = j->getValue<double>("total");
        return r;
      });
}

// The bridge, wired once for the whole program: client provider -> gateway -> service.
struct Bridge {
  Bridge() {
    registerShop(*serializer);
    gateway->setRunning(true);
  }
  std::shared_ptr<JsonSerializerImpl> serializer = std::make_shared<JsonSerializerImpl>();
  std::shared_ptr<JsonSerializerServiceProvider> client =
      std::make_shared<JsonSerializerServiceProvider>(serializer);
  std::shared_ptr<JsonDeserializerServiceProvider> gateway =
      std::make_shared<JsonDeserializerServiceProvider>(serializer);
  std::shared_ptr<testing::ProviderContext> link = std::make_shared<testing::ProviderContext>(
      gateway,
      std::make_shared<testing::ServiceContext>([](std::unique_ptr<Message>&&, const Address&) {
        return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<Receipt>());
      }));
};

Bridge& bridge() {
  static Bridge instance;
  return instance;
}

void BM_BridgeRoundTrip(benchmark::State& state) {
  Bridge& b = bridge();
  for (auto _ : state) {
    std::unique_ptr<Message> answer =
        b.client
            ->deliver(std::make_unique<Order>(), Address("shop/Order"),
                      std::shared_ptr<Context>(b.link))
            .get();
    benchmark::DoNotOptimize(answer.get());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BridgeRoundTrip)->Threads(1)->Threads(2)->UseRealTime();

// The floor: stringify and parse the request and the answer objects with Poco alone.
Poco::SharedPtr<Poco::JSON::Object> pocoPass(const Poco::SharedPtr<Poco::JSON::Object>& object) {
  std::ostringstream out;
  object->stringify(out, 0, -1);
  Poco::SharedPtr<Poco::JSON::ParseHandler> handler = new Poco::JSON::ParseHandler(false);
  Poco::JSON::Parser parser(handler);
  return parser.parse(out.str()).extract<Poco::JSON::Object::Ptr>();
}

void BM_PocoRoundTrip(benchmark::State& state) {
  const Order order;
  const Receipt receipt;
  for (auto _ : state) {
    auto request = orderObject(order);
    request->set("type", std::string("bench/Order"));
    auto parsedRequest = pocoPass(request);
    auto answer = receiptObject(receipt);
    answer->set("type", std::string("bench/Receipt"));
    auto parsedAnswer = pocoPass(answer);
    benchmark::DoNotOptimize(parsedRequest.get());
    benchmark::DoNotOptimize(parsedAnswer.get());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PocoRoundTrip)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

// Declared message types (json::MessageType) against converters written by hand with Poco
// for the same types, both directions, in the same run: the shop's "shop/ReserveItem" and
// "shop/Reservation", and the nested Order (a vector of structs, an optional, an enum, a
// map). Each iteration runs a batch of each side alternately on the same input:
//   - Write/<type>: message to Poco::JSON::Object (the serializer converter);
//   - Read/<type>: the object Poco's parser made of the wire text, back to a message
//     (the deserializer converter), the declared side checking every reading rule.
// Counters: both sides in ns per conversion and time_ratio = declared / hand-written, with
// its median over iterations (goal <= 1.05).
#include <benchmark/benchmark.h>

#include <memory>
#include <sstream>
#include <string>

#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "HandWrittenConverters.hpp"
#include "foundation/PairedTiming.hpp"
#include "shop/ShopMessages.hpp"
#include "shop/ShopTypes.hpp"

namespace {

using connector::bench::PairedTiming;
using connector::json::DeserializerFn;
using connector::json::SerializerFn;
using handwritten::MessagePtr;
using handwritten::ObjectPtr;

constexpr int kBatch = 64;
constexpr const char* kGoal = "goal time_ratio <= 1.05";

// The nested Order declared once (the same class as the hand-written side uses).
connector::json::MessageType<handwritten::Order> declaredOrder() {
  using handwritten::Item;
  using handwritten::Order;
  using handwritten::Priority;
  const auto item =
      connector::json::Struct<Item>().field("sku", &Item::sku).field("quantity", &Item::quantity);
  const auto priority = connector::json::Enum<Priority>(
      {{Priority::Low, "low"}, {Priority::Normal, "normal"}, {Priority::High, "high"}});
  connector::json::MessageType<Order> order("shop/Order");
  order.field("id", &Order::id)
      .field("items", &Order::items, item)
      .field("note", &Order::note)
      .field("priority", &Order::priority, priority)
      .field("weights", &Order::weights);
  return order;
}

MessagePtr sampleOrder() {
  auto order = std::make_unique<handwritten::Order>();
  order->id = "ORD-2024-000117";
  order->items = {{"LAMP-01", 2}, {"BULB-E27-WARM", 12}, {"SHADE-LINEN-40", 1}};
  order->note = "leave at the door";
  order->priority = handwritten::Priority::High;
  order->weights = {{"LAMP-01", 1.25}, {"BULB-E27-WARM", 0.05}, {"SHADE-LINEN-40", 0.4}};
  return order;
}

// The object Poco's parser makes of the message's wire text (what a deserializer gets).
ObjectPtr parsedWireObject(const SerializerFn& toJson, const MessagePtr& message) {
  std::ostringstream out;
  toJson(message)->stringify(out, 0, -1);
  Poco::JSON::Parser parser(new Poco::JSON::ParseHandler(false));
  return parser.parse(out.str()).extract<ObjectPtr>();
}

void Write(benchmark::State& state, SerializerFn declared, SerializerFn byHand,
           MessagePtr (*make)()) {
  const MessagePtr message = make();
  PairedTiming timing;
  bool declaredFirst = true;
  for (auto _ : state) {
    auto runDeclared = [&] {
      timing.connector([&] {
        for (int i = 0; i < kBatch; ++i) benchmark::DoNotOptimize(declared(message).get());
      });
    };
    auto runByHand = [&] {
      timing.baseline([&] {
        for (int i = 0; i < kBatch; ++i) benchmark::DoNotOptimize(byHand(message).get());
      });
    };
    declaredFirst ? (runDeclared(), runByHand()) : (runByHand(), runDeclared());
    declaredFirst = !declaredFirst;
  }
  timing.reportTimeRatio(state, kBatch, kGoal);
}

void Read(benchmark::State& state, SerializerFn toJson, DeserializerFn declared,
          DeserializerFn byHand, MessagePtr (*make)()) {
  const ObjectPtr object = parsedWireObject(toJson, make());
  PairedTiming timing;
  bool declaredFirst = true;
  for (auto _ : state) {
    auto runDeclared = [&] {
      timing.connector([&] {
        for (int i = 0; i < kBatch; ++i) benchmark::DoNotOptimize(declared(object).get());
      });
    };
    auto runByHand = [&] {
      timing.baseline([&] {
        for (int i = 0; i < kBatch; ++i) benchmark::DoNotOptimize(byHand(object).get());
      });
    };
    declaredFirst ? (runDeclared(), runByHand()) : (runByHand(), runDeclared());
    declaredFirst = !declaredFirst;
  }
  timing.reportTimeRatio(state, kBatch, kGoal);
}

MessagePtr sampleReserveItem() { return std::make_unique<shop::ReserveItem>("LAMP-01", 2); }
MessagePtr sampleReservation() {
  return std::make_unique<shop::Reservation>("R-000001", "LAMP-01", 2, true);
}

void WriteReserveItem(benchmark::State& state) {
  Write(state, shop::shopTypes().reserveItem.serializer(), handwritten::reserveItemToJson,
        sampleReserveItem);
}
void ReadReserveItem(benchmark::State& state) {
  Read(state, handwritten::reserveItemToJson, shop::shopTypes().reserveItem.deserializer(),
       handwritten::reserveItemFromJson, sampleReserveItem);
}
void WriteReservation(benchmark::State& state) {
  Write(state, shop::shopTypes().reservation.serializer(), handwritten::reservationToJson,
        sampleReservation);
}
void ReadReservation(benchmark::State& state) {
  Read(state, handwritten::reservationToJson, shop::shopTypes().reservation.deserializer(),
       handwritten::reservationFromJson, sampleReservation);
}
void WriteOrder(benchmark::State& state) {
  Write(state, declaredOrder().serializer(), handwritten::orderToJson, sampleOrder);
}
void ReadOrder(benchmark::State& state) {
  Read(state, handwritten::orderToJson, declaredOrder().deserializer(), handwritten::orderFromJson,
       sampleOrder);
}

}  // namespace

BENCHMARK(WriteReserveItem)->Name("Write/shop_ReserveItem");
BENCHMARK(ReadReserveItem)->Name("Read/shop_ReserveItem");
BENCHMARK(WriteReservation)->Name("Write/shop_Reservation");
BENCHMARK(ReadReservation)->Name("Read/shop_Reservation");
BENCHMARK(WriteOrder)->Name("Write/nested_Order");
BENCHMARK(ReadOrder)->Name("Read/nested_Order");

BENCHMARK_MAIN();

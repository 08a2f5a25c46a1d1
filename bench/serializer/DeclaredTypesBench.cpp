// Declared message types (json::MessageType) against converters written by hand with Poco
// for the same types, both directions, in the same run: the shop's "shop/ReserveItem" and
// "shop/Reservation", the nested Order (a vector of structs, an optional, an enum, a
// map), and a Shipment of the newer member kinds (a quoted id, a time point, a duration,
// bytes, a set, an array, an unordered map of quoted integers, a tagged union; its
// hand-written side uses Poco's date and base64 classes, see HandWrittenShipment.hpp). Each
// iteration runs a batch of each side alternately on the same input:
//   - Write/<type>: message to Poco::JSON::Object (the serializer converter);
//   - Read/<type>: the object Poco's parser made of the wire text, back to a message
//     (the deserializer converter), the declared side checking every reading rule.
// Counters: both sides in ns per conversion and time_ratio = declared / hand-written, with
// its median over iterations (goal <= 1.05).
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>

#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "HandWrittenConverters.hpp"
#include "HandWrittenShipment.hpp"
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

// The shipment of the newer member kinds, declared once (the same class as the
// hand-written side uses).
connector::json::MessageType<handwritten::Shipment> declaredShipment() {
  using handwritten::Circle;
  using handwritten::Shape;
  using handwritten::Shipment;
  using handwritten::Square;
  namespace json = connector::json;
  const auto shape =
      json::Variant<Shape>("kind")
          .alternative("circle", json::Struct<Circle>().field("radius", &Circle::radius))
          .alternative("square", json::Struct<Square>().field("side", &Square::side));
  json::MessageType<Shipment> shipment("bench/Shipment");
  shipment.field("id", &Shipment::id, json::Field().quoted())
      .field("shippedAt", &Shipment::shippedAt)
      .field("timeout", &Shipment::timeout)
      .field("payload", &Shipment::payload)
      .field("tags", &Shipment::tags)
      .field("position", &Shipment::position)
      .field("counters", &Shipment::counters, json::Field().quoted())
      .field("shape", &Shipment::shape, shape);
  return shipment;
}

MessagePtr sampleShipment() {
  using namespace std::chrono;
  auto shipment = std::make_unique<handwritten::Shipment>();
  shipment->id = 9007199254740993U;
  shipment->shippedAt = system_clock::time_point(seconds(1795461378) + milliseconds(250));
  shipment->timeout = milliseconds(1500);
  for (int i = 0; i < 48; ++i) shipment->payload.push_back(static_cast<std::byte>(i * 5));
  shipment->tags = {"fragile", "urgent", "insured"};
  shipment->position = {1.5, -2.25, 0};
  shipment->counters = {{"scans", 9007199254740993}, {"drops", -1}, {"stops", 4}};
  shipment->shape = handwritten::Square{1.5};
  return shipment;
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

void WriteShipment(benchmark::State& state) {
  Write(state, declaredShipment().serializer(), handwritten::shipmentToJson, sampleShipment);
}
void ReadShipment(benchmark::State& state) {
  Read(state, declaredShipment().serializer(), declaredShipment().deserializer(),
       handwritten::shipmentFromJson, sampleShipment);
}

}  // namespace

BENCHMARK(WriteReserveItem)->Name("Write/shop_ReserveItem");
BENCHMARK(ReadReserveItem)->Name("Read/shop_ReserveItem");
BENCHMARK(WriteReservation)->Name("Write/shop_Reservation");
BENCHMARK(ReadReservation)->Name("Read/shop_Reservation");
BENCHMARK(WriteOrder)->Name("Write/nested_Order");
BENCHMARK(ReadOrder)->Name("Read/nested_Order");
BENCHMARK(WriteShipment)->Name("Write/newer_kinds_Shipment");
BENCHMARK(ReadShipment)->Name("Read/newer_kinds_Shipment");

BENCHMARK_MAIN();

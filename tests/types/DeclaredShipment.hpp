// A declared message type with every member option and every member kind beyond the
// basic ones at once: quoted integers under an alias, bounds and a default, lengths and a
// pattern, item counts, time points and durations (alone, optional, in a map), bytes,
// sets (alone and in a vector), a fixed-size array, an unordered map, a tagged union
// (alone, in a vector, an optional and a map) and kept unknown members (of the message
// and of a nested struct). The declared-types tests, the direct codec's differential
// tests, its fuzz target and the transports' end-to-end tests share it.
//
//   const ShipmentTypes types;                  // "test/Shipment"
//   types.shipment.registerWith(*serializer);
//   auto message = std::make_unique<Shipment>(sampleShipment());
//
// Thread-safety: the descriptions are built once per ShipmentTypes and then only read.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include <connector/json.hpp>

namespace connector::typestest {

struct Circle {
  double radius = 0;
};

struct Square {
  double side = 0;
  std::optional<std::string> label;
};

using Shape = std::variant<Circle, Square>;

struct Parcel {
  std::string sku;
  std::int32_t quantity = 1;
  json::UnknownMembers unknown;
};

struct Shipment : connector::Message {
  std::uint64_t id = 0;
  std::int32_t quantity = 1;
  std::string sku;
  std::vector<Parcel> parcels;
  std::chrono::system_clock::time_point shippedAt;
  std::optional<std::chrono::system_clock::time_point> deliveredAt;
  std::chrono::milliseconds timeout{0};
  std::map<std::string, std::chrono::nanoseconds> legs;
  std::vector<std::byte> payload;
  std::set<std::string> tags;
  std::vector<std::set<std::int64_t>> groups;
  std::array<double, 3> position{};
  std::unordered_map<std::string, std::int64_t> counters;
  float ratio = 0.5F;
  Shape shape;
  std::vector<Shape> extraShapes;
  std::optional<Shape> maybeShape;
  std::map<std::string, Shape> shapesByName;
  json::UnknownMembers unknown;
};

struct ShipmentTypes {
  ShipmentTypes() {
    shipment.field("id", &Shipment::id, json::Field().quoted().alias("shipmentId"))
        .field("quantity", &Shipment::quantity, json::Field().minimum(1).maximum(1000).defaulted())
        .field("sku", &Shipment::sku,
               json::Field().minLength(3).maxLength(20).pattern("^[A-Z]+-[0-9]+$"))
        .field("parcels", &Shipment::parcels, parcel, json::Field().minItems(1).maxItems(100))
        .field("shippedAt", &Shipment::shippedAt)
        .field("deliveredAt", &Shipment::deliveredAt)
        .field("timeout", &Shipment::timeout)
        .field("legs", &Shipment::legs)
        .field("payload", &Shipment::payload)
        .field("tags", &Shipment::tags)
        .field("groups", &Shipment::groups)
        .field("position", &Shipment::position)
        .field("counters", &Shipment::counters, json::Field().quoted())
        .field("ratio", &Shipment::ratio, json::Field().minimum(0).maximum(1.0).defaulted())
        .field("shape", &Shipment::shape, shape)
        .field("extraShapes", &Shipment::extraShapes, shape)
        .field("maybeShape", &Shipment::maybeShape, shape)
        .field("shapesByName", &Shipment::shapesByName, shape)
        .keepUnknownMembers(&Shipment::unknown);
  }

  json::Struct<Parcel> parcel = json::Struct<Parcel>()
                                    .field("sku", &Parcel::sku)
                                    .field("quantity", &Parcel::quantity, json::Field().defaulted())
                                    .keepUnknownMembers(&Parcel::unknown);
  json::Variant<Shape> shape =
      json::Variant<Shape>("kind")
          .alternative("circle", json::Struct<Circle>().field("radius", &Circle::radius))
          .alternative(
              "square",
              json::Struct<Square>().field("side", &Square::side).field("label", &Square::label));
  json::MessageType<Shipment> shipment{"test/Shipment"};
};

// A shipment with every member set.
inline Shipment sampleShipment() {
  using namespace std::chrono;
  Shipment s;
  s.id = 9007199254740993U;
  s.quantity = 12;
  s.sku = "LAMP-01";
  s.parcels = {{"LAMP-01", 2, {{"colour", "\"red\""}}}, {"BULB-02", 10, {}}};
  s.shippedAt = system_clock::time_point(seconds(1795547778) + milliseconds(250));
  s.deliveredAt = system_clock::time_point(seconds(1795634178));
  s.timeout = milliseconds(1500);
  s.legs = {{"air", hours(7) + nanoseconds(1)}, {"road", -microseconds(1)}};
  s.payload = {std::byte{0}, std::byte{1}, std::byte{0xfe}, std::byte{0xff}};
  s.tags = {"fragile", "urgent"};
  s.groups = {{3, 1, 2}, {}};
  s.position = {1.5, -2.25, 0};
  s.counters = {{"scans", 9007199254740993}, {"drops", -1}};
  s.ratio = 0.25F;
  s.shape = Circle{2};
  s.extraShapes = {Square{1.5, "box"}, Circle{0.5}};
  s.maybeShape = Square{3, std::nullopt};
  s.shapesByName = {{"lid", Circle{1}}};
  s.unknown = {{"carrier", "{\"name\":\"Post\",\"rank\":1}"}, {"zone", "7"}};
  return s;
}

}  // namespace connector::typestest

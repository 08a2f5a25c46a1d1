// A message with every member option and newer member kind at once: its exact text, the
// same text from the direct codec and from the converters, and the same message back
// from both reading paths (every member, through the text it writes again).
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "support/DirectDifferential.hpp"
#include "types/DeclaredShipment.hpp"
#include "types/ReadBothWays.hpp"

namespace connector::typestest {
namespace {

constexpr const char* kSampleText =
    R"({"id":"9007199254740993","quantity":12,"sku":"LAMP-01","parcels":[{"sku":"LAMP-01",)"
    R"("quantity":2,"colour":"red"},{"sku":"BULB-02","quantity":10}],)"
    R"("shippedAt":"2026-11-24T19:16:18.250Z","deliveredAt":"2026-11-25T19:16:18Z",)"
    R"("timeout":"1.500s","legs":{"air":"25200.000000001s","road":"-0.000001s"},)"
    R"("payload":"AAH+/w==","tags":["fragile","urgent"],"groups":[[1,2,3],[]],)"
    R"("position":[1.5,-2.25,0],"counters":{"drops":"-1","scans":"9007199254740993"},)"
    R"("ratio":0.25,"shape":{"kind":"circle","radius":2},"extraShapes":[{"kind":"square",)"
    R"("side":1.5,"label":"box"},{"kind":"circle","radius":0.5}],"maybeShape":{"kind":)"
    R"("square","side":3},"shapesByName":{"lid":{"kind":"circle","radius":1}},)"
    R"("carrier":{"name":"Post","rank":1},"zone":7,"type":"test/Shipment"})";

TEST(ShipmentRoundTrip, EveryOptionAndKindIsWrittenAsDeclared) {
  const ShipmentTypes types;
  ReadBothWays both(types.shipment);
  std::unique_ptr<Message> message = std::make_unique<Shipment>(sampleShipment());
  EXPECT_EQ(both.write(message), kSampleText);
}

TEST(ShipmentRoundTrip, TheDirectCodecAndTheConvertersWriteTheSameBytes) {
  const ShipmentTypes types;
  testing::DirectDifferential paths;
  paths.declare(types.shipment);
  std::unique_ptr<Message> message = std::make_unique<Shipment>(sampleShipment());
  EXPECT_EQ(paths.compareWrite(message), "");
}

TEST(ShipmentRoundTrip, BothReadingPathsGiveBackTheSameMessage) {
  const ShipmentTypes types;
  ReadBothWays both(types.shipment);
  testing::DirectDifferential paths;
  paths.declare(types.shipment);
  EXPECT_EQ(paths.compareRead(nullptr, testing::oneShot(kSampleText)), "");

  const auto streamed = both.read(kSampleText);
  Poco::JSON::Parser parser;
  Poco::JSON::Object::Ptr object = parser.parse(kSampleText).extract<Poco::JSON::Object::Ptr>();
  const auto fromObject = both.serializer->deserialize(std::move(object));
  EXPECT_EQ(both.write(streamed), kSampleText);
  EXPECT_EQ(both.write(fromObject), kSampleText);
  const auto& read = dynamic_cast<const Shipment&>(*streamed);
  const Shipment sample = sampleShipment();
  EXPECT_EQ(read.id, sample.id);
  EXPECT_EQ(read.shippedAt, sample.shippedAt);
  EXPECT_EQ(read.legs, sample.legs);
  EXPECT_EQ(read.payload, sample.payload);
  EXPECT_EQ(read.groups, sample.groups);
  EXPECT_EQ(read.counters, sample.counters);
  EXPECT_EQ(read.unknown, sample.unknown);
  EXPECT_EQ(read.parcels.at(0).unknown, sample.parcels.at(0).unknown);
  EXPECT_EQ(std::get<Square>(read.extraShapes.at(0)).label, "box");
}

TEST(ShipmentRoundTrip, AbsentDefaultedMembersTakeTheirDefaults) {
  const ShipmentTypes types;
  ReadBothWays both(types.shipment);
  const auto message = both.read(
      R"({"type":"test/Shipment","shipmentId":"5","sku":"AB-1","parcels":[{"sku":"s"}],)"
      R"("shippedAt":"2026-11-23T19:16:18Z","timeout":"0s","legs":{},"payload":"","tags":[],)"
      R"("groups":[],"position":[0,0,0],"counters":{},"shape":{"kind":"circle","radius":1},)"
      R"("extraShapes":[],"shapesByName":{}})");
  const auto& read = dynamic_cast<const Shipment&>(*message);
  EXPECT_EQ(read.id, 5U);
  EXPECT_EQ(read.quantity, 1);
  EXPECT_EQ(read.ratio, 0.5F);
  EXPECT_EQ(read.parcels.at(0).quantity, 1);
  EXPECT_TRUE(read.unknown.empty());
}

}  // namespace
}  // namespace connector::typestest

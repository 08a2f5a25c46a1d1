// The baseline of the declared-types bench for the newer member kinds: a shipment (a quoted
// 64-bit id, a time point, a duration, bytes, a set, a fixed-size array, an unordered map
// of quoted integers, a tagged union) with converters written by hand with Poco, doing
// what the declared ones do: RFC 3339 times through Poco's DateTimeFormatter and
// DateTimeParser, base64 through Poco's Base64Encoder and Base64Decoder, a repeated set
// item and an array of another length refused, the union's tag looked up.
//
//   serializer->registerType("bench/Shipment", typeid(handwritten::Shipment),
//                            handwritten::shipmentToJson, handwritten::shipmentFromJson);
//
// Thread-safety: stateless functions.
#pragma once

#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include <Poco/Base64Decoder.h>
#include <Poco/Base64Encoder.h>
#include <Poco/DateTime.h>
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/DateTimeParser.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/Timestamp.h>

#include <connector/json.hpp>

#include "HandWrittenConverters.hpp"

namespace handwritten {

struct Circle {
  double radius = 0;
};
struct Square {
  double side = 0;
};
using Shape = std::variant<Circle, Square>;

struct Shipment : connector::Message {
  std::uint64_t id = 0;
  std::chrono::system_clock::time_point shippedAt;
  std::chrono::milliseconds timeout{0};
  std::vector<std::byte> payload;
  std::set<std::string> tags;
  std::array<double, 3> position{};
  std::unordered_map<std::string, std::int64_t> counters;
  Shape shape;
};

inline std::string timeText(std::chrono::system_clock::time_point at) {
  const auto micros =
      std::chrono::duration_cast<std::chrono::microseconds>(at.time_since_epoch()).count();
  return Poco::DateTimeFormatter::format(Poco::Timestamp(micros),
                                         Poco::DateTimeFormat::ISO8601_FRAC_FORMAT);
}

inline std::chrono::system_clock::time_point timeOf(const std::string& text) {
  Poco::DateTime parsed;
  int zone = 0;
  if (!Poco::DateTimeParser::tryParse(Poco::DateTimeFormat::ISO8601_FRAC_FORMAT, text, parsed,
                                      zone)) {
    throw std::invalid_argument("bench/Shipment: '" + text + "' is not a time");
  }
  parsed.makeUTC(zone);
  return std::chrono::system_clock::time_point(
      std::chrono::microseconds(parsed.timestamp().epochMicroseconds()));
}

inline std::string durationText(std::chrono::milliseconds value) {
  const long long ms = value.count();
  char text[48];
  std::snprintf(text, sizeof text, "%s%lld.%03llds", ms < 0 ? "-" : "", (ms < 0 ? -ms : ms) / 1000,
                (ms < 0 ? -ms : ms) % 1000);
  return text;
}

inline std::chrono::milliseconds durationOf(const std::string& text) {
  if (text.empty() || text.back() != 's') {
    throw std::invalid_argument("bench/Shipment: '" + text + "' is not a duration");
  }
  return std::chrono::milliseconds(std::llround(std::stod(text.substr(0, text.size() - 1)) * 1000));
}

inline ObjectPtr shipmentToJson(const MessagePtr& message) {
  const auto& shipment = dynamic_cast<const Shipment&>(*message);
  ObjectPtr object = newObject();
  object->set("id", std::to_string(shipment.id));
  object->set("shippedAt", timeText(shipment.shippedAt));
  object->set("timeout", durationText(shipment.timeout));
  std::ostringstream base64;
  {
    Poco::Base64Encoder encoder(base64);
    encoder.rdbuf()->setLineLength(0);
    encoder.write(reinterpret_cast<const char*>(shipment.payload.data()),
                  static_cast<std::streamsize>(shipment.payload.size()));
  }
  object->set("payload", base64.str());
  Poco::JSON::Array::Ptr tags = new Poco::JSON::Array;
  for (const auto& tag : shipment.tags) tags->add(tag);
  object->set("tags", tags);
  Poco::JSON::Array::Ptr position = new Poco::JSON::Array;
  for (const double p : shipment.position) position->add(p);
  object->set("position", position);
  Poco::JSON::Object::Ptr counters = new Poco::JSON::Object;
  for (const auto& [key, count] : shipment.counters) counters->set(key, std::to_string(count));
  object->set("counters", counters);
  ObjectPtr shape = newObject();
  if (const auto* circle = std::get_if<Circle>(&shipment.shape)) {
    shape->set("kind", std::string("circle"));
    shape->set("radius", circle->radius);
  } else {
    shape->set("kind", std::string("square"));
    shape->set("side", std::get<Square>(shipment.shape).side);
  }
  object->set("shape", shape);
  return object;
}

inline MessagePtr shipmentFromJson(ObjectPtr object) {
  const char* type = "bench/Shipment";
  auto shipment = std::make_unique<Shipment>();
  shipment->id = std::stoull(member<std::string>(object, type, "id"));
  shipment->shippedAt = timeOf(member<std::string>(object, type, "shippedAt"));
  shipment->timeout = durationOf(member<std::string>(object, type, "timeout"));
  std::istringstream base64(member<std::string>(object, type, "payload"));
  Poco::Base64Decoder decoder(base64);
  for (int c = decoder.get(); c != std::char_traits<char>::eof(); c = decoder.get()) {
    shipment->payload.push_back(static_cast<std::byte>(c));
  }
  Poco::JSON::Array::Ptr tags = object->getArray("tags");
  if (tags.isNull()) throw std::invalid_argument("bench/Shipment needs the member 'tags'");
  for (const auto& tag : *tags) {
    if (!shipment->tags.insert(tag.extract<std::string>()).second) {
      throw std::invalid_argument("bench/Shipment: a tag is repeated");
    }
  }
  Poco::JSON::Array::Ptr position = object->getArray("position");
  if (position.isNull() || position->size() != 3) {
    throw std::invalid_argument("bench/Shipment needs 3 numbers in 'position'");
  }
  for (unsigned i = 0; i < 3; ++i) shipment->position[i] = position->getElement<double>(i);
  ObjectPtr counters = object->getObject("counters");
  if (counters.isNull()) throw std::invalid_argument("bench/Shipment needs the member 'counters'");
  for (const auto& [key, count] : *counters) {
    shipment->counters[key] = std::stoll(count.extract<std::string>());
  }
  ObjectPtr shape = object->getObject("shape");
  if (shape.isNull()) throw std::invalid_argument("bench/Shipment needs the member 'shape'");
  const std::string kind = member<std::string>(shape, type, "kind");
  if (kind == "circle") {
    shipment->shape = Circle{member<double>(shape, type, "radius")};
  } else if (kind == "square") {
    shipment->shape = Square{member<double>(shape, type, "side")};
  } else {
    throw std::invalid_argument("bench/Shipment: unknown shape '" + kind + "'");
  }
  return shipment;
}

}  // namespace handwritten

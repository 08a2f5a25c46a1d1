// DirectDifferential: two serializers with the same declared message types, one that
// reads and writes them through the direct codec (declared with MessageType::
// registerWith) and one through the converters alone (the same declarations registered
// with registerType(name, typeid(T), serializer(), deserializer())), and the comparison
// of everything both make of the same input: the message read (every declared member,
// floating-point values bit for bit), or the exception's type and text; the bytes
// written; and the log records of the module logger.
//
//   DirectDifferential both;
//   both.declare(types.order);
//   std::string difference = both.compareRead(document, nullptr, oneShot(document));
//   EXPECT_EQ(difference, "");   // "" when both agree, else what differs
//
// Used by the tests and by the differential fuzz target (no GoogleTest in here).
//
// Thread-safety: one thread at a time (the log capture is process-wide).
#pragma once

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <connector/json.hpp>

#include "support/LogCapture.hpp"

namespace connector::testing {

using BytePublisherFactory = std::function<json::BytePublisher()>;

// "<exception class>: <what()>" of the exception in flight.
inline std::string currentFailure() {
  try {
    throw;
  } catch (const std::exception& e) {
    return std::string(typeid(e).name()) + ": " + e.what();
  } catch (...) {
    return "a non-standard exception";
  }
}

// An exact text of a JSON value as a converter built it: integers with their holder's
// width, floating point values as hexadecimal (so -0.0, 0.0 and every last bit differ),
// strings byte by byte.
inline std::string exactText(const Poco::Dynamic::Var& value) {
  if (value.isEmpty()) return "null";
  const std::type_info& type = value.type();
  char buffer[64];
  if (type == typeid(double)) {
    std::snprintf(buffer, sizeof buffer, "d%a", value.extract<double>());
    return buffer;
  }
  if (type == typeid(float)) {
    std::snprintf(buffer, sizeof buffer, "f%a", static_cast<double>(value.extract<float>()));
    return buffer;
  }
  if (type == typeid(bool)) return value.extract<bool>() ? "true" : "false";
  if (type == typeid(std::string)) {
    std::string text = "\"";
    for (const unsigned char c : value.extract<std::string>()) {
      if (c < 0x20 || c >= 0x7f || c == '"' || c == '\\') {
        std::snprintf(buffer, sizeof buffer, "\\x%02x", c);
        text += buffer;
      } else {
        text += static_cast<char>(c);
      }
    }
    return text + "\"";
  }
  if (type == typeid(Poco::JSON::Object::Ptr)) {
    const auto& object = value.extract<Poco::JSON::Object::Ptr>();
    if (object.isNull()) return "null-object";
    std::string text = "{";
    for (const auto& [key, member] : *object) {
      text += exactText(Poco::Dynamic::Var(key)) + ":" + exactText(member) + ",";
    }
    return text + "}";
  }
  if (type == typeid(Poco::JSON::Array::Ptr)) {
    const auto& array = value.extract<Poco::JSON::Array::Ptr>();
    if (array.isNull()) return "null-array";
    std::string text = "[";
    for (const auto& item : *array) text += exactText(item) + ",";
    return text + "]";
  }
  if (value.isInteger()) {
    return std::string(type.name()) + ":" + value.convert<std::string>();
  }
  return std::string("other ") + type.name() + ":" + value.convert<std::string>();
}

// Where two texts part, with some context from each: "at <offset>: ...<a>... / ...<b>...".
inline std::string whereTheyDiffer(const std::string& a, const std::string& b) {
  std::size_t at = 0;
  while (at < a.size() && at < b.size() && a[at] == b[at]) ++at;
  const std::size_t from = at > 60 ? at - 60 : 0;
  return "at " + std::to_string(at) + ": ..." + a.substr(from, 140) + "... / ..." +
         b.substr(from, 140) + "...";
}

// What a read ended in: the message or the failure, and the log records written.
struct ReadOutcome {
  std::unique_ptr<Message> message;
  std::string failure;
  std::vector<std::string> logs;
};

// What a write ended in: the bytes or the failure, and the log records written.
struct WriteOutcome {
  std::string text;
  std::string failure;
  std::vector<std::string> logs;
};

class DirectDifferential {
 public:
  DirectDifferential()
      : direct(std::make_shared<json::JsonSerializerImpl>()),
        reference(std::make_shared<json::JsonSerializerImpl>()) {}

  template <typename T>
  void declare(const json::MessageType<T>& type) {
    type.registerWith(*direct);
    reference->registerType(type.name(), typeid(T), type.serializer(), type.deserializer());
  }

  // Every declared member of message, exactly, as the reference converters see it (or
  // why they cannot write it).
  std::string describe(const std::unique_ptr<Message>& message) const {
    if (!message) return "no message";
    std::string text = std::string(typeid(*message).name()) + " ";
    try {
      return text + exactText(Poco::Dynamic::Var(reference->serializeToJsonObject(message)));
    } catch (...) {
      return text + "unwritable: " + currentFailure();
    }
  }

  // Reads through the streamed deserialize (by "type" when name is null), with the
  // module's log records captured.
  static ReadOutcome read(json::JsonSerializerImpl& serializer, const std::string* name,
                          json::BytePublisher publisher) {
    ReadOutcome outcome;
    LogCapture capture;
    ModuleLogSwitch logging(kModuleErrorBit);
    try {
      Future<std::unique_ptr<Message>> future =
          name != nullptr ? serializer.deserialize(*name, std::move(publisher))
                          : serializer.deserialize(std::move(publisher));
      outcome.message = future.get();
    } catch (...) {
      outcome.failure = currentFailure();
    }
    for (const auto& record : capture.records()) outcome.logs.push_back(record.message);
    return outcome;
  }

  // "" when both serializers read the same from a publisher each (made by publish), else
  // what differs.
  std::string compareRead(const std::string* name, const BytePublisherFactory& publish) const {
    const ReadOutcome fast = read(*direct, name, publish());
    const ReadOutcome slow = read(*reference, name, publish());
    std::string difference;
    if (fast.failure != slow.failure) {
      difference += "failure: direct '" + fast.failure + "', converters '" + slow.failure + "'. ";
    }
    if (!fast.failure.empty() || !slow.failure.empty()) {
      if (fast.message || slow.message) difference += "a message beside a failure. ";
    } else {
      const std::string a = describe(fast.message);
      const std::string b = describe(slow.message);
      if (a != b) difference += "message (direct / converters) " + whereTheyDiffer(a, b) + ". ";
    }
    if (fast.logs != slow.logs) difference += "log records differ. ";
    return difference;
  }

  // One of the four serializing operations.
  enum class Write { Serialize, SerializeToStream, SerializeValue, SerializeValueToStream };

  static WriteOutcome write(json::JsonSerializerImpl& serializer,
                            const std::unique_ptr<Message>& message, Write operation) {
    WriteOutcome outcome;
    LogCapture capture;
    ModuleLogSwitch logging(kModuleErrorBit);
    try {
      std::ostringstream out;
      switch (operation) {
        case Write::SerializeToStream:
          serializer.serialize(message, out);
          outcome.text = out.str();
          break;
        case Write::SerializeValueToStream:
          serializer.serializeValue(message, out);
          outcome.text = out.str();
          break;
        case Write::Serialize:
        case Write::SerializeValue: {
          json::BytePublisher bytes = operation == Write::Serialize
                                          ? serializer.serialize(message)
                                          : serializer.serializeValue(message);
          outcome.text =
              std::string(json::reduceSerializedPublisherToDataBuffer(bytes).get().view());
          break;
        }
      }
    } catch (...) {
      outcome.failure = currentFailure();
    }
    for (const auto& record : capture.records()) outcome.logs.push_back(record.message);
    return outcome;
  }

  // "" when both serializers write the same bytes (or fail the same way) in each of the
  // four operations, else what differs.
  std::string compareWrite(const std::unique_ptr<Message>& message) const {
    std::string difference;
    for (const Write operation : {Write::Serialize, Write::SerializeToStream, Write::SerializeValue,
                                  Write::SerializeValueToStream}) {
      const WriteOutcome fast = write(*direct, message, operation);
      const WriteOutcome slow = write(*reference, message, operation);
      const std::string which = std::to_string(static_cast<int>(operation));
      if (fast.text != slow.text) {
        difference += "write " + which + " (direct / converters) " +
                      whereTheyDiffer(fast.text, slow.text) + ". ";
      }
      if (fast.failure != slow.failure) {
        difference += "write " + which + " failure: direct '" + fast.failure + "', converters '" +
                      slow.failure + "'. ";
      }
      if (fast.logs != slow.logs) difference += "write " + which + ": log records differ. ";
    }
    return difference;
  }

  std::shared_ptr<json::JsonSerializerImpl> direct;
  std::shared_ptr<json::JsonSerializerImpl> reference;
};

// A factory of one-shot publishers of text; with `slack`, the buffer has that many bytes
// of capacity after the text (the direct reader reads in place from 64 bytes on).
inline BytePublisherFactory oneShot(std::string text, std::size_t slack = 0) {
  return [text = std::move(text), slack]() -> json::BytePublisher {
    common::DataBuffer bytes(text.data(), text.size());
    if (slack > 0) bytes.reserve(text.size() + slack);
    return std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
        std::move(bytes));
  };
}

}  // namespace connector::testing

// ReadBothWays: one declared message type registered on a serializer (with its direct
// codec), and what its two reading paths make of a document: deserialize(object) (the
// converters on the object Poco's parser made) and the streamed deserialize by "type"
// (the direct codec, with the converters deciding every refusal). Both must refuse with
// the same member text, each in its own frame.
//
//   ReadBothWays shipments(types.shipment);
//   EXPECT_EQ(shipments.refusal(R"({"type":"test/Shipment",...})"),
//             R"(member "/quantity": 0 is less than the minimum 1)");
//   std::unique_ptr<Message> message = shipments.read(document);   // throws when refused
//
// Thread-safety: one test thread.
#pragma once

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

namespace connector::typestest {

class ReadBothWays {
 public:
  template <typename T>
  explicit ReadBothWays(const json::MessageType<T>& type) : name(type.name()) {
    type.registerWith(*serializer);
  }

  // "(accepted)" when both paths read the document; the member text when both refuse it
  // with that text (in their frames); else what each said.
  std::string refusal(const std::string& document) const {
    const std::string objectPath = viaObject(document);
    const std::string streamed = viaStream(document);
    const std::string objectFrame = "Parsing error for type '" + name + "': ";
    const std::string streamFrame = "Error while parsing: " + objectFrame;
    if (objectPath == "(accepted)" && streamed == "(accepted)") return "(accepted)";
    if (objectPath.rfind(objectFrame, 0) == 0 && streamed.rfind(streamFrame, 0) == 0 &&
        objectPath.substr(objectFrame.size()) == streamed.substr(streamFrame.size())) {
      return objectPath.substr(objectFrame.size());
    }
    return "object: " + objectPath + " | streamed: " + streamed;
  }

  // The message read by the streamed path; throws its failure.
  std::unique_ptr<Message> read(const std::string& document) const {
    auto bytes = std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
        common::DataBuffer(document));
    return serializer->deserialize(bytes).get();
  }

  // The message's text as serialize writes it (through the direct codec).
  std::string write(const std::unique_ptr<Message>& message) const {
    std::ostringstream out;
    serializer->serialize(message, out);
    return out.str();
  }

  // What serialize throws for the message (the exception's text), or "(written)".
  std::string writeRefusal(const std::unique_ptr<Message>& message) const {
    try {
      write(message);
    } catch (const std::exception& e) {
      return e.what();
    }
    return "(written)";
  }

  std::shared_ptr<json::JsonSerializerImpl> serializer =
      std::make_shared<json::JsonSerializerImpl>();

 private:
  std::string viaObject(const std::string& document) const {
    try {
      Poco::JSON::Parser parser;
      Poco::JSON::Object::Ptr object = parser.parse(document).extract<Poco::JSON::Object::Ptr>();
      serializer->deserialize(std::move(object));
    } catch (const std::invalid_argument& e) {
      return e.what();
    }
    return "(accepted)";
  }

  std::string viaStream(const std::string& document) const {
    try {
      read(document);
    } catch (const std::invalid_argument& e) {
      return e.what();
    }
    return "(accepted)";
  }

  std::string name;
};

}  // namespace connector::typestest

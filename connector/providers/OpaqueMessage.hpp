// connector::json::OpaqueMessage: a content type plus bytes, the form in which serialized
// messages cross the host's routing.
//
//   auto request = std::make_unique<OpaqueMessage>("application/json",
//                                                  DataBuffer(R"({"type":"connector/Message"})"));
//   DataBuffer bytes = std::move(request->payload);   // consumers move the payload out
//
// The payload is moved in at construction (the caller's buffer is left empty) and may be
// moved out by whoever consumes it; the message then holds an empty buffer.
//
// Thread-safety: owned by one holder at a time, like every message.
#pragma once

#include <string>
#include <utility>

#include "connector/Export.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/providers/MessageAPI.hpp"
#include "connector/providers/OpaqueServiceProvider.hpp"

namespace connector::json {

class CONNECTOR_API OpaqueMessage : public MessageAPI<OpaqueMessage, OpaqueServiceProvider> {
 public:
  // Copies the content type; moves the payload in.
  OpaqueMessage(const std::string& contentType, common::DataBuffer&& payload)
      : contentType(contentType), payload(std::move(payload)) {}

  std::string contentType;     // media type of the payload
  common::DataBuffer payload;  // the serialized bytes
};

}  // namespace connector::json

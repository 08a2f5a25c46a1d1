// connector::transport::notOpaque: the refusal of a link that carries only OpaqueMessages
// (the serialized form) when handed another message.
//
//   auto* opaque = dynamic_cast<json::OpaqueMessage*>(message.get());
//   if (opaque == nullptr) {
//     return makeFailedFuture<MessagePtr>(notOpaque(message.get(), "NatsLink"));
//   }
//   // std::invalid_argument "NatsLink delivers only an OpaqueMessage, not shop::ReserveItem"
//
// Thread-safety: a plain function.
#pragma once

#include <exception>
#include <string>

#include "connector/Export.hpp"
#include "connector/host/Message.hpp"

namespace connector::transport {

// std::invalid_argument "<link> delivers only an OpaqueMessage, not <the message's type>"
// ("... not a null message" for null). Never throws (but std::bad_alloc).
CONNECTOR_API std::exception_ptr notOpaque(const Message* message, const std::string& link);

}  // namespace connector::transport

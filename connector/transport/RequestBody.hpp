// connector::transport::isJsonObjectText: the check every transport makes on a request's
// body before delivering it. Every service is reached with a JSON object (the message
// with its "type"), so a body whose root is anything else (an array, a string, a number,
// nothing at all) is answered 400 {"error":"the request body must be a JSON object"}
// by each transport alike, and never delivered.
//
//   if (!connector::transport::isJsonObjectText(body.view())) {
//     reply(400, errorBody(connector::transport::kNotAnObjectText));
//     return;
//   }
//
// Only the first byte after JSON whitespace is looked at: whether the rest is a valid
// object is for the deserializer to say, with its own texts.
//
// Thread-safety: a plain function without shared state.
#pragma once

#include <string_view>

#include "connector/Export.hpp"

namespace connector::transport {

// The text of the 400 answer to a body that is not a JSON object.
inline constexpr const char* kNotAnObjectText = "the request body must be a JSON object";

// True when the first byte of `body` after JSON whitespace (space, tab, line feed,
// carriage return) is '{'; false for an empty or blank body. Never throws.
CONNECTOR_API bool isJsonObjectText(std::string_view body) noexcept;

}  // namespace connector::transport

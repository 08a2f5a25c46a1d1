// connector::transport::errorBody and errorText: the JSON error body every transport
// answers a failure with, {"error":"<text>"}, and its reading on the calling side.
//
//   std::string body = connector::transport::errorBody("order not found: ORD-1");
//   // {"error":"order not found: ORD-1"}
//   connector::transport::errorText(body);        // "order not found: ORD-1"
//
// Thread-safety: plain functions without shared state; call them from any thread.
#pragma once

#include <string>
#include <string_view>

#include "connector/Export.hpp"

namespace connector::transport {

// {"error":"<text>"}, the text JSON-escaped; byte sequences that are not UTF-8 become
// U+FFFD, so the body is JSON whatever the text quotes. Throws std::bad_alloc only.
CONNECTOR_API std::string errorBody(const std::string& text);

// The text of an {"error":"<text>"} body; empty when the body is not such an object.
// Never throws.
CONNECTOR_API std::string errorText(std::string_view body) noexcept;

}  // namespace connector::transport

// The JSON error body that the gateway answers failures with, {"error":"<text>"}, and
// its reading on the link's side. Private to connector/net.
#pragma once

#include <string>
#include <string_view>

namespace connector::net::detail {

// {"error":"<text>"}, the text JSON-escaped.
std::string errorBody(const std::string& text);

// The text of an {"error":"<text>"} body; empty when the body is not such an object.
// Never throws.
std::string errorText(std::string_view body);

}  // namespace connector::net::detail

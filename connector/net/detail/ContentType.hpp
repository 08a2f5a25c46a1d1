// detail::isJsonContentType: which request content types the gateway delivers. A POST
// is delivered when its Content-Type is application/json or any application/<x>+json
// (type and subtype in any case, parameters such as "; charset=utf-8" allowed), or when
// it has none (delivered as application/json); any other type is answered 415
// {"error":"Content-Type must be application/json"} and nothing is delivered. Private
// to connector/net.
//
//   isJsonContentType("Application/JSON; charset=utf-8");   // true
//   isJsonContentType("application/problem+json");          // true
//   isJsonContentType("text/plain");                        // false
//
// Thread-safety: a plain function.
#pragma once

#include <string_view>

namespace connector::net::detail {

// The text of the 415 answer.
inline constexpr const char* kUnsupportedContentTypeText = "Content-Type must be application/json";

// True when `value` (a Content-Type field's value, not empty) names JSON as above.
bool isJsonContentType(std::string_view value) noexcept;

}  // namespace connector::net::detail

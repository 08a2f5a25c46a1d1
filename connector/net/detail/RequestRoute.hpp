// detail::routeRequest: what the gateway does with a request, decided from its method
// and target alone, before any body is read. Private to connector/net.
//
//   RequestRoute route;
//   routeRequest("POST", "/shop%2FReserveItem", route);
//   // route.kind == RequestRoute::Deliver, route.address == "shop/ReserveItem"
//
// Paths: "/" lists the bound addresses (GET), "/healthz", "/metrics", "/schemas",
// "/openapi.json", "/docs" and "/docs/<file>" are reserved (GET), every other path names
// an address (POST). Any other method is refused 405
// with the Allow header naming the one that is allowed; a target that cannot be decoded
// is refused 400.
//
// The route's strings keep their storage from one request to the next: a target without
// percent-encoding allocates nothing once they have grown.
//
// Thread-safety: a plain function.
#pragma once

#include <string>
#include <string_view>

namespace connector::net::detail {

inline constexpr std::string_view kHealthPath = "/healthz";
inline constexpr std::string_view kMetricsPath = "/metrics";
inline constexpr std::string_view kSchemasPath = "/schemas";
inline constexpr std::string_view kOpenApiPath = "/openapi.json";
inline constexpr std::string_view kDocsPath = "/docs";

struct RequestRoute {
  enum Kind { ListAddresses, Health, Metrics, Schemas, OpenApi, Docs, DocsFile, Deliver, Refuse };
  Kind kind = Refuse;
  std::string address;     // Deliver: the address, without the leading '/'; DocsFile: the name
  int status = 0;          // Refuse: 400 or 405
  std::string text;        // Refuse: the error text
  std::string allow;       // Refuse 405: the allowed method
  bool challenge = false;  // Refuse 401: the answer asks for a bearer token
};

// Fills `route` for a request with this method and target.
void routeRequest(std::string_view method, std::string_view target, RequestRoute& route);

}  // namespace connector::net::detail

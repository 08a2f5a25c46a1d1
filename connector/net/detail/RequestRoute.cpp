#include "connector/net/detail/RequestRoute.hpp"

#include <Poco/Exception.h>
#include <Poco/URI.h>

namespace connector::net::detail {

namespace {

// The decoded path of a request target ("/shop%2FReserveItem?x" -> "/shop/ReserveItem");
// false for a malformed one.
bool targetPath(std::string_view target, std::string& path) {
  path.assign(target.substr(0, target.find_first_of("?#")));
  if (path.find('%') == std::string::npos && !path.empty() && path[0] == '/') return true;
  try {
    path = Poco::URI(std::string(target)).getPath();
    return true;
  } catch (const Poco::Exception&) {
    return false;
  }
}

RequestRoute refuse(int status, std::string text, std::string allow = {}) {
  RequestRoute route;
  route.kind = RequestRoute::Refuse;
  route.status = status;
  route.text = std::move(text);
  route.allow = std::move(allow);
  return route;
}

RequestRoute onlyGet(std::string_view method, const std::string& path, RequestRoute::Kind kind) {
  if (method != "GET") {
    return refuse(405, "Method " + std::string(method) + " is not allowed on " + path + "; use GET",
                  "GET");
  }
  RequestRoute route;
  route.kind = kind;
  return route;
}

}  // namespace

RequestRoute routeRequest(std::string_view method, std::string_view target) {
  std::string path;
  if (!targetPath(target, path)) {
    return refuse(400, "Malformed request target '" + std::string(target) + "'");
  }
  if (path.empty() || path == "/") return onlyGet(method, "/", RequestRoute::ListAddresses);
  if (path == kHealthPath) return onlyGet(method, path, RequestRoute::Health);
  if (path == kMetricsPath) return onlyGet(method, path, RequestRoute::Metrics);
  if (path == kSchemasPath) return onlyGet(method, path, RequestRoute::Schemas);
  if (method != "POST") {
    return refuse(
        405, "Method " + std::string(method) + " is not allowed on " + path + "; use POST", "POST");
  }
  RequestRoute route;
  route.kind = RequestRoute::Deliver;
  route.address = path.substr(1);
  return route;
}

}  // namespace connector::net::detail

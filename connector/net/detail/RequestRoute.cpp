#include "connector/net/detail/RequestRoute.hpp"

#include <Poco/Exception.h>
#include <Poco/URI.h>

namespace connector::net::detail {

namespace {

// The path of a request target without its query or fragment.
std::string_view rawPath(std::string_view target) {
  return target.substr(0, target.find_first_of("?#"));
}

void refuse(RequestRoute& route, int status, std::string text, std::string_view allow = {}) {
  route.kind = RequestRoute::Refuse;
  route.status = status;
  route.text = std::move(text);
  route.allow.assign(allow.data(), allow.size());
}

void onlyGet(std::string_view method, std::string_view path, RequestRoute::Kind kind,
             RequestRoute& route) {
  if (method != "GET") {
    refuse(
        route, 405,
        "Method " + std::string(method) + " is not allowed on " + std::string(path) + "; use GET",
        "GET");
    return;
  }
  route.kind = kind;
}

void routePath(std::string_view method, std::string_view path, RequestRoute& route) {
  if (path.empty() || path == "/") {
    onlyGet(method, "/", RequestRoute::ListAddresses, route);
  } else if (path == kHealthPath) {
    onlyGet(method, path, RequestRoute::Health, route);
  } else if (path == kMetricsPath) {
    onlyGet(method, path, RequestRoute::Metrics, route);
  } else if (path == kSchemasPath) {
    onlyGet(method, path, RequestRoute::Schemas, route);
  } else if (path == kOpenApiPath) {
    onlyGet(method, path, RequestRoute::OpenApi, route);
  } else if (path == kDocsPath) {
    onlyGet(method, path, RequestRoute::Docs, route);
  } else if (path.size() > kDocsPath.size() && path.substr(0, kDocsPath.size()) == kDocsPath &&
             path[kDocsPath.size()] == '/') {
    onlyGet(method, path, RequestRoute::DocsFile, route);
    if (route.kind == RequestRoute::DocsFile) {
      const std::string_view name = path.substr(kDocsPath.size() + 1);
      route.address.assign(name.data(), name.size());
    }
  } else if (method != "POST") {
    refuse(
        route, 405,
        "Method " + std::string(method) + " is not allowed on " + std::string(path) + "; use POST",
        "POST");
  } else {
    route.kind = RequestRoute::Deliver;
    route.address.assign(path.data() + 1, path.size() - 1);
  }
}

}  // namespace

void routeRequest(std::string_view method, std::string_view target, RequestRoute& route) {
  route.kind = RequestRoute::Refuse;
  route.address.clear();
  route.status = 0;
  route.text.clear();
  route.allow.clear();
  route.challenge = false;
  const std::string_view path = rawPath(target);
  if (path.find('%') == std::string_view::npos && !path.empty() && path[0] == '/') {
    routePath(method, path, route);
    return;
  }
  std::string decoded;
  try {
    decoded = Poco::URI(std::string(target)).getPath();
  } catch (const Poco::Exception&) {
    refuse(route, 400, "Malformed request target '" + std::string(target) + "'");
    return;
  }
  routePath(method, decoded, route);
}

}  // namespace connector::net::detail

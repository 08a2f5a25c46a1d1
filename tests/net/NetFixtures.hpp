// Fixtures of the HTTP tests: a far shop node served by an HttpGateway on a free loopback
// port, a client shop node whose bridge crosses an HttpLink, a plain HTTP exchange for
// checking statuses and bodies byte for byte, and a free port finder.
//
//   FarShop far;                                   // gateway listening, services started
//   ClientShop client(far.gateway->url());         // typed requests cross over HTTP
//   RawAnswer a = rawExchange(far.port(), "POST", "/shop/ReserveItem", "{...}");
//
// Thread-safety: the nodes, the gateway and the link are thread-safe; rawExchange opens
// its own connection per call.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/StreamCopier.h>

#include <connector/json.hpp>
#include <connector/net/HttpGateway.hpp>
#include <connector/net/HttpLink.hpp>

#include "shop/ShopMessages.hpp"
#include "shop/ShopNodes.hpp"
#include "support/LinkedShop.hpp"

namespace nettest {

// A port that was free a moment ago (bound, read, released).
inline std::uint16_t freePort() {
  Poco::Net::ServerSocket probe;
  probe.bind(Poco::Net::SocketAddress("127.0.0.1", 0), true, false);
  return probe.address().port();
}

// The shop's far node (gateway router -> deserializer providers -> inventory services)
// behind an HTTP gateway.
struct FarShop {
  explicit FarShop(connector::net::HttpGatewayOptions options = {})
      : nodes(std::make_unique<shop::ShopNodes>()),
        gateway(std::make_unique<connector::net::HttpGateway>(nodes->gateway, options)) {
    gateway->start();
  }
  std::uint16_t port() const { return gateway->port(); }
  std::string url() const { return gateway->url(); }

  std::unique_ptr<shop::ShopNodes> nodes;
  std::unique_ptr<connector::net::HttpGateway> gateway;
};

// A shop client node whose bridge providers send through an HttpLink to `url`.
struct ClientShop : connector::testing::LinkedShop<connector::net::HttpLink> {
  explicit ClientShop(const std::string& url, connector::net::HttpLinkOptions options = {})
      : LinkedShop(std::make_shared<connector::net::HttpLink>(url, options)) {}
};

// The text of an {"error":"<text>"} body; throws when the body is not such an object.
inline std::string errorOf(const std::string& body) {
  Poco::JSON::Parser parser;
  return parser.parse(body).extract<Poco::JSON::Object::Ptr>()->getValue<std::string>("error");
}

struct RawAnswer {
  int status = 0;
  std::string contentType;
  std::string body;
  std::string allow;
  bool keepAlive = true;
};

// One request on a fresh connection; the body is sent only when not empty.
inline RawAnswer rawExchange(std::uint16_t port, const std::string& method,
                             const std::string& target, const std::string& body = "",
                             const std::string& contentType = "application/json") {
  Poco::Net::HTTPClientSession session("127.0.0.1", port);
  session.setTimeout(Poco::Timespan(10, 0));
  Poco::Net::HTTPRequest request(method, target, Poco::Net::HTTPMessage::HTTP_1_1);
  if (!body.empty()) {
    request.setContentType(contentType);
    request.setContentLength(static_cast<std::streamsize>(body.size()));
  }
  session.sendRequest(request) << body;
  Poco::Net::HTTPResponse response;
  std::istream& in = session.receiveResponse(response);
  RawAnswer answer;
  answer.status = static_cast<int>(response.getStatus());
  answer.contentType = response.getContentType();
  answer.allow = response.get("Allow", "");
  answer.keepAlive = response.getKeepAlive();
  Poco::StreamCopier::copyToString(in, answer.body);
  return answer;
}

}  // namespace nettest

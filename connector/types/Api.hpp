// connector::json::Api: the operations a set of services offers, each declared once from
// the json::MessageType declarations of its request and its answer, and the OpenAPI 3.1.0
// document that describes them to HTTP clients, client generators and interactive docs.
//
//   json::Api api("shop", "1.0.0");                          // title, version
//   api.operation("shop/ReserveItem", types.reserveItem, types.reservation,
//                 "Reserve pieces of an item");              // address, request, answer
//   Poco::JSON::Object::Ptr document = api.openApi();        // no tokens asked for
//   Poco::JSON::Object::Ptr secured = api.openApi(json::Api::Security::BearerTokens);
//
// The document has one "POST /<address>" per operation: the request's schema is its body
// (with an example request), the answer's schema its 200 response, and the error answers
// of the HTTP gateway (400, 401 with tokens, 404, 413, 415, 503, 504, 500) share the schema
// {"error": "<text>"}. The type schemas sit under components/schemas, keyed by the type
// name with '/' turned into '.' ("shop.ReserveItem"), and the operations "$ref" them; the
// error schema is "Error". An HttpGateway serves the document at GET /openapi.json
// (HttpGatewayOptions::api) and a NatsListener puts the same operations in its discovery
// answers (NatsListenerOptions::api).
//
// Thread-safety: declare the operations on one thread; afterwards the const operations
// may run on any number of threads at once. openApi() builds a new document on every
// call: the caller owns it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <Poco/JSON/Object.h>

#include "connector/Export.hpp"
#include "connector/types/ApiOperation.hpp"
#include "connector/types/MessageType.hpp"

namespace connector::json {

class CONNECTOR_API Api {
 public:
  // Whether the described server asks for a bearer token (an HttpGateway with
  // authTokensFile).
  enum class Security { None, BearerTokens };

  // An API without operations; `title` and `version` go into the document's "info".
  Api(std::string title, std::string version);

  // Declares that `address` takes a `request` and answers with an `answer`. Throws
  // std::invalid_argument, leaving the API as it was:
  //   "address \"<address>\" is declared twice"
  //   "an operation's address is empty"
  //   "address \"<address>\" starts with '/'"
  //   "address \"<address>\": '<c>' cannot stand in a URL path" for a space, '?', '#',
  //       '%', '{', '}', a control character (shown as \x1f) or anything else but letters,
  //       digits and -._~!$&'()*+,;=:@/
  //   "type \"<name>\" gives no component name: only letters, digits, '.', '-', '_' and
  //       '/' are allowed"
  //   "types \"<a>\" and \"<b>\" both give the component name \"<key>\""
  //   "type \"<name>\" is declared twice with different schemas"
  //   "type \"Error\" takes the name of the error answers' schema"
  template <typename Request, typename Answer>
  Api& operation(std::string address, const MessageType<Request>& request,
                 const MessageType<Answer>& answer, std::string summary) {
    ApiOperation described;
    described.address = std::move(address);
    described.summary = std::move(summary);
    described.requestType = request.name();
    described.requestSchema = textOf(request.schema());
    described.answerType = answer.name();
    described.answerSchema = textOf(answer.schema());
    described.example = exampleOf(request);
    add(std::move(described));
    return *this;
  }

  const std::string& title() const noexcept { return apiTitle; }
  const std::string& version() const noexcept { return apiVersion; }

  // The operations in the order they were declared.
  const std::vector<ApiOperation>& operations() const noexcept { return declared; }

  // The OpenAPI 3.1.0 document of the operations declared so far; with
  // Security::BearerTokens every operation asks for "Authorization: Bearer <token>" and
  // may answer 401. Never throws (but std::bad_alloc).
  Poco::JSON::Object::Ptr openApi(Security security = Security::None) const;

  // The component name of a type name: '/' turned into '.'. Throws std::invalid_argument
  // "type \"<name>\" gives no component name: ..." as operation() does.
  static std::string componentName(const std::string& typeName);

 private:
  template <typename Request>
  static std::string exampleOf(const MessageType<Request>& request) {
    Poco::JSON::Object::Ptr written;
    try {
      written = request.serializer()(std::make_unique<Request>());
      request.deserializer()(withType(request.name(), written));
    } catch (const std::exception&) {
      return {};  // Poco::Exception is a std::exception too
    }
    return textOf(withType(request.name(), written));
  }

  // The members of `members` after "type": name.
  static Poco::JSON::Object::Ptr withType(const std::string& name,
                                          const Poco::JSON::Object::Ptr& members);
  static std::string textOf(const Poco::JSON::Object::Ptr& object);
  void add(ApiOperation&& operation);

  std::string apiTitle;
  std::string apiVersion;
  std::vector<ApiOperation> declared;
};

}  // namespace connector::json

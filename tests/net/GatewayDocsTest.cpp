// HttpGateway with an API description (HttpGatewayOptions::api): GET /openapi.json and
// GET /docs (the page, its initializer and the Swagger UI files), their
// Content-Security-Policy, their refusals (405 for other methods, 404 without a
// description or for an unknown file, 401 without a token when tokens are on).
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <Poco/JSON/Parser.h>

#include "NetFixtures.hpp"
#include "RawClient.hpp"
#include "shop/ShopTypes.hpp"

namespace {

using connector::net::HttpGatewayOptions;
using nettest::FarShop;
using nettest::RawClient;
using nettest::Reply;

const std::string kToken = "docs-token-5b1e";
const std::string kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; font-src 'self'; base-uri 'none'; form-action 'none'; "
    "frame-ancestors 'none'";

HttpGatewayOptions described() {
  HttpGatewayOptions options;
  options.api = std::make_shared<connector::json::Api>(shop::shopApi());
  return options;
}

std::string documentText(connector::json::Api::Security security) {
  std::ostringstream out;
  shop::shopApi().openApi(security)->stringify(out);
  return out.str();
}

Reply exchange(std::uint16_t port, const std::string& method, const std::string& target,
               const std::string& authorization = "") {
  RawClient client(port);
  std::string bytes = method + " " + target + " HTTP/1.1\r\nHost: t\r\n";
  if (!authorization.empty()) bytes += "Authorization: " + authorization + "\r\n";
  EXPECT_TRUE(client.send(bytes + "\r\n"));
  std::optional<Reply> reply = client.readReply(std::chrono::seconds(10));
  if (!reply) throw std::runtime_error("no answer to " + method + " " + target);
  return *reply;
}

// A tokens file with kToken, removed with the object.
struct TokensFile {
  TokensFile() {
    char pattern[] = "/tmp/docs-tokens.XXXXXX";
    const int fd = ::mkstemp(pattern);
    if (fd < 0) throw std::runtime_error("cannot make a tokens file");
    ::close(fd);
    path = pattern;
    std::ofstream(path) << kToken << "\n";
  }
  ~TokensFile() { std::remove(path.c_str()); }
  std::string path;
};

TEST(GatewayDocsTest, GetOfOpenApiAnswersTheDocumentOfTheApi) {
  FarShop far(described());
  const Reply reply = exchange(far.port(), "GET", "/openapi.json");

  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.header("content-type"), "application/json");
  EXPECT_EQ(reply.body, documentText(connector::json::Api::Security::None));
  EXPECT_EQ(reply.body.find("securitySchemes"), std::string::npos);
}

TEST(GatewayDocsTest, GetOfDocsAnswersAPageThatLoadsOnlyTheGatewaysOwnFiles) {
  FarShop far(described());
  const Reply reply = exchange(far.port(), "GET", "/docs");

  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.header("content-type"), "text/html; charset=utf-8");
  EXPECT_EQ(reply.header("content-security-policy"), kPolicy);
  EXPECT_EQ(reply.header("x-content-type-options"), "nosniff");
  EXPECT_NE(reply.body.find("<title>shop 1.0.0 - API docs</title>"), std::string::npos);
  EXPECT_NE(reply.body.find(R"(<script src="docs/swagger-ui-bundle.js"></script>)"),
            std::string::npos);
  EXPECT_NE(reply.body.find(R"(<script src="docs/initializer.js"></script>)"), std::string::npos);
  EXPECT_NE(reply.body.find(R"(<link rel="stylesheet" href="docs/swagger-ui.css">)"),
            std::string::npos);
  // No inline script or style, and nothing from elsewhere.
  EXPECT_EQ(reply.body.find("<script>"), std::string::npos);
  EXPECT_EQ(reply.body.find("<style"), std::string::npos);
  EXPECT_EQ(reply.body.find("style="), std::string::npos);
  EXPECT_EQ(reply.body.find("http"), std::string::npos);
}

TEST(GatewayDocsTest, ThePagesFilesAreServedWithTheirTypesAndThePolicy) {
  FarShop far(described());
  const std::pair<const char*, const char*> files[] = {
      {"/docs/swagger-ui.css", "text/css; charset=utf-8"},
      {"/docs/swagger-ui-bundle.js", "text/javascript; charset=utf-8"},
      {"/docs/initializer.js", "text/javascript; charset=utf-8"},
      {"/docs/favicon-32x32.png", "image/png"},
      {"/docs/favicon-16x16.png", "image/png"}};
  for (const auto& [target, type] : files) {
    const Reply reply = exchange(far.port(), "GET", target);
    EXPECT_EQ(reply.status, 200) << target;
    EXPECT_EQ(reply.header("content-type"), type) << target;
    EXPECT_EQ(reply.header("content-security-policy"), kPolicy) << target;
    EXPECT_FALSE(reply.body.empty()) << target;
  }
  const Reply bundle = exchange(far.port(), "GET", "/docs/swagger-ui-bundle.js");
  EXPECT_GT(bundle.body.size(), 100000U);
  const Reply initializer = exchange(far.port(), "GET", "/docs/initializer.js");
  EXPECT_NE(initializer.body.find(R"(new URL("openapi.json", window.location.href))"),
            std::string::npos);
  EXPECT_NE(initializer.body.find("validatorUrl: null"), std::string::npos);
}

TEST(GatewayDocsTest, AnUnknownDocsFileIsAnswered404) {
  FarShop far(described());
  const Reply reply = exchange(far.port(), "GET", "/docs/index.html");

  EXPECT_EQ(reply.status, 404);
  EXPECT_EQ(reply.body, R"({"error":"No file 'index.html' in the docs"})");
  // Only the page's own files are served: a name is never a path into the folder.
  EXPECT_EQ(exchange(far.port(), "GET", "/docs/../../package.json").body,
            R"({"error":"No file '../../package.json' in the docs"})");
  EXPECT_EQ(exchange(far.port(), "GET", "/docs/%2e%2e%2fLICENSE").status, 404);
}

TEST(GatewayDocsTest, WithoutAnApiBothPathsAnswer404) {
  FarShop far;
  for (const char* target : {"/openapi.json", "/docs", "/docs/swagger-ui.css"}) {
    const Reply reply = exchange(far.port(), "GET", target);
    EXPECT_EQ(reply.status, 404) << target;
    EXPECT_EQ(reply.body, R"({"error":"This gateway has no API description"})") << target;
  }
}

TEST(GatewayDocsTest, WithoutTheSwaggerUiFilesTheDocsAnswer404AndTheDocumentIsServed) {
  HttpGatewayOptions options = described();
  options.swaggerUiFolder = "/nonexistent/swagger-ui";
  FarShop far(options);

  const Reply docs = exchange(far.port(), "GET", "/docs");
  EXPECT_EQ(docs.status, 404);
  EXPECT_EQ(docs.body,
            R"({"error":"The interactive docs are not installed: no Swagger UI files in )"
            R"(/nonexistent/swagger-ui"})");
  EXPECT_EQ(exchange(far.port(), "GET", "/docs/swagger-ui.css").body, docs.body);
  EXPECT_EQ(exchange(far.port(), "GET", "/openapi.json").status, 200);
}

TEST(GatewayDocsTest, BothPathsAreAnsweredOnGetOnly) {
  FarShop far(described());
  for (const char* target : {"/openapi.json", "/docs", "/docs/swagger-ui.css"}) {
    for (const char* method : {"POST", "PUT", "DELETE", "HEAD"}) {
      const Reply reply = exchange(far.port(), method, target);
      EXPECT_EQ(reply.status, 405) << method << " " << target;
      EXPECT_EQ(reply.header("allow"), "GET") << method << " " << target;
      if (std::string(method) != "HEAD") {
        EXPECT_EQ(reply.body, std::string(R"({"error":"Method )") + method + " is not allowed on " +
                                  target + R"(; use GET"})");
      }
    }
  }
}

TEST(GatewayDocsTest, WithTokensBothPathsAsk401AndTheDocumentDescribesBearerSecurity) {
  const TokensFile tokens;
  HttpGatewayOptions options = described();
  options.authTokensFile = tokens.path;
  FarShop far(options);

  for (const char* target : {"/openapi.json", "/docs", "/docs/swagger-ui-bundle.js"}) {
    const Reply refused = exchange(far.port(), "GET", target);
    EXPECT_EQ(refused.status, 401) << target;
    EXPECT_EQ(refused.header("www-authenticate"), "Bearer") << target;
    EXPECT_EQ(refused.body, R"({"error":"Missing bearer token"})") << target;
    EXPECT_EQ(exchange(far.port(), "GET", target, "Bearer wrong").status, 401) << target;
    EXPECT_EQ(exchange(far.port(), "GET", target, "Bearer " + kToken).status, 200) << target;
  }
  const Reply document = exchange(far.port(), "GET", "/openapi.json", "Bearer " + kToken);
  EXPECT_EQ(document.body, documentText(connector::json::Api::Security::BearerTokens));
  EXPECT_NE(document.body.find(R"("security":[{"bearer":[]}])"), std::string::npos);
}

TEST(GatewayDocsTest, TheExampleOfTheDocumentIsAnswered200ByTheGateway) {
  FarShop far(described());
  Poco::JSON::Parser parser;
  const auto document = parser.parse(exchange(far.port(), "GET", "/openapi.json").body)
                            .extract<Poco::JSON::Object::Ptr>();
  std::ostringstream example;
  Poco::JSON::Stringifier::stringify(document->getObject("paths")
                                         ->getObject("/shop/ReserveItem")
                                         ->getObject("post")
                                         ->getObject("requestBody")
                                         ->getObject("content")
                                         ->getObject("application/json")
                                         ->get("example"),
                                     example);
  const nettest::RawAnswer answer =
      nettest::rawExchange(far.port(), "POST", "/shop/ReserveItem", example.str());
  EXPECT_EQ(answer.status, 200) << answer.body;
  EXPECT_EQ(answer.body, R"({"reservationId":"","sku":"","quantity":0,"accepted":false,)"
                         R"("type":"shop/Reservation"})");
}

}  // namespace

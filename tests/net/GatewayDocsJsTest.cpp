// The gateway's API description checked by tools nobody here wrote, run by node:
// @apidevtools/swagger-parser validates GET /openapi.json as OpenAPI 3.1, with tokens
// and without. A missing node or npm package fails these tests; they never skip.
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <Poco/JSON/Parser.h>

#include "NetFixtures.hpp"
#include "shop/ShopTypes.hpp"
#include "support/NodeScript.hpp"

namespace {

using connector::net::HttpGatewayOptions;
using connector::testing::NodeScript;
using nettest::FarShop;

const char* const kValidator = "@apidevtools/swagger-parser";

HttpGatewayOptions described() {
  HttpGatewayOptions options;
  options.api = std::make_shared<connector::json::Api>(shop::shopApi());
  return options;
}

Poco::JSON::Object::Ptr lastLineOf(const std::string& output) {
  const std::size_t end = output.find_last_not_of('\n');
  const std::size_t start = output.rfind('\n', end);
  Poco::JSON::Parser parser;
  return parser
      .parse(output.substr(start == std::string::npos ? 0 : start + 1,
                           end == std::string::npos ? 0 : end - start))
      .extract<Poco::JSON::Object::Ptr>();
}

std::string text(const Poco::Dynamic::Var& value) {
  std::ostringstream out;
  Poco::JSON::Stringifier::stringify(value, out);
  return out.str();
}

TEST(GatewayDocsJsTest, SwaggerParserValidatesTheServedDocumentAsOpenApi31) {
  FarShop far(described());
  NodeScript validator("tests/net/js/validate_openapi.mjs", {far.url() + "/openapi.json"},
                       kValidator);
  ASSERT_EQ(validator.wait(std::chrono::seconds(60)), 0)
      << validator.output() << validator.errors();

  const Poco::JSON::Object::Ptr result = lastLineOf(validator.output());
  EXPECT_TRUE(result->getValue<bool>("valid")) << validator.output();
  EXPECT_EQ(result->getValue<std::string>("openapi"), "3.1.0");
  EXPECT_EQ(text(result->get("paths")), R"(["/shop/ReserveItem","/shop/CancelOrder"])");
  EXPECT_EQ(result->getValue<std::string>("reserveRequestTitle"), "shop/ReserveItem");
  EXPECT_TRUE(result->isNull("security"));
  EXPECT_TRUE(result->getValue<bool>("brokenRefused"));
}

TEST(GatewayDocsJsTest, SwaggerParserValidatesTheDocumentWithBearerSecurity) {
  char pattern[] = "/tmp/docs-js-tokens.XXXXXX";
  const int fd = ::mkstemp(pattern);
  ASSERT_GE(fd, 0);
  ::close(fd);
  const std::string tokens = pattern;
  std::ofstream(tokens) << "js-token-77\n";
  HttpGatewayOptions options = described();
  options.authTokensFile = tokens;
  FarShop far(options);

  NodeScript refused("tests/net/js/validate_openapi.mjs", {far.url() + "/openapi.json"},
                     kValidator);
  EXPECT_EQ(refused.wait(std::chrono::seconds(60)), 1);
  EXPECT_EQ(refused.output(), R"({"status":401,"body":"{\"error\":\"Missing bearer token\"}"})"
                              "\n");

  NodeScript validator("tests/net/js/validate_openapi.mjs",
                       {far.url() + "/openapi.json", "js-token-77"}, kValidator);
  const int status = validator.wait(std::chrono::seconds(60));
  std::remove(tokens.c_str());
  ASSERT_EQ(status, 0) << validator.output() << validator.errors();
  const Poco::JSON::Object::Ptr result = lastLineOf(validator.output());
  EXPECT_TRUE(result->getValue<bool>("valid"));
  EXPECT_EQ(text(result->get("security")), R"([{"bearer":[]}])");
  EXPECT_TRUE(result->getValue<bool>("brokenRefused"));
}

}  // namespace

// A real browser on the interactive docs of a running connector-gateway: Debian's
// chromium, headless, driven by puppeteer-core through node (tests/net/js/
// docs_in_browser.mjs). The page loads under the gateway's Content-Security-Policy with
// no violation and nothing fetched from elsewhere, shows every operation, sends the
// example request of shop/ReserveItem and shows the 200 answer, sends one without
// "quantity" and shows the 400 text. The screenshot lands in the build folder. A missing
// browser, node or npm package fails the test; it never skips.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Parser.h>

#include "ChildProcess.hpp"
#include "support/NodeScript.hpp"

namespace {

using connector::testing::NodeScript;
using nettest::ChildProcess;
using std::chrono::seconds;

const char* const kBrowser = "/usr/bin/chromium";

Poco::JSON::Object::Ptr lastLineOf(const std::string& output) {
  const std::size_t end = output.find_last_not_of('\n');
  const std::size_t start = output.rfind('\n', end);
  return Poco::JSON::Parser()
      .parse(output.substr(start == std::string::npos ? 0 : start + 1,
                           end == std::string::npos ? 0 : end - start))
      .extract<Poco::JSON::Object::Ptr>();
}

TEST(GatewayDocsBrowserTest, TheDocsShowEveryOperationAndSendRequestsThroughThePage) {
  ASSERT_EQ(::access(kBrowser, X_OK), 0)
      << kBrowser << " is missing: run scripts/install-deps (it installs chromium)";
  ChildProcess gateway({CONNECTOR_GATEWAY_PROGRAM, "--port", "0", "--drain-timeout", "1"});
  const std::optional<std::string> url = gateway.waitForLine("listening on ", seconds(20));
  ASSERT_TRUE(url) << gateway.linesSeen();

  NodeScript browser("tests/net/js/docs_in_browser.mjs",
                     {*url, CONNECTOR_DOCS_SCREENSHOT, kBrowser}, "puppeteer-core");
  const int status = browser.wait(seconds(120));
  ASSERT_EQ(status, 0) << browser.output() << browser.errors();
  const Poco::JSON::Object::Ptr seen = lastLineOf(browser.output());

  EXPECT_EQ(seen->getValue<int>("status"), 200);
  EXPECT_EQ(seen->getValue<std::string>("policy"),
            "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
            "connect-src 'self'; font-src 'self'; base-uri 'none'; form-action 'none'; "
            "frame-ancestors 'none'");
  EXPECT_EQ(seen->getArray("violations")->size(), 0u) << browser.output();
  const Poco::JSON::Array::Ptr requests = seen->getArray("requests");
  ASSERT_GE(requests->size(), 5u);
  for (std::size_t i = 0; i < requests->size(); ++i) {
    EXPECT_EQ(requests->getElement<std::string>(static_cast<unsigned>(i)).rfind(*url + "/", 0), 0u)
        << "fetched from elsewhere: "
        << requests->getElement<std::string>(static_cast<unsigned>(i));
  }
  EXPECT_EQ(seen->getValue<std::string>("title").rfind("shop", 0), 0u);
  const Poco::JSON::Array::Ptr operations = seen->getArray("operations");
  ASSERT_EQ(operations->size(), 2u);
  EXPECT_EQ(operations->getElement<std::string>(0), "/shop/ReserveItem");
  EXPECT_EQ(operations->getElement<std::string>(1), "/shop/CancelOrder");
  EXPECT_EQ(seen->getValue<std::string>("example"),
            "{\n  \"type\": \"shop/ReserveItem\",\n  \"sku\": \"\",\n  \"quantity\": 0\n}");

  const Poco::JSON::Object::Ptr answered = seen->getObject("example200");
  EXPECT_EQ(answered->getValue<std::string>("status"), "200");
  EXPECT_EQ(answered->getValue<std::string>("body"),
            "{\n  \"reservationId\": \"\",\n  \"sku\": \"\",\n  \"quantity\": 0,\n"
            "  \"accepted\": false,\n  \"type\": \"shop/Reservation\"\n}");
  const Poco::JSON::Object::Ptr refused = seen->getObject("badRequest");
  EXPECT_EQ(refused->getValue<std::string>("status"), "400");
  EXPECT_EQ(refused->getValue<std::string>("body"),
            "{\n  \"error\": \"Error while parsing: Parsing error for type 'shop/ReserveItem': "
            "member \\\"/quantity\\\" is missing\"\n}");

  gateway.signal(SIGTERM);
  EXPECT_EQ(gateway.waitForExit(seconds(10)), 0) << gateway.linesSeen();
}

}  // namespace

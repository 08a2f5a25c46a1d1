// connector-gateway rotates its bearer tokens on SIGHUP: the program runs as a child
// process over HTTPS, its tokens file is rewritten, and after the signal the old token is
// refused and the new one accepted, without a restart.
#include <signal.h>

#include <chrono>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "ChildProcess.hpp"
#include "TestPki.hpp"
#include "TlsClient.hpp"

namespace {

using nettest::ChildProcess;
using nettest::testPki;
using nettest::writeFile;
using std::chrono::seconds;

int statusWith(std::uint16_t port, const std::string& token) {
  nettest::TlsClient client(port, testPki().file("ca.pem"));
  return client.exchange("GET / HTTP/1.1\r\nHost: t\r\nAuthorization: Bearer " + token + "\r\n\r\n")
      .status;
}

TEST(TokenRotationTest, SighupRereadsTheTokensFileOfARunningGateway) {
  const std::string tokens = testPki().file("rotation-tokens");
  writeFile(tokens, "old-token-1\n");
  ChildProcess gateway({CONNECTOR_GATEWAY_PROGRAM, "--port", "0", "--tls-cert",
                        testPki().file("server.pem"), "--tls-key", testPki().file("server.key"),
                        "--auth-tokens", tokens, "--drain-timeout", "1"});
  const std::optional<std::string> url = gateway.waitForLine("listening on ", seconds(20));
  ASSERT_TRUE(url) << gateway.linesSeen();
  ASSERT_EQ(url->rfind("https://127.0.0.1:", 0), 0u) << *url;
  const auto port = static_cast<std::uint16_t>(std::stoi(url->substr(url->rfind(':') + 1)));

  EXPECT_EQ(statusWith(port, "old-token-1"), 200);
  EXPECT_EQ(statusWith(port, "new-token-2"), 401);

  writeFile(tokens, "# rotated\nnew-token-2\n");
  gateway.signal(SIGHUP);
  const std::optional<std::string> reloaded =
      gateway.waitForLine("connector-gateway: reloaded ", seconds(10));
  ASSERT_TRUE(reloaded) << gateway.linesSeen();
  EXPECT_EQ(*reloaded, "1 token from " + tokens);
  EXPECT_EQ(statusWith(port, "old-token-1"), 401);
  EXPECT_EQ(statusWith(port, "new-token-2"), 200);

  // A file that cannot be used leaves the tokens in force; the gateway serves on.
  writeFile(tokens, "\n");
  gateway.signal(SIGHUP);
  const std::optional<std::string> refused =
      gateway.waitForLine("connector-gateway: HttpGateway: ", seconds(10));
  ASSERT_TRUE(refused) << gateway.linesSeen();
  EXPECT_EQ(*refused, "the tokens file '" + tokens + "' holds no token; the tokens in force stay");
  EXPECT_EQ(statusWith(port, "new-token-2"), 200);

  gateway.signal(SIGTERM);
  EXPECT_EQ(gateway.waitForExit(seconds(10)), 0) << gateway.linesSeen();
}

}  // namespace

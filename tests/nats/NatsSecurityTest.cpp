// Credentials and TLS on NATS, against nats-servers of the test's own: one that asks for
// a token, one that asks for a user and password, and TLS servers whose certificates are
// made for this test run (TestPki.hpp). Right credentials let the bridge cross; wrong
// ones, an untrusted certificate or a plain server behind a tls:// URL fail the
// constructor at once, with an exact text that never holds the secret.
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <connector/nats/DisplayUrl.hpp>

#include "NatsFixtures.hpp"
#include "TestPki.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using connector::nats::NatsLink;
using connector::nats::NatsLinkOptions;
using connector::nats::NatsListener;
using connector::testing::NatsServerProcess;
using natstest::ClientShop;
using natstest::FarShop;
using Clock = std::chrono::steady_clock;

constexpr const char* kToken = "tok-6f1d9a0c5e";
constexpr const char* kWrongToken = "tok-wrong-83b2";
constexpr const char* kPassword = "pw-a4c7e19b";
constexpr const char* kWrongPassword = "pw-wrong-55d0";

std::string tlsConfig(const std::string& certificate, const std::string& key) {
  return "tls {\n  cert_file: \"" + nettest::testPki().file(certificate) + "\"\n  key_file: \"" +
         nettest::testPki().file(key) + "\"\n}";
}

// Each test starts only the servers it uses (and makes the certificates only when it
// uses TLS): every test runs in a process of its own.
class NatsSecurityTest : public ::testing::Test {
 protected:
  static void TearDownTestSuite() {
    for (auto* server : {&tokenServer, &userServer, &tlsServer, &misnamedServer}) {
      server->reset();
    }
  }

  static const NatsServerProcess& tokens() {
    return started(tokenServer, "authorization { token: \"" + std::string(kToken) + "\" }");
  }
  static const NatsServerProcess& users() {
    return started(userServer,
                   "authorization { user: alice, password: \"" + std::string(kPassword) + "\" }");
  }
  static const NatsServerProcess& tls() {
    return started(tlsServer, tlsConfig("server.pem", "server.key"));
  }
  // Its certificate names 127.0.0.2 only.
  static const NatsServerProcess& misnamed() {
    return started(misnamedServer, tlsConfig("elsewhere.pem", "elsewhere.key"));
  }

  // "<scheme>://<credentials>@127.0.0.1:<port>" ("<scheme>://127.0.0.1:<port>" without).
  static std::string urlOf(const NatsServerProcess& server, const std::string& credentials,
                           const std::string& scheme = "nats") {
    return scheme + "://" + (credentials.empty() ? "" : credentials + "@") +
           "127.0.0.1:" + std::to_string(server.port());
  }
  static std::string hostOf(const NatsServerProcess& server, const std::string& scheme = "nats") {
    return urlOf(server, "", scheme);
  }

 private:
  static const NatsServerProcess& started(std::unique_ptr<NatsServerProcess>& server,
                                          const std::string& config) {
    if (!server) {
      server = std::make_unique<NatsServerProcess>(config);
      server->start();
    }
    return *server;
  }

  static inline std::unique_ptr<NatsServerProcess> tokenServer;
  static inline std::unique_ptr<NatsServerProcess> userServer;
  static inline std::unique_ptr<NatsServerProcess> tlsServer;
  static inline std::unique_ptr<NatsServerProcess> misnamedServer;
};

// The text a NatsLink constructor fails with for `options`, and how long it took; empty
// when it connected (the test then fails).
struct Refusal {
  std::string text;
  Clock::duration took{};
};
template <typename Make>
Refusal refusalOf(Make make) {
  const auto begin = Clock::now();
  try {
    make();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(typeid(error), typeid(std::runtime_error));
    return {error.what(), Clock::now() - begin};
  }
  ADD_FAILURE() << "connected";
  return {};
}

// Link options with a short connect time-out, so that a refusal taking it would show.
NatsLinkOptions linkOptions(const std::string& url, const std::string& caFile = "") {
  NatsLinkOptions options = natstest::linkOptions(url);
  options.connectTimeout = std::chrono::seconds(2);
  options.caFile = caFile;
  return options;
}

// A refusal comes back well before the connect time-out: no retry, no waiting.
constexpr auto kAtOnce = std::chrono::milliseconds(1000);

void expectReservationCrosses(const std::string& url, const std::string& caFile = "") {
  auto listen = natstest::listenerOptions(url);
  listen.caFile = caFile;
  FarShop far(listen);
  ClientShop client(linkOptions(url, caFile));
  std::unique_ptr<connector::Message> answer = client.reserve("LAMP-01", 2);
  auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
  ASSERT_NE(reservation, nullptr);
  EXPECT_TRUE(reservation->accepted);
  EXPECT_EQ(far.nodes->inventory->available("LAMP-01"), 1000000 - 2);
}

TEST_F(NatsSecurityTest, TheRightTokenInTheUrlIsAcceptedAndTheBridgeCrosses) {
  expectReservationCrosses(urlOf(tokens(), kToken));
}

TEST_F(NatsSecurityTest, AWrongTokenIsRefusedAtOnceWithATextWithoutTheToken) {
  const Refusal refusal =
      refusalOf([&] { NatsLink link(linkOptions(urlOf(tokens(), kWrongToken))); });
  EXPECT_EQ(refusal.text, "NatsLink cannot connect to " + hostOf(tokens()) +
                              ": the server refused the credentials (Authorization Violation)");
  EXPECT_EQ(refusal.text.find(kWrongToken), std::string::npos);
  EXPECT_LT(refusal.took, kAtOnce);
}

TEST_F(NatsSecurityTest, NoTokenAtAllIsRefusedTheSameWay) {
  EXPECT_THROW_TEXT(NatsLink link(linkOptions(hostOf(tokens()))), std::runtime_error,
                    "NatsLink cannot connect to " + hostOf(tokens()) +
                        ": the server refused the credentials (Authorization Violation)");
}

TEST_F(NatsSecurityTest, AListenerWithAWrongTokenIsRefusedAtOnceWithoutTheToken) {
  const auto router = std::make_shared<connector::Router>();
  auto options = natstest::listenerOptions(urlOf(tokens(), kWrongToken));
  const Refusal refusal = refusalOf([&] { NatsListener listener(router, options); });
  EXPECT_EQ(refusal.text, "NatsListener cannot connect to " + hostOf(tokens()) +
                              ": the server refused the credentials (Authorization Violation)");
  EXPECT_EQ(refusal.text.find(kWrongToken), std::string::npos);
  EXPECT_LT(refusal.took, kAtOnce);
}

TEST_F(NatsSecurityTest, TheRightUserAndPasswordAreAcceptedAndTheBridgeCrosses) {
  expectReservationCrosses(urlOf(users(), std::string("alice:") + kPassword));
}

TEST_F(NatsSecurityTest, AWrongPasswordOrUserIsRefusedAtOnceWithATextWithoutThePassword) {
  for (const std::string& credentials :
       {std::string("alice:") + kWrongPassword, std::string("mallory:") + kPassword}) {
    const Refusal refusal =
        refusalOf([&] { NatsLink link(linkOptions(urlOf(users(), credentials))); });
    EXPECT_EQ(refusal.text, "NatsLink cannot connect to " + hostOf(users()) +
                                ": the server refused the credentials (Authorization Violation)");
    EXPECT_EQ(refusal.text.find(kWrongPassword), std::string::npos);
    EXPECT_EQ(refusal.text.find(kPassword), std::string::npos);
    EXPECT_LT(refusal.took, kAtOnce);
  }
}

TEST_F(NatsSecurityTest, ATlsUrlWithTheAuthorityTrustedCrossesOverTls) {
  expectReservationCrosses(hostOf(tls(), "tls"), nettest::testPki().file("ca.pem"));
}

TEST_F(NatsSecurityTest, ANatsUrlToATlsServerTurnsToTlsAndVerifiesToo) {
  expectReservationCrosses(hostOf(tls()), nettest::testPki().file("ca.pem"));
  EXPECT_THROW_TEXT(NatsLink link(linkOptions(hostOf(tls()))), std::runtime_error,
                    "NatsLink cannot connect to " + hostOf(tls()) +
                        ": TLS certificate verification failed: unable to get local issuer "
                        "certificate");
}

TEST_F(NatsSecurityTest, ATlsServerWhoseAuthorityIsNotTrustedIsRefusedSayingVerificationFailed) {
  const std::string expected = "NatsLink cannot connect to " + hostOf(tls(), "tls") +
                               ": TLS certificate verification failed: unable to get local "
                               "issuer certificate";
  // The system's store, then an authority that signed something else.
  for (const std::string& caFile : {std::string(), nettest::testPki().file("other-ca.pem")}) {
    const Refusal refusal =
        refusalOf([&] { NatsLink link(linkOptions(hostOf(tls(), "tls"), caFile)); });
    EXPECT_EQ(refusal.text, expected);
    EXPECT_LT(refusal.took, kAtOnce);
  }
}

TEST_F(NatsSecurityTest, ACertificateNamingAnotherHostIsRefused) {
  EXPECT_THROW_TEXT(
      NatsLink link(linkOptions(hostOf(misnamed(), "tls"), nettest::testPki().file("ca.pem"))),
      std::runtime_error,
      "NatsLink cannot connect to " + hostOf(misnamed(), "tls") +
          ": TLS certificate verification failed: IP address mismatch");
}

TEST_F(NatsSecurityTest, ATlsUrlToAPlainServerIsRefusedBeforeTheTokenIsSent) {
  const Refusal refusal =
      refusalOf([&] { NatsLink link(linkOptions(urlOf(tokens(), kToken, "tls"))); });
  EXPECT_EQ(refusal.text,
            "NatsLink cannot connect to " + hostOf(tokens(), "tls") + ": the server offers no TLS");
  EXPECT_EQ(refusal.text.find(kToken), std::string::npos);
  // A CA file asks for TLS whatever the scheme.
  EXPECT_THROW_TEXT(
      NatsLink link(linkOptions(urlOf(tokens(), kToken), nettest::testPki().file("ca.pem"))),
      std::runtime_error,
      "NatsLink cannot connect to " + hostOf(tokens()) + ": the server offers no TLS");
}

TEST_F(NatsSecurityTest, ACaFileThatDoesNotLoadIsRefusedNamingTheFile) {
  const std::string missing = nettest::testPki().path() + "/missing.pem";
  EXPECT_THROW_TEXT(
      NatsLink link(linkOptions(hostOf(tls(), "tls"), missing)), std::runtime_error,
      "NatsLink cannot load the CA file '" + missing + "': No such file or directory");
  const std::string garbage = nettest::testPki().file("garbage.pem");
  EXPECT_THROW_TEXT(
      NatsLink link(linkOptions(hostOf(tls(), "tls"), garbage)), std::runtime_error,
      "NatsLink cannot load the CA file '" + garbage + "': no certificate or crl found");
}

// "127.0.0.1:<port>" where no server listens (a server's port, the server stopped).
std::string deadHost() {
  static const std::string host = [] {
    NatsServerProcess gone;
    gone.start();
    gone.stop();
    return "127.0.0.1:" + std::to_string(gone.port());
  }();
  return host;
}

TEST_F(NatsSecurityTest, EachEntryOfAServerListSendsItsOwnCredentials) {
  // The first entry finds no server; the second one's credentials are the ones sent.
  NatsLink viaUsers(linkOptions("nats://" + std::string(kToken) + "@" + deadHost() + ", " +
                                urlOf(users(), "alice:" + std::string(kPassword))));
  EXPECT_EQ(viaUsers.connectedUrl(), hostOf(users()));
  NatsLink viaTokens(linkOptions("nats://alice:" + std::string(kPassword) + "@" + deadHost() + "," +
                                 urlOf(tokens(), kToken)));
  EXPECT_EQ(viaTokens.connectedUrl(), hostOf(tokens()));
  expectReservationCrosses(urlOf(users(), "alice:" + std::string(kPassword)) + " , nats://" +
                           std::string(kToken) + "@" + deadHost());
}

TEST_F(NatsSecurityTest, ATlsEntryInAServerListConnectsOverTls) {
  const std::string list = "tls://" + deadHost() + ", " + hostOf(tls(), "tls");
  NatsLink link(linkOptions(list, nettest::testPki().file("ca.pem")));
  EXPECT_EQ(link.connectedUrl(), hostOf(tls(), "tls"));
  expectReservationCrosses(list, nettest::testPki().file("ca.pem"));
}

TEST_F(NatsSecurityTest, ARefusalInAServerListNamesTheListWithoutAnySecret) {
  const std::string list = "nats://" + std::string(kWrongToken) + "@" + deadHost() + ",nats://" +
                           std::string(kWrongToken) +
                           "@127.0.0.1:" + std::to_string(tokens().port());
  const Refusal refusal = refusalOf([&] { NatsLink link(linkOptions(list)); });
  EXPECT_EQ(refusal.text, "NatsLink cannot connect to nats://" + deadHost() + "," +
                              hostOf(tokens()) +
                              ": the server refused the credentials (Authorization Violation)");
  EXPECT_EQ(refusal.text.find(kWrongToken), std::string::npos);
}

TEST(DisplayUrlTest, LeavesOutTokensUsersAndPasswordsOfEveryUrl) {
  using connector::nats::displayUrl;
  EXPECT_EQ(displayUrl("nats://127.0.0.1:4222"), "nats://127.0.0.1:4222");
  EXPECT_EQ(displayUrl("nats://s3cret@127.0.0.1:4222"), "nats://127.0.0.1:4222");
  EXPECT_EQ(displayUrl("tls://alice:p@ss/w@rd@nats.example:4222"), "tls://nats.example:4222");
  EXPECT_EQ(displayUrl("tls://t1@a:1,nats://b:2,nats://u:p@c:3"),
            "tls://a:1,nats://b:2,nats://c:3");
  EXPECT_EQ(displayUrl("token@host:4222"), "host:4222");
}

}  // namespace

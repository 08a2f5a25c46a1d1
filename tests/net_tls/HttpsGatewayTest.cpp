// HttpGateway over HTTPS: the bridge round trip through an HttpLink, the handshake's
// deadline, clients that speak no TLS or too old a TLS, and the files it is made from.
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include "EchoGateway.hpp"
#include "NetFixtures.hpp"
#include "RawClient.hpp"
#include "TestPki.hpp"
#include "TlsClient.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using connector::net::HttpGateway;
using connector::net::HttpGatewayOptions;
using connector::net::HttpLinkOptions;
using nettest::EchoGateway;
using nettest::RawClient;
using nettest::testPki;
using nettest::TlsClient;
using std::chrono::milliseconds;

const milliseconds kWait{5000};

HttpGatewayOptions httpsOptions() {
  HttpGatewayOptions options;
  options.tlsCertificateFile = testPki().file("server.pem");
  options.tlsKeyFile = testPki().file("server.key");
  return options;
}

HttpLinkOptions trustingTestCa() {
  HttpLinkOptions options;
  options.caFile = testPki().file("ca.pem");
  return options;
}

std::shared_ptr<connector::Router> anyRouter() { return std::make_shared<connector::Router>(); }

TEST(HttpsGatewayTest, TheBridgeCrossesHttpsFromLinkToGateway) {
  nettest::FarShop far(httpsOptions());
  ASSERT_EQ(far.url().rfind("https://127.0.0.1:", 0), 0u) << far.url();
  nettest::ClientShop client(far.url(), trustingTestCa());
  std::unique_ptr<connector::Message> answer = client.reserve("LAMP-01", 2);
  const auto& reservation = dynamic_cast<shop::Reservation&>(*answer);
  EXPECT_EQ(reservation.sku, "LAMP-01");
  EXPECT_EQ(reservation.quantity, 2);
  EXPECT_TRUE(reservation.accepted);
  // The TLS connection stays open for the next delivery.
  EXPECT_EQ(client.link->idleConnections(), 1u);
  std::unique_ptr<connector::Message> second = client.reserve("LAMP-01", 1);
  EXPECT_TRUE(dynamic_cast<shop::Reservation&>(*second).accepted);
  EXPECT_EQ(client.link->idleConnections(), 1u);
  EXPECT_EQ(far.gateway->requestsServed(), 2u);
}

TEST(HttpsGatewayTest, AFarFailureArrivesOverHttpsWithItsText) {
  nettest::FarShop far(httpsOptions());
  nettest::ClientShop client(far.url(), trustingTestCa());
  EXPECT_THROW_TEXT(client.nodes.client
                        ->deliver(std::make_unique<shop::CancelOrder>("ORD-404"),
                                  connector::Address(shop::kCancelOrder))
                        .get(),
                    std::runtime_error,
                    "POST " + far.url() + "/shop/CancelOrder failed: HTTP 404 Not Found: " +
                        "order not found: ORD-404");
}

TEST(HttpsGatewayTest, KeepAliveAndPipelinedRequestsAreAnsweredInOrderOverTls) {
  EchoGateway echo(httpsOptions());
  TlsClient client(echo.port(), testPki().file("ca.pem"));
  EXPECT_EQ(client.exchange(nettest::post("/echo", R"({"n":1})")).body, R"({"n":1})");
  EXPECT_EQ(client.exchange(nettest::post("/echo", R"({"n":2})")).body, R"({"n":2})");
  nettest::HttpsReply last = client.exchange(nettest::get("/healthz"));
  EXPECT_EQ(last.status, 200);
  EXPECT_EQ(last.body, R"({"status":"ok"})");
  EXPECT_TRUE(last.keepAlive);
}

TEST(HttpsGatewayTest, TlsTwelveIsServedAndOlderProtocolsAreRefusedAndCounted) {
  EchoGateway echo(httpsOptions());
  nettest::TlsClientOptions twelve{testPki().file("ca.pem"), TLS1_2_VERSION};
  TlsClient modern(echo.port(), twelve);
  EXPECT_EQ(modern.protocol(), "TLSv1.2");
  EXPECT_EQ(modern.exchange(nettest::get("/healthz")).status, 200);

  nettest::TlsClientOptions eleven{testPki().file("ca.pem"), TLS1_1_VERSION};
  EXPECT_THROW(TlsClient(echo.port(), eleven), boost::system::system_error);
  EXPECT_EQ(echo.rejected("tls", 1), 1);
}

TEST(HttpsGatewayTest, PlainHttpToTheTlsPortIsClosedAndCounted) {
  EchoGateway echo(httpsOptions());
  RawClient plain(echo.port());
  ASSERT_TRUE(plain.send(nettest::post("/echo", "{}")));
  EXPECT_FALSE(plain.readReply(kWait));
  EXPECT_TRUE(plain.ended);
  EXPECT_EQ(echo.rejected("tls", 1), 1);
  EXPECT_EQ(echo.gateway->requestsServed(), 0u);
}

TEST(HttpsGatewayTest, GarbageToTheTlsPortIsClosedAndCounted) {
  EchoGateway echo(httpsOptions());
  RawClient garbage(echo.port());
  ASSERT_TRUE(garbage.send(std::string("\x16\x03\x01\x00\x05\xff\xff\xff\xff\xff", 10)));
  EXPECT_TRUE(garbage.closedWithin(kWait));
  RawClient noise(echo.port());
  ASSERT_TRUE(noise.send("\x01\x02\x03 this is no handshake at all \r\n\r\n"));
  EXPECT_TRUE(noise.closedWithin(kWait));
  EXPECT_EQ(echo.rejected("tls", 2), 2);
}

TEST(HttpsGatewayTest, AClientThatStallsTheHandshakeIsClosedAtTheHeaderDeadline) {
  HttpGatewayOptions options = httpsOptions();
  options.headerTimeout = milliseconds(300);
  EchoGateway echo(options);
  RawClient silent(echo.port());
  RawClient halfHello(echo.port());
  // A record header announcing a 200-byte handshake message that never comes.
  ASSERT_TRUE(halfHello.send(std::string("\x16\x03\x01\x00\xc8\x01\x00", 7)));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(silent.closedWithin(kWait));
  EXPECT_TRUE(halfHello.closedWithin(kWait));
  const auto waited = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(waited, milliseconds(200));
  EXPECT_LT(waited, milliseconds(3000));
  EXPECT_EQ(echo.rejected("header_timeout", 2), 2);
  EXPECT_EQ(echo.rejected("tls", 0), 0);
}

TEST(HttpsGatewayTest, TheHandshakeAndTheFirstHeaderShareOneDeadline) {
  HttpGatewayOptions options = httpsOptions();
  options.headerTimeout = milliseconds(1000);
  EchoGateway echo(options);
  const auto connected = std::chrono::steady_clock::now();
  // The handshake begins 700 ms after the connection; then no request comes. The
  // connection closes 1 s after it opened, not 1 s after the handshake.
  nettest::TlsClientOptions late{testPki().file("ca.pem")};
  late.delayBeforeHandshake = milliseconds(700);
  TlsClient client(echo.port(), late);
  EXPECT_THROW(client.exchange(""), boost::system::system_error);
  const auto closedAfter = std::chrono::steady_clock::now() - connected;
  EXPECT_GE(closedAfter, milliseconds(900));
  EXPECT_LT(closedAfter, milliseconds(1450));
  EXPECT_EQ(echo.rejected("header_timeout", 1), 1);
}

TEST(HttpsGatewayTest, AClientThatLeavesBeforeItsHelloIsNotCountedAsTls) {
  EchoGateway echo(httpsOptions());
  {
    RawClient probe(echo.port());
    probe.close();
  }
  // A served client afterwards shows that the probe's close was handled first.
  TlsClient client(echo.port(), testPki().file("ca.pem"));
  EXPECT_EQ(client.exchange(nettest::get("/healthz")).status, 200);
  EXPECT_EQ(echo.rejected("tls", 0), 0);
}

TEST(HttpsGatewayTest, AnAnswerThatClosesTheConnectionEndsWithCloseNotify) {
  EchoGateway echo(httpsOptions());
  TlsClient client(echo.port(), testPki().file("ca.pem"));
  nettest::HttpsReply reply =
      client.exchange("GET /healthz HTTP/1.1\r\nHost: t\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(reply.status, 200);
  EXPECT_FALSE(reply.keepAlive);
  // The next read sees the TLS end of stream (close_notify), not a cut connection.
  try {
    client.exchange("");
    ADD_FAILURE() << "the connection stayed open";
  } catch (const boost::system::system_error& error) {
    EXPECT_EQ(error.code(), boost::beast::http::error::end_of_stream) << error.code().message();
  }
}

TEST(HttpsGatewayTest, StopDrainsOpenTlsConnections) {
  HttpGatewayOptions options = httpsOptions();
  options.drainTimeout = milliseconds(2000);
  auto echo = std::make_unique<EchoGateway>(options);
  TlsClient idle(echo->port(), testPki().file("ca.pem"));
  EXPECT_EQ(idle.exchange(nettest::get("/healthz")).status, 200);
  // Lets the gateway see its write done, so the connection is idle when the drain
  // begins (one still writing closes after its answer, lingering up to 2 s).
  std::this_thread::sleep_for(milliseconds(100));
  const auto begin = std::chrono::steady_clock::now();
  echo->gateway->stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(1500));
  EXPECT_THROW(idle.exchange(nettest::get("/healthz")), boost::system::system_error);
}

// ---- the files it is made from ----------------------------------------------------

TEST(HttpsGatewayTest, AMissingCertificateFileFailsConstructionNamingIt) {
  HttpGatewayOptions options = httpsOptions();
  options.tlsCertificateFile = testPki().file("missing.pem");
  EXPECT_THROW_TEXT(HttpGateway(anyRouter(), options), std::runtime_error,
                    "HttpGateway cannot read the TLS certificate file '" +
                        testPki().file("missing.pem") + "': No such file or directory");
}

TEST(HttpsGatewayTest, AMissingKeyFileFailsConstructionNamingIt) {
  HttpGatewayOptions options = httpsOptions();
  options.tlsKeyFile = testPki().file("missing.key");
  EXPECT_THROW_TEXT(HttpGateway(anyRouter(), options), std::runtime_error,
                    "HttpGateway cannot read the TLS key file '" + testPki().file("missing.key") +
                        "': No such file or directory");
}

TEST(HttpsGatewayTest, AFolderInPlaceOfTheCertificateIsUnreadable) {
  HttpGatewayOptions options = httpsOptions();
  options.tlsCertificateFile = testPki().path();
  EXPECT_THROW_TEXT(HttpGateway(anyRouter(), options), std::runtime_error,
                    "HttpGateway cannot read the TLS certificate file '" + testPki().path() +
                        "': Is a directory");
}

TEST(HttpsGatewayTest, AFileThatIsNoCertificateFailsConstructionNamingIt) {
  HttpGatewayOptions options = httpsOptions();
  options.tlsCertificateFile = testPki().file("garbage.pem");
  try {
    HttpGateway gateway(anyRouter(), options);
    ADD_FAILURE() << "constructed";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(typeid(error), typeid(std::runtime_error));
    const std::string prefix = "HttpGateway cannot load the TLS certificate file '" +
                               testPki().file("garbage.pem") + "': ";
    EXPECT_EQ(std::string(error.what()).rfind(prefix, 0), 0u) << error.what();
    EXPECT_GT(std::string(error.what()).size(), prefix.size());
  }
}

TEST(HttpsGatewayTest, AKeyFileThatIsNoKeyFailsConstructionNamingIt) {
  HttpGatewayOptions options = httpsOptions();
  options.tlsKeyFile = testPki().file("garbage.pem");
  try {
    HttpGateway gateway(anyRouter(), options);
    ADD_FAILURE() << "constructed";
  } catch (const std::runtime_error& error) {
    const std::string prefix =
        "HttpGateway cannot load the TLS key file '" + testPki().file("garbage.pem") + "': ";
    EXPECT_EQ(std::string(error.what()).rfind(prefix, 0), 0u) << error.what();
  }
}

TEST(HttpsGatewayTest, AKeyOfAnotherCertificateFailsConstruction) {
  HttpGatewayOptions options = httpsOptions();
  options.tlsKeyFile = testPki().file("elsewhere.key");
  EXPECT_THROW_TEXT(HttpGateway(anyRouter(), options), std::runtime_error,
                    "HttpGateway: the TLS key file '" + testPki().file("elsewhere.key") +
                        "' does not match the certificate in '" + testPki().file("server.pem") +
                        "'");
}

TEST(HttpsGatewayTest, ACertificateWithoutAKeyIsRefused) {
  HttpGatewayOptions options = httpsOptions();
  options.tlsKeyFile.clear();
  EXPECT_THROW_TEXT(HttpGateway(anyRouter(), options), std::invalid_argument,
                    "HttpGateway needs both tlsCertificateFile and tlsKeyFile");
  options = httpsOptions();
  options.tlsCertificateFile.clear();
  EXPECT_THROW_TEXT(HttpGateway(anyRouter(), options), std::invalid_argument,
                    "HttpGateway needs both tlsCertificateFile and tlsKeyFile");
}

TEST(HttpsGatewayTest, APlainGatewayStillSpeaksHttp) {
  nettest::FarShop far;
  EXPECT_EQ(far.url().rfind("http://127.0.0.1:", 0), 0u);
  EXPECT_EQ(nettest::rawExchange(far.port(), "GET", "/healthz").status, 200);
}

}  // namespace

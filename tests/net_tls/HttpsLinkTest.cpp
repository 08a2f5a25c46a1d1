// HttpLink over HTTPS: which server certificates it accepts, the text of a refusal, and
// its TLS and token options.
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <openssl/x509.h>

#include "NetFixtures.hpp"
#include "TestPki.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using connector::Address;
using connector::net::HttpGatewayOptions;
using connector::net::HttpLink;
using connector::net::HttpLinkOptions;
using nettest::testPki;

HttpGatewayOptions serving(const std::string& name) {
  HttpGatewayOptions options;
  options.tlsCertificateFile = testPki().file(name + ".pem");
  options.tlsKeyFile = testPki().file(name + ".key");
  return options;
}

HttpLinkOptions trusting(const std::string& caFile) {
  HttpLinkOptions options;
  options.caFile = caFile;
  return options;
}

std::string verifyText(int code) { return X509_verify_cert_error_string(code); }

TEST(HttpsLinkTest, ACertificateFromAnUntrustedAuthorityFailsTheDelivery) {
  nettest::FarShop far(serving("server"));
  nettest::ClientShop client(far.url(), trusting(testPki().file("other-ca.pem")));
  EXPECT_THROW_TEXT(client.reserve("LAMP-01", 1), std::runtime_error,
                    "POST " + far.url() +
                        "/shop/ReserveItem failed: TLS certificate verification failed: " +
                        verifyText(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY));
  EXPECT_EQ(far.gateway->requestsServed(), 0u);
  EXPECT_EQ(client.link->idleConnections(), 0u);
}

TEST(HttpsLinkTest, TheSystemStoreDoesNotTrustAPrivateAuthority) {
  nettest::FarShop far(serving("server"));
  nettest::ClientShop client(far.url());  // no CA file: the system's store
  EXPECT_THROW_TEXT(client.reserve("LAMP-01", 1), std::runtime_error,
                    "POST " + far.url() +
                        "/shop/ReserveItem failed: TLS certificate verification failed: " +
                        verifyText(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY));
}

TEST(HttpsLinkTest, ACertificateForAnotherHostFailsTheDelivery) {
  nettest::FarShop far(serving("elsewhere"));  // names 127.0.0.2 only
  nettest::ClientShop client(far.url(), trusting(testPki().file("ca.pem")));
  EXPECT_THROW_TEXT(client.reserve("LAMP-01", 1), std::runtime_error,
                    "POST " + far.url() +
                        "/shop/ReserveItem failed: TLS certificate verification failed: the "
                        "certificate does not name 127.0.0.1");
  EXPECT_EQ(far.gateway->requestsServed(), 0u);
}

TEST(HttpsLinkTest, TheHostNameInTheUrlIsCheckedAgainstTheCertificate) {
  nettest::FarShop far(serving("server"));  // names localhost and 127.0.0.1
  const std::string byName = "https://localhost:" + std::to_string(far.port());
  nettest::ClientShop client(byName, trusting(testPki().file("ca.pem")));
  EXPECT_TRUE(dynamic_cast<shop::Reservation&>(*client.reserve("LAMP-01", 1)).accepted);
}

TEST(HttpsLinkTest, AnHttpsLinkToAPlainHttpServerFailsItsHandshake) {
  nettest::FarShop plain;
  const std::string url = "https://127.0.0.1:" + std::to_string(plain.port());
  nettest::ClientShop client(url, trusting(testPki().file("ca.pem")));
  try {
    client.reserve("LAMP-01", 1);
    ADD_FAILURE() << "delivered";
  } catch (const std::runtime_error& error) {
    const std::string prefix = "POST " + url + "/shop/ReserveItem failed: TLS handshake failed: ";
    EXPECT_EQ(std::string(error.what()).rfind(prefix, 0), 0u) << error.what();
  }
}

TEST(HttpsLinkTest, HttpsUrlsDefaultToPort443) {
  EXPECT_EQ(HttpLink("https://localhost").urlFor(Address("x")), "https://localhost:443/x");
  EXPECT_EQ(HttpLink("https://[::1]:8443/v1").urlFor(Address("a/b")), "https://[::1]:8443/v1/a/b");
}

TEST(HttpsLinkTest, ACaFileIsRefusedWithAPlainHttpUrl) {
  EXPECT_THROW_TEXT(HttpLink("http://localhost", trusting(testPki().file("ca.pem"))),
                    std::invalid_argument, "HttpLink takes a CA file only with an https:// URL");
}

TEST(HttpsLinkTest, AMissingOrUnusableCaFileFailsConstruction) {
  const std::string missing = testPki().file("no-ca.pem");
  EXPECT_THROW_TEXT(
      HttpLink("https://localhost", trusting(missing)), std::runtime_error,
      "HttpLink cannot read the CA file '" + missing + "': No such file or directory");
  const std::string garbage = testPki().file("garbage.pem");
  try {
    HttpLink link("https://localhost", trusting(garbage));
    ADD_FAILURE() << "constructed";
  } catch (const std::runtime_error& error) {
    const std::string prefix = "HttpLink cannot load the CA file '" + garbage + "': ";
    EXPECT_EQ(std::string(error.what()).rfind(prefix, 0), 0u) << error.what();
  }
}

TEST(HttpsLinkTest, ATokenWithCharactersNoBearerTokenHoldsIsRefusedUnquoted) {
  for (const std::string token : {"two words", "quote\"", "line\nbreak", "=leading", "t\xc3\xa9"}) {
    HttpLinkOptions options;
    options.bearerToken = token;
    EXPECT_THROW_TEXT(HttpLink("http://localhost", options), std::invalid_argument,
                      "HttpLink bearer token holds a character a bearer token cannot hold");
  }
}

}  // namespace

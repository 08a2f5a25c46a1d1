#include "connector/net/detail/LinkTls.hpp"

#include <stdexcept>

#include <Poco/Net/IPAddress.h>
#include <Poco/Net/SSLException.h>
#include <Poco/Net/X509Certificate.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "connector/net/detail/ReadableFile.hpp"
#include "connector/net/detail/TlsSettings.hpp"

namespace connector::net::detail {

namespace {

// The first verification error of the handshake running on this thread; OpenSSL calls
// the callback on the thread that runs the handshake.
thread_local int firstVerifyError = X509_V_OK;

int recordVerifyFailure(int ok, X509_STORE_CTX* store) {
  if (ok == 0 && firstVerifyError == X509_V_OK) {
    firstVerifyError = X509_STORE_CTX_get_error(store);
  }
  return ok;
}

}  // namespace

LinkTls::LinkTls(const std::string& caFile) {
  if (!caFile.empty()) requireReadableFile("HttpLink", "CA file", caFile);
  Poco::Net::Context::Params params;
  params.caLocation = caFile;
  params.loadDefaultCAs = caFile.empty();
  params.verificationMode = Poco::Net::Context::VERIFY_RELAXED;
  params.cipherList = kTls12Ciphers;
  params.ecdhCurve = "X25519:P-256:P-384";
  try {
    tlsContext = new Poco::Net::Context(Poco::Net::Context::TLS_CLIENT_USE, params);
  } catch (const Poco::Exception& error) {
    ERR_clear_error();
    throw std::runtime_error(
        caFile.empty() ? "HttpLink cannot load the system's CA store: " + error.message()
                       : "HttpLink cannot load the CA file '" + caFile + "': " + error.message());
  }
  tlsContext->requireMinimumProtocol(Poco::Net::Context::PROTO_TLSV1_2);
  SSL_CTX* native = tlsContext->sslContext();
  SSL_CTX_set_options(native, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
  // Verification as before (peer certificate required, chain to a trusted authority),
  // but the reason of a failure is kept here rather than sent to Poco's handlers.
  SSL_CTX_set_verify(native, SSL_VERIFY_PEER, &recordVerifyFailure);
  // The host name is checked by nameMatches() after the handshake, by OpenSSL's rules
  // (no name lookups, IP addresses against IP entries, loopback hosts included).
  tlsContext->enableExtendedCertificateVerification(false);
}

bool LinkTls::nameMatches(const Poco::Net::SecureStreamSocket& socket, const std::string& host) {
  const Poco::Net::X509Certificate peer = socket.peerCertificate();
  X509* certificate = const_cast<X509*>(peer.certificate());
  Poco::Net::IPAddress address;
  if (Poco::Net::IPAddress::tryParse(host, address)) {
    return X509_check_ip_asc(certificate, host.c_str(), 0) == 1;
  }
  return X509_check_host(certificate, host.data(), host.size(), 0, nullptr) == 1;
}

void LinkTls::clearVerifyFailure() noexcept { firstVerifyError = X509_V_OK; }

std::string LinkTls::verifyFailure() {
  if (firstVerifyError == X509_V_OK) return {};
  return X509_verify_cert_error_string(firstVerifyError);
}

}  // namespace connector::net::detail

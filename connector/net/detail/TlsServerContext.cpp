#include "connector/net/detail/TlsServerContext.hpp"

#include <stdexcept>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include "connector/net/detail/ReadableFile.hpp"

namespace connector::net::detail {

namespace ssl = boost::asio::ssl;

namespace {

// Throws the failure, leaving no OpenSSL error behind on this thread.
[[noreturn]] void fail(const std::string& text) {
  ERR_clear_error();
  throw std::runtime_error(text);
}

}  // namespace

std::unique_ptr<ssl::context> makeTlsServerContext(const std::string& certificateFile,
                                                   const std::string& keyFile) {
  const std::string who = "HttpGateway";
  requireReadableFile(who, "TLS certificate file", certificateFile);
  requireReadableFile(who, "TLS key file", keyFile);

  auto context = std::make_unique<ssl::context>(ssl::context::tls_server);
  SSL_CTX* native = context->native_handle();
  SSL_CTX_set_min_proto_version(native, TLS1_2_VERSION);
  context->set_options(ssl::context::default_workarounds | ssl::context::no_compression |
                       ssl::context::single_dh_use);
  SSL_CTX_set_options(native, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
  SSL_CTX_set_cipher_list(native, kTls12Ciphers);
  // Resumption by stateless tickets only: no server-side session cache to grow with the
  // number of clients (or to sweep), and one ticket per full handshake instead of two.
  SSL_CTX_set_session_cache_mode(native, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_num_tickets(native, 1);
  // A key that needs a passphrase fails to load instead of prompting on the terminal.
  context->set_password_callback([](std::size_t, ssl::context::password_purpose) { return ""; });

  boost::system::error_code error;
  context->use_certificate_chain_file(certificateFile, error);
  if (error) {
    fail(who + " cannot load the TLS certificate file '" + certificateFile +
         "': " + error.message());
  }
  context->use_private_key_file(keyFile, ssl::context::pem, error);
  if (error &&
      ERR_GET_REASON(static_cast<unsigned long>(error.value())) == X509_R_KEY_VALUES_MISMATCH) {
    fail(who + ": the TLS key file '" + keyFile + "' does not match the certificate in '" +
         certificateFile + "'");
  }
  if (error) {
    fail(who + " cannot load the TLS key file '" + keyFile + "': " + error.message());
  }
  if (SSL_CTX_check_private_key(native) != 1) {
    fail(who + ": the TLS key file '" + keyFile + "' does not match the certificate in '" +
         certificateFile + "'");
  }
  return context;
}

}  // namespace connector::net::detail

// A blocking HTTPS client for the gateway's TLS tests (Boost.Beast over Asio's SSL
// stream): it trusts one CA file, may be held to a protocol version, sends the exact
// request bytes it is given and reads one answer.
//
//   nettest::TlsClient client(gateway.port(), pki.file("ca.pem"));   // handshake done
//   nettest::HttpsReply reply = client.exchange(nettest::get("/healthz"));
//   EXPECT_EQ(reply.status, 200);
//
// Construction throws boost::system::system_error when the connection or the handshake
// fails; so does exchange() when the write or the read fails. Each step has a 10 s
// deadline.
//
// Thread-safety: one client per thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include <openssl/ssl.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>

namespace nettest {

struct HttpsReply {
  int status = 0;
  std::string body;
  std::string wwwAuthenticate;
  bool keepAlive = true;
};

struct TlsClientOptions {
  std::string caFile;
  int maxVersion = 0;                                 // e.g. TLS1_1_VERSION; 0: OpenSSL's highest
  std::chrono::milliseconds delayBeforeHandshake{0};  // after the TCP connection
};

class TlsClient {
 public:
  TlsClient(std::uint16_t port, TlsClientOptions options)
      : context(boost::asio::ssl::context::tls_client),
        stream(boost::beast::tcp_stream(io), configured(context, options)) {
    namespace asio = boost::asio;
    auto& tcp = boost::beast::get_lowest_layer(stream);
    tcp.expires_after(std::chrono::seconds(10));
    tcp.async_connect(asio::ip::tcp::endpoint(asio::ip::make_address("127.0.0.1"), port),
                      [this](const boost::system::error_code& error) { outcome = error; });
    wait();
    std::this_thread::sleep_for(options.delayBeforeHandshake);
    tcp.expires_after(std::chrono::seconds(10));
    stream.async_handshake(asio::ssl::stream_base::client,
                           [this](const boost::system::error_code& error) { outcome = error; });
    wait();
  }
  TlsClient(std::uint16_t port, const std::string& caFile)
      : TlsClient(port, TlsClientOptions{caFile}) {}

  // Writes `request` as it is and reads one answer.
  HttpsReply exchange(const std::string& request) {
    namespace http = boost::beast::http;
    boost::beast::get_lowest_layer(stream).expires_after(std::chrono::seconds(10));
    boost::asio::async_write(
        stream, boost::asio::buffer(request),
        [this](const boost::system::error_code& error, std::size_t) { outcome = error; });
    wait();
    http::response<http::string_body> response;
    http::async_read(
        stream, buffer, response,
        [this](const boost::system::error_code& error, std::size_t) { outcome = error; });
    wait();
    HttpsReply reply;
    reply.status = static_cast<int>(response.result_int());
    reply.body = response.body();
    reply.wwwAuthenticate = std::string(response[http::field::www_authenticate]);
    reply.keepAlive = response.keep_alive();
    return reply;
  }

  // The negotiated protocol, e.g. "TLSv1.3".
  std::string protocol() { return SSL_get_version(stream.native_handle()); }

 private:
  // Runs the operation just started to its end (its deadline bounds it); throws its
  // failure.
  void wait() {
    outcome = boost::asio::error::would_block;
    io.restart();
    io.run();
    if (outcome) throw boost::system::system_error(outcome);
  }

  static boost::asio::ssl::context& configured(boost::asio::ssl::context& context,
                                               const TlsClientOptions& options) {
    context.set_verify_mode(boost::asio::ssl::verify_peer);
    context.load_verify_file(options.caFile);
    if (options.maxVersion != 0) {
      // Old protocols need the lowest security level to be offered at all.
      SSL_CTX_set_security_level(context.native_handle(), 0);
      SSL_CTX_set_min_proto_version(context.native_handle(), 0);
      SSL_CTX_set_max_proto_version(context.native_handle(), options.maxVersion);
      SSL_CTX_set_cipher_list(context.native_handle(), "DEFAULT@SECLEVEL=0");
    }
    return context;
  }

  boost::asio::io_context io;
  boost::asio::ssl::context context;
  boost::beast::ssl_stream<boost::beast::tcp_stream> stream;
  boost::beast::flat_buffer buffer;
  boost::system::error_code outcome;
};

}  // namespace nettest

// http_floor_server: the least an HTTP JSON service on Boost.Beast does per request. Each
// POST body is parsed with Poco::JSON and written back compact with its Content-Type, on
// the I/O thread itself; no routing, no types, no bridge, no worker hand-off, no limits
// beyond Beast's defaults. bench/http/run measures connector-gateway against it.
//
//   http_floor_server --port 0 --io-threads 1   # prints "listening on http://127.0.0.1:PORT"
//
// Same socket settings as the gateway: loopback, keep-alive, Nagle off. SIGINT or SIGTERM
// stops it.
#include <csignal>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/strand.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;

std::string reStringify(const std::string& body, http::status& status) {
  std::ostringstream out;
  try {
    Poco::JSON::Parser parser;
    Poco::JSON::Stringifier::stringify(parser.parse(body), out, 0, -1);
  } catch (const Poco::Exception&) {
    status = http::status::bad_request;
    return R"({"error":"bad JSON"})";
  }
  return out.str();
}

class Session : public std::enable_shared_from_this<Session> {
 public:
  explicit Session(tcp::socket socket) : stream(std::move(socket)) {}

  void read() {
    request = {};
    http::async_read(stream, buffer, request,
                     [self = shared_from_this()](beast::error_code error, std::size_t) {
                       if (error) return self->close();
                       self->answer();
                     });
  }

 private:
  void answer() {
    http::status status = http::status::ok;
    response = {};
    response.body() = reStringify(request.body(), status);
    response.result(status);
    response.version(request.version());
    response.set(http::field::content_type, request[http::field::content_type]);
    response.keep_alive(request.keep_alive());
    response.prepare_payload();
    http::async_write(stream, response,
                      [self = shared_from_this()](beast::error_code error, std::size_t) {
                        if (error || !self->response.keep_alive()) return self->close();
                        self->read();
                      });
  }

  void close() {
    beast::error_code ignored;
    stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
  }

  beast::tcp_stream stream;
  beast::flat_buffer buffer;
  http::request<http::string_body> request;
  http::response<http::string_body> response;
};

class Listener : public std::enable_shared_from_this<Listener> {
 public:
  Listener(asio::io_context& io, unsigned short port) : io(io), acceptor(asio::make_strand(io)) {
    const tcp::endpoint endpoint(asio::ip::make_address("127.0.0.1"), port);
    acceptor.open(endpoint.protocol());
    acceptor.set_option(asio::socket_base::reuse_address(true));
    acceptor.bind(endpoint);
    acceptor.listen(asio::socket_base::max_listen_connections);
  }
  unsigned short port() const { return acceptor.local_endpoint().port(); }
  void accept() {
    acceptor.async_accept(asio::make_strand(io),
                          [self = shared_from_this()](beast::error_code error, tcp::socket socket) {
                            if (error == asio::error::operation_aborted) return;
                            if (!error) {
                              socket.set_option(tcp::no_delay(true));
                              std::make_shared<Session>(std::move(socket))->read();
                            }
                            self->accept();
                          });
  }

 private:
  asio::io_context& io;
  tcp::acceptor acceptor;
};

}  // namespace

int main(int argc, char** argv) {
  unsigned short port = 0;
  int ioThreads = 1;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string arg = argv[i];
    if (arg == "--port") {
      port = static_cast<unsigned short>(std::stoi(argv[i + 1]));
    } else if (arg == "--io-threads") {
      ioThreads = std::stoi(argv[i + 1]);
    }
  }
  asio::io_context io(ioThreads);
  auto listener = std::make_shared<Listener>(io, port);
  listener->accept();
  asio::signal_set signals(io, SIGINT, SIGTERM);
  signals.async_wait([&io](beast::error_code, int) { io.stop(); });
  std::cout << "listening on http://127.0.0.1:" << listener->port() << std::endl;
  std::vector<std::thread> threads;
  for (int i = 1; i < ioThreads; ++i) threads.emplace_back([&io] { io.run(); });
  io.run();
  for (std::thread& thread : threads) thread.join();
  return 0;
}

// Fuzz target: the HTTP gateway's request path, from the bytes on the socket through its
// request parser (Beast's, with the gateway's header and body limits) to the answers. The
// input is sent as raw bytes over a loopback TCP connection to a gateway whose router
// serves "fuzz/echo" with a JSON deserializer provider (answering each typed request with
// itself); the sending side is then shut down. Whatever the gateway sends back must parse
// as a sequence of HTTP responses, each with one of its documented statuses, every error
// carrying an {"error":"<text>"} body with a text; it must answer (or close a connection
// that carried no complete request) within a few seconds, and go on serving the next
// input.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <Poco/Net/NetException.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Timespan.h>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>

#include <connector/net/HttpGateway.hpp>
#include <connector/transport/ErrorBody.hpp>

#include "support/FuzzHarness.hpp"

namespace {

using namespace connector;
using namespace connector::fuzzing;

class EchoContext : public Context {
 public:
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message,
                                           Address&& /*address*/) override {
    return makeReadyFuture<std::unique_ptr<Message>>(std::move(message));
  }
};

struct Node {
  Node() {
    auto provider =
        std::make_shared<json::JsonDeserializerServiceProvider>(Harness::instance().serializer);
    router->bind(Address("fuzz/echo"), provider, std::make_shared<EchoContext>());
    router->start();
    net::HttpGatewayOptions options;
    options.threads = 2;
    options.maxBodyBytes = 64 * 1024;
    options.keepAliveTimeout = std::chrono::milliseconds(2000);
    gateway = std::make_unique<net::HttpGateway>(router, options);
    gateway->start();
  }
  std::shared_ptr<Router> router = std::make_shared<Router>();
  std::unique_ptr<net::HttpGateway> gateway;
};

bool documented(int status) {
  switch (status) {
    case 100:  // the interim answer to "Expect: 100-continue"
    case 200:
    case 400:
    case 404:
    case 405:
    case 413:
    case 415:  // a body of a content type other than JSON
    case 431:
    case 503:
      return true;
    default:
      return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Node node;
  Poco::Net::StreamSocket socket;
  socket.connect(Poco::Net::SocketAddress("127.0.0.1", node.gateway->port()));
  socket.setReceiveTimeout(Poco::Timespan(5, 0));
  // Closed with a reset: millions of connections must not use up the local ports.
  socket.setLinger(true, 0);
  try {
    std::size_t sent = 0;
    while (sent < size) {
      sent +=
          static_cast<std::size_t>(socket.sendBytes(data + sent, static_cast<int>(size - sent)));
    }
    socket.shutdownSend();
  } catch (const Poco::Net::NetException&) {
    // The gateway may close early (e.g. after a 413); its answer is read below.
  } catch (const Poco::IOException&) {
  }

  std::string answer;
  char buffer[4096];
  try {
    for (;;) {
      const int n = socket.receiveBytes(buffer, sizeof buffer);
      if (n <= 0) {
        break;
      }
      answer.append(buffer, static_cast<std::size_t>(n));
    }
  } catch (const Poco::TimeoutException&) {
    failWith("the gateway did not answer within 5 s");
  } catch (const Poco::Net::NetException&) {
    // A reset after the answer (the gateway closed with unread input).
  } catch (const Poco::IOException&) {
  }
  if (answer.empty()) {
    return 0;  // nothing that could be answered, e.g. an empty or cut-off request line
  }
  // The answers, one after the other (pipelined requests get one each).
  namespace http = boost::beast::http;
  std::string_view rest = answer;
  while (!rest.empty()) {
    http::response_parser<http::string_body> parser;
    parser.eager(true);
    parser.body_limit(1 << 20);
    boost::beast::error_code error;
    const std::size_t used = parser.put(boost::asio::buffer(rest.data(), rest.size()), error);
    require(!error && parser.is_done(),
            "not an HTTP response (" + error.message() + "): " + std::string(rest.substr(0, 300)));
    const auto& response = parser.get();
    const int status = static_cast<int>(response.result_int());
    require(documented(status), "undocumented status: " + std::string(rest.substr(0, 300)));
    if (status != 200 && status != 100) {
      require(!transport::errorText(response.body()).empty(),
              "an error without its {\"error\":...} body: " + std::string(rest.substr(0, 300)));
    }
    rest.remove_prefix(used);
  }
  return 0;
}

// Fuzz target: the HTTP gateway's request path. The input is sent as raw bytes over a
// loopback TCP connection to a gateway whose router serves "fuzz/echo" with a
// JsonDeserializerServiceProvider (answering each typed request with itself); the
// sending side is then shut down. The gateway must answer with one of its documented
// statuses (or close a connection that carried no request) within a few seconds, and go
// on serving the next input. A 500 is accepted only without a body: that is the HTTP
// server's own answer when the client half-closed before its declared body arrived;
// with an echoing service, a 500 from the gateway itself (which carries its error text)
// would be a fault.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <Poco/Net/NetException.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Timespan.h>

#include <connector/net/HttpGateway.hpp>

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
    case 200:
    case 400:
    case 404:
    case 405:
    case 413:
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
  // "<version> <status> <reason>": the server repeats whatever version the request
  // named (even "H/1.1"), so only the status is checked.
  const std::size_t space = answer.find(' ');
  require(space != std::string::npos && space + 4 <= answer.size() &&
              std::isdigit(static_cast<unsigned char>(answer[space + 1])) != 0,
          "not an HTTP response: " + answer.substr(0, 80));
  const int status = std::atoi(answer.c_str() + space + 1);
  const std::size_t headEnd = answer.find("\r\n\r\n");
  const bool bodiless = headEnd == std::string::npos || headEnd + 4 == answer.size();
  require(documented(status) || (status == 500 && bodiless),
          "undocumented status: " + answer.substr(0, 300));
  return 0;
}

// http_floor_server: the least an HTTP JSON service on Poco::Net does per request. Each
// POST body is parsed with Poco::JSON and written back compact with its Content-Type; no
// routing, no types, no bridge. bench/http/run measures connector-gateway against it.
//
//   http_floor_server --port 0 --threads 8    # prints "listening on http://127.0.0.1:PORT"
//
// Same server settings as the gateway: loopback, keep-alive, one worker per connection,
// Nagle off. SIGINT or SIGTERM stops it.
#include <csignal>
#include <iostream>
#include <sstream>
#include <string>

#include <pthread.h>

#include <Poco/JSON/Parser.h>
#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/StreamCopier.h>
#include <Poco/ThreadPool.h>

namespace {

class ReStringify : public Poco::Net::HTTPRequestHandler {
 public:
  void handleRequest(Poco::Net::HTTPServerRequest& request,
                     Poco::Net::HTTPServerResponse& response) override {
    std::string body;
    Poco::StreamCopier::copyToString(request.stream(), body);
    std::ostringstream out;
    try {
      Poco::JSON::Parser parser;
      Poco::JSON::Stringifier::stringify(parser.parse(body), out, 0, -1);
    } catch (const Poco::Exception& error) {
      response.setStatusAndReason(Poco::Net::HTTPResponse::HTTP_BAD_REQUEST);
      out.str("{\"error\":\"bad JSON\"}");
    }
    const std::string text = out.str();
    response.setContentType(request.getContentType());
    response.sendBuffer(text.data(), text.size());
  }
};

class Factory : public Poco::Net::HTTPRequestHandlerFactory {
 public:
  Poco::Net::HTTPRequestHandler* createRequestHandler(
      const Poco::Net::HTTPServerRequest&) override {
    return new ReStringify;
  }
};

}  // namespace

int main(int argc, char** argv) {
  int port = 0;
  int threads = 16;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string arg = argv[i];
    if (arg == "--port")
      port = std::stoi(argv[i + 1]);
    else if (arg == "--threads")
      threads = std::stoi(argv[i + 1]);
  }
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  Poco::Net::ServerSocket socket;
  socket.bind(Poco::Net::SocketAddress("127.0.0.1", static_cast<Poco::UInt16>(port)), true, false);
  socket.listen(64);
  socket.setNoDelay(true);
  Poco::ThreadPool pool(1, threads);
  Poco::Net::HTTPServerParams::Ptr params = new Poco::Net::HTTPServerParams;
  params->setMaxThreads(threads);
  params->setKeepAlive(true);
  params->setKeepAliveTimeout(Poco::Timespan(15, 0));
  Poco::Net::HTTPServer server(new Factory, pool, socket, params);
  server.start();
  std::cout << "listening on http://127.0.0.1:" << socket.address().port() << std::endl;
  int signal = 0;
  sigwait(&stopSignals, &signal);
  server.stopAll(false);
  pool.joinAll();
  return 0;
}

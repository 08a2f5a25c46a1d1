// HttpGateway in a process that runs out of file descriptors: the accept loop pauses and
// accepts again once descriptors are free. The gateway runs in a forked child whose
// descriptor limit is lowered there, so the test process keeps its own.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "EchoGateway.hpp"
#include "RawClient.hpp"

namespace {

using nettest::RawClient;
using nettest::Reply;
using std::chrono::milliseconds;

// Runs a gateway with at most `limit` descriptors; writes its port to `portOut`, serves
// until `control` reaches its end, then stops and exits. Never returns.
[[noreturn]] void runLimitedGateway(rlim_t limit, int portOut, int control) {
  rlimit limits{};
  ::getrlimit(RLIMIT_NOFILE, &limits);
  limits.rlim_cur = limit;
  if (::setrlimit(RLIMIT_NOFILE, &limits) != 0) ::_exit(3);
  {
    connector::net::HttpGatewayOptions options;
    options.threads = 2;
    options.headerTimeout = std::chrono::seconds(30);  // held connections stay held
    nettest::EchoGateway echo(options);
    const std::uint16_t port = echo.port();
    if (::write(portOut, &port, sizeof port) != sizeof port) ::_exit(4);
    char byte = 0;
    while (::read(control, &byte, 1) > 0) {
    }
  }
  ::_exit(0);
}

TEST(GatewayDescriptorsTest, RunningOutOfDescriptorsDoesNotStopTheAcceptor) {
  int portPipe[2];
  int controlPipe[2];
  ASSERT_EQ(::pipe(portPipe), 0);
  ASSERT_EQ(::pipe(controlPipe), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(portPipe[0]);
    ::close(controlPipe[1]);
    runLimitedGateway(48, portPipe[1], controlPipe[0]);
  }
  ::close(portPipe[1]);
  ::close(controlPipe[0]);
  std::uint16_t port = 0;
  ASSERT_EQ(::read(portPipe[0], &port, sizeof port), static_cast<ssize_t>(sizeof port));
  ::close(portPipe[0]);

  {
    // A connection the client ends, served and closed before descriptors run out: the
    // sanitizer builds check each virtual call's target once, with a pipe, and that
    // check must not be the first one made when no descriptor is left.
    {
      RawClient first(port);
      ASSERT_TRUE(first.send(nettest::post("/echo", "{}")));
      ASSERT_TRUE(first.readReply(milliseconds(5000)));
    }
    bool firstClosed = false;
    for (int i = 0; i < 100 && !firstClosed; ++i) {
      RawClient probe(port);
      ASSERT_TRUE(probe.send(nettest::get("/metrics")));
      std::optional<Reply> metrics = probe.readReply(milliseconds(5000));
      ASSERT_TRUE(metrics);
      firstClosed =
          metrics->body.find("\nconnector_gateway_connections_open 1\n") != std::string::npos;
      if (!firstClosed) std::this_thread::sleep_for(milliseconds(20));
    }
    ASSERT_TRUE(firstClosed);
    // More connections than the child has descriptors: it accepts until it runs out.
    std::vector<std::unique_ptr<RawClient>> held;
    for (int i = 0; i < 80; ++i) held.push_back(std::make_unique<RawClient>(port));
    RawClient waiting(port);
    ASSERT_TRUE(waiting.send(nettest::post("/echo", R"({"w":1})")));
    // Out of descriptors, the gateway cannot take this connection yet...
    EXPECT_FALSE(waiting.readReply(milliseconds(500)));
    EXPECT_FALSE(waiting.ended);
    // ...and takes it once descriptors are free again.
    held.resize(20);
    std::optional<Reply> reply = waiting.readReply(milliseconds(10000));
    ASSERT_TRUE(reply) << "not answered after descriptors were freed";
    EXPECT_EQ(reply->status, 200);
    EXPECT_EQ(reply->body, R"({"w":1})");
    RawClient later(port);
    ASSERT_TRUE(later.send(nettest::post("/echo", "{}")));
    reply = later.readReply(milliseconds(5000));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, 200);
  }

  ::close(controlPipe[1]);  // the child stops its gateway and exits
  int status = 0;
  bool exited = false;
  for (int i = 0; i < 200 && !exited; ++i) {
    exited = ::waitpid(child, &status, WNOHANG) == child;
    if (!exited) std::this_thread::sleep_for(milliseconds(50));
  }
  if (!exited) {
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
  }
  EXPECT_TRUE(exited);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
}

}  // namespace

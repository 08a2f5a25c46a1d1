// NatsServerProcess: a nats-server of the test's own, on a loopback port, started and
// stopped by the test (and restarted on the same port to test reconnection).
//
//   NatsServerProcess server;            // any free port
//   server.start();                      // waits until it accepts clients
//   link options.url = server.url();     // "nats://127.0.0.1:<port>"
//   server.stop();  server.start();      // down and up again, same port
//
// The server's log goes to a file in a temporary folder (removed with the object); a
// start that does not see "Server is ready" in it within 10 s throws with the log's
// text. The child gets SIGKILL should the test process die first, so no server
// outlives a crashed test. `config` (optional) is the text of a configuration file,
// e.g. "max_payload: 4096"; with a cluster block, routePort() tells the port the server
// took for routes (NatsCluster.hpp joins three such servers).
//
// Thread-safety: one thread drives start/stop; url() and port() from any.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace connector::testing {

class NatsServerProcess {
 public:
  explicit NatsServerProcess(std::string config = "") : configText(std::move(config)) {
    char pattern[] = "/tmp/nats-test.XXXXXX";
    if (::mkdtemp(pattern) == nullptr) throw std::runtime_error("cannot make a temporary folder");
    folder = pattern;
  }
  ~NatsServerProcess() {
    stop();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
  NatsServerProcess(const NatsServerProcess&) = delete;
  NatsServerProcess& operator=(const NatsServerProcess&) = delete;

  // Starts the server (on the port of the previous start, if any) and waits until it
  // is ready. Throws std::runtime_error when nats-server is missing or does not start.
  void start() {
    if (child > 0) return;
    const std::string program = findProgram();
    const std::string log = folder + "/server" + std::to_string(++starts) + ".log";
    std::vector<std::string> args = {program, "-a", "127.0.0.1", "-p",
                                     boundPort == 0 ? "-1" : std::to_string(boundPort)};
    if (!configText.empty()) {
      const std::string config = folder + "/server.conf";
      std::ofstream(config) << configText << "\n";
      args.insert(args.end(), {"-c", config});
    }
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error("cannot fork for nats-server");
    if (pid == 0) {
      // Only async-signal-safe calls until exec: the parent has threads.
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (::getppid() != parent) ::_exit(127);
      const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (out >= 0) {
        ::dup2(out, 1);
        ::dup2(out, 2);
      }
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    child = pid;
    waitUntilReady(log);
  }

  // Stops the server: SIGTERM (a clean shutdown that closes the clients' connections) or,
  // with `kill`, SIGKILL; waits for it to end (SIGKILL after 5 s). Never throws.
  void stop(bool kill = false) noexcept {
    if (child <= 0) return;
    ::kill(child, kill ? SIGKILL : SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    child = -1;
  }

  bool running() const noexcept { return child > 0; }
  std::uint16_t port() const noexcept { return boundPort; }
  // The text of the last start's log.
  std::string log() const {
    std::ifstream in(folder + "/server" + std::to_string(starts) + ".log");
    std::ostringstream read;
    read << in.rdbuf();
    return read.str();
  }
  // The route port of a server started with a cluster block; 0 without one.
  std::uint16_t routePort() const noexcept { return boundRoutePort; }
  std::string url() const { return "nats://127.0.0.1:" + std::to_string(boundPort); }

 private:
  static std::string findProgram() {
    for (const char* candidate : {"/usr/sbin/nats-server", "/usr/bin/nats-server"}) {
      if (::access(candidate, X_OK) == 0) return candidate;
    }
    throw std::runtime_error("nats-server is missing: run scripts/install-deps");
  }

  void waitUntilReady(const std::string& log) {
    const std::string listening = "Listening for client connections on 127.0.0.1:";
    const std::string routes = "Listening for route connections on 127.0.0.1:";
    const bool clustered = configText.find("cluster {") != std::string::npos;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string text;
    while (std::chrono::steady_clock::now() < deadline) {
      std::ifstream in(log);
      std::ostringstream read;
      read << in.rdbuf();
      text = read.str();
      const std::size_t at = text.find(listening);
      // The server says it is ready before it opens its route port: with a cluster block
      // it is ready for the test only once that port is known too.
      const std::size_t route = text.find(routes);
      const bool routesKnown = !clustered || route != std::string::npos;
      if (at != std::string::npos && text.find("Server is ready") != std::string::npos &&
          routesKnown) {
        boundPort = static_cast<std::uint16_t>(std::stoi(text.substr(at + listening.size())));
        if (route != std::string::npos) {
          boundRoutePort =
              static_cast<std::uint16_t>(std::stoi(text.substr(route + routes.size())));
        }
        return;
      }
      int status = 0;
      if (::waitpid(child, &status, WNOHANG) == child) {
        child = -1;
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    stop(true);
    throw std::runtime_error("nats-server did not start; its log:\n" + text);
  }

  std::string configText;
  std::string folder;
  int starts = 0;
  pid_t child = -1;
  std::uint16_t boundPort = 0;
  std::uint16_t boundRoutePort = 0;
};

}  // namespace connector::testing

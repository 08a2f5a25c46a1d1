// NodeScript: a Node.js script of the test suite (e.g. tests/nats/js/discover.mjs) run as
// a child process with the repository's npm packages (package.json, installed into
// node_modules by scripts/install-deps with npm ci), so that tests can check the C++ code
// against clients written by others.
//
//   NodeScript client("tests/nats/js/call_listener.mjs", {server.url()});
//   ASSERT_EQ(client.wait(std::chrono::seconds(30)), 0) << client.errors();
//   parse(client.output());
//
//   NodeScript check("tests/net/js/validate_openapi.mjs", {url}, "@apidevtools/swagger-parser");
//
//   NodeScript service("tests/nats/js/serve_in_group.mjs", {server.url()});
//   ASSERT_TRUE(service.waitForLine("ready", std::chrono::seconds(30))) << service.errors();
//   ...                                            // the destructor ends it
//
// The script's path is relative to the repository (CONNECTOR_SOURCE_DIR). A missing node
// or npm package fails the constructor with std::runtime_error saying what to run: such
// a test fails, it never skips. stdout and stderr go to files of a temporary folder
// (removed with the object); stdin is a pipe the object holds, so the script sees its end
// when the object ends or the test process dies (and gets SIGKILL then too).
//
// Thread-safety: one thread drives it.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#ifndef CONNECTOR_SOURCE_DIR
#  error "NodeScript needs CONNECTOR_SOURCE_DIR, the repository's folder"
#endif

namespace connector::testing {

class NodeScript {
 public:
  // `package`: the npm package the script needs (it must be in node_modules).
  NodeScript(const std::string& script, const std::vector<std::string>& args,
             const std::string& package = "nats") {
    const std::string root = CONNECTOR_SOURCE_DIR;
    const std::string node = findNode();
    if (!std::filesystem::exists(root + "/node_modules/" + package + "/package.json")) {
      throw std::runtime_error("the npm package " + package + " is missing from " + root +
                               "/node_modules: run scripts/install-deps (npm ci)");
    }
    char pattern[] = "/tmp/node-test.XXXXXX";
    if (::mkdtemp(pattern) == nullptr) throw std::runtime_error("cannot make a temporary folder");
    folder = pattern;
    std::vector<std::string> line = {node, root + "/" + script};
    line.insert(line.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& arg : line) argv.push_back(arg.data());
    argv.push_back(nullptr);
    int input[2];
    if (::pipe(input) != 0) throw std::runtime_error("cannot make a pipe for node");
    const std::string out = folder + "/stdout";
    const std::string err = folder + "/stderr";
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error("cannot fork for node");
    if (pid == 0) {
      // Only async-signal-safe calls until exec: the parent has threads.
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (::getppid() != parent) ::_exit(127);
      ::dup2(input[0], 0);
      ::close(input[0]);
      ::close(input[1]);
      const int outFile = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int errFile = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (outFile >= 0) ::dup2(outFile, 1);
      if (errFile >= 0) ::dup2(errFile, 2);
      ::chdir(root.c_str());
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(input[0]);
    stdinWrite = input[1];
    child = pid;
  }
  ~NodeScript() {
    stop();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
  NodeScript(const NodeScript&) = delete;
  NodeScript& operator=(const NodeScript&) = delete;

  // Waits for the script to end, at most `limit` (then SIGKILL); its exit status, or -1
  // when it was killed or ended by a signal.
  int wait(std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (child > 0 && std::chrono::steady_clock::now() < deadline) {
      if (reap(WNOHANG)) return status;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    stop();
    return status;
  }

  // Waits until stdout holds the line `line` (true), or the script ended or `limit`
  // passed (false).
  bool waitForLine(const std::string& line, std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
      if (("\n" + output()).find("\n" + line + "\n") != std::string::npos) return true;
      if (child <= 0 || reap(WNOHANG)) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  // Closes its stdin, then SIGTERM, then (after 5 s) SIGKILL; waits for it. Never throws.
  void stop() noexcept {
    if (stdinWrite >= 0) {
      ::close(stdinWrite);
      stdinWrite = -1;
    }
    if (child <= 0) return;
    ::kill(child, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!reap(WNOHANG)) {
      if (std::chrono::steady_clock::now() > deadline) {
        ::kill(child, SIGKILL);
        reap(0);
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

  std::string output() const { return read(folder + "/stdout"); }
  std::string errors() const { return read(folder + "/stderr"); }

 private:
  static std::string findNode() {
    const char* path = std::getenv("PATH");
    std::stringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
      for (const char* name : {"node", "nodejs"}) {
        const std::string candidate = dir + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
      }
    }
    throw std::runtime_error("node is missing: run scripts/install-deps");
  }

  static std::string read(const std::string& file) {
    std::ifstream in(file);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }

  // Reaps the child if it ended; true then.
  bool reap(int flags) {
    int raw = 0;
    if (child <= 0) return true;
    if (::waitpid(child, &raw, flags) != child) return false;
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    child = -1;
    return true;
  }

  std::string folder;
  pid_t child = -1;
  int stdinWrite = -1;
  int status = -1;
};

}  // namespace connector::testing

// A program run as a child process for a test: its standard output and error are read
// through a pipe, line by line with a deadline; signals go to it by pid; it is ended
// (SIGKILL) and reaped when the object goes, if the test did not stop it.
//
//   nettest::ChildProcess gateway({program, "--port", "0"});
//   std::optional<std::string> line = gateway.waitForLine("listening on ", 10s);
//   gateway.signal(SIGTERM);
//   EXPECT_EQ(gateway.waitForExit(10s), 0);
//
// Thread-safety: one thread uses a child.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace nettest {

class ChildProcess {
 public:
  explicit ChildProcess(const std::vector<std::string>& argv) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    const int error = ::posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    output = fds[0];
    if (error != 0) {
      ::close(output);
      throw std::runtime_error("cannot start " + argv[0] + ": " + std::strerror(error));
    }
  }
  ~ChildProcess() {
    if (pid > 0) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
    }
    ::close(output);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void signal(int number) const { ::kill(pid, number); }

  // The rest of the first line, from now on, that starts with `prefix`; nothing when the
  // output ends or `timeout` passes first.
  std::optional<std::string> waitForLine(const std::string& prefix,
                                         std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
      std::size_t end = 0;
      while ((end = pending.find('\n')) != std::string::npos) {
        std::string line = pending.substr(0, end);
        pending.erase(0, end + 1);
        seen += line + "\n";
        if (line.rfind(prefix, 0) == 0) return line.substr(prefix.size());
      }
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      pollfd waiting{output, POLLIN, 0};
      if (left.count() <= 0 || ::poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
        return std::nullopt;
      }
      char chunk[4096];
      const ssize_t n = ::read(output, chunk, sizeof chunk);
      if (n <= 0) return std::nullopt;
      pending.append(chunk, static_cast<std::size_t>(n));
    }
  }

  // The exit status once the child ends within `timeout`; -1 when it does not (it is
  // then killed) or ends on a signal.
  int waitForExit(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        pid = -1;
        return -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // Every line read so far (for failure messages).
  const std::string& linesSeen() const { return seen; }

 private:
  pid_t pid = -1;
  int output = -1;
  std::string pending;
  std::string seen;
};

}  // namespace nettest

// A plain TCP client for the gateway's limit tests: it sends exactly the bytes it is
// given (half a header, a header without its body, pipelined requests) and reads
// answers with a deadline, so a test can tell an answer, a close and a silence apart.
//
//   nettest::RawClient client(gateway.port());
//   client.send("GET / HTTP/1.1\r\nHost: t\r\n\r\n");
//   std::optional<nettest::Reply> reply = client.readReply(std::chrono::seconds(5));
//
// Thread-safety: one client per thread.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace nettest {

struct Reply {
  int status = 0;
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;
  std::string header(const std::string& name) const {
    auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
  }
  bool closes() const { return header("connection") == "close"; }
};

// Opens a loopback connection; -1 when it is refused (errno tells why).
inline int connectLoopback(std::uint16_t port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const int error = errno;
    ::close(fd);
    errno = error;
    return -1;
  }
  return fd;
}

class RawClient {
 public:
  explicit RawClient(std::uint16_t port) : fd(connectLoopback(port)) {
    if (fd < 0) throw std::runtime_error("cannot connect: " + std::string(std::strerror(errno)));
  }
  ~RawClient() { close(); }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  void close() {
    if (fd >= 0) ::close(fd);
    fd = -1;
  }

  // Sends all bytes; false when the connection failed first.
  bool send(const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) return false;
      sent += static_cast<std::size_t>(n);
    }
    return true;
  }

  void shutdownSending() { ::shutdown(fd, SHUT_WR); }

  // The next complete answer (its body by Content-Length), or nothing when the
  // connection ends or `timeout` passes first.
  std::optional<Reply> readReply(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
      if (std::optional<Reply> reply = takeReply()) return reply;
      if (!fill(deadline)) return std::nullopt;
    }
  }

  // True when the server ends the connection (end of stream or reset) within `timeout`;
  // what it sends before is dropped.
  bool closedWithin(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (fill(deadline)) pending.clear();
    return ended;
  }

  bool ended = false;     // the server closed or reset the connection
  bool timedOut = false;  // the last read ran into its deadline

 private:
  // Reads what arrives before the deadline; false at end of stream, error or deadline.
  bool fill(std::chrono::steady_clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd waiting{fd, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
      timedOut = true;
      return false;
    }
    char chunk[65536];
    const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) {
      ended = true;
      return false;
    }
    pending.append(chunk, static_cast<std::size_t>(n));
    return true;
  }

  std::optional<Reply> takeReply() {
    const std::size_t headEnd = pending.find("\r\n\r\n");
    if (headEnd == std::string::npos) return std::nullopt;
    Reply reply;
    const std::size_t space = pending.find(' ');
    if (space == std::string::npos || space > headEnd) return std::nullopt;
    reply.status = std::atoi(pending.c_str() + space + 1);
    std::size_t line = pending.find("\r\n") + 2;
    while (line < headEnd) {
      const std::size_t end = pending.find("\r\n", line);
      const std::size_t colon = pending.find(':', line);
      if (colon != std::string::npos && colon < end) {
        std::string name = pending.substr(line, colon - line);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        std::size_t value = colon + 1;
        while (value < end && pending[value] == ' ') ++value;
        reply.headers[name] = pending.substr(value, end - value);
      }
      line = end + 2;
    }
    const std::size_t length = static_cast<std::size_t>(
        std::strtoull(reply.header("content-length").c_str(), nullptr, 10));
    if (pending.size() < headEnd + 4 + length) return std::nullopt;
    reply.body = pending.substr(headEnd + 4, length);
    pending.erase(0, headEnd + 4 + length);
    return reply;
  }

  int fd = -1;
  std::string pending;
};

// "POST <target>" with a JSON body, keep-alive.
inline std::string post(const std::string& target, const std::string& body) {
  return "POST " + target + " HTTP/1.1\r\nHost: t\r\nContent-Type: application/json\r\n" +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

inline std::string get(const std::string& target) {
  return "GET " + target + " HTTP/1.1\r\nHost: t\r\n\r\n";
}

}  // namespace nettest

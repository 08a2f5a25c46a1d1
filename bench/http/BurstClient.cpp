// http_burst_client: a burst of new connections against an HTTP server on loopback, for
// bench/http/run. It opens COUNT connections as fast as it can (non-blocking connects, a
// few dozen at a time between looks at the ones already open), each sends one POST as
// soon as it is connected, and it times every answer from its connection's start (the
// connect call) to the last byte of the answer.
//
//   http_burst_client PORT COUNT PATH BODY [SECONDS]
//   # burst 5000 connections: answered 5000, failed 0; from each connection's start:
//   #   p50 41.2 ms, p99 180.3 ms, max 210.7 ms; within 2 s: 5000; opened in 96 ms
//
// Stops after SECONDS (default 10) whatever is left; exits 0 when every request was
// answered with a 2xx status within 2 s of its connection's start. Loopback only.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Connection {
  int fd = -1;
  Clock::time_point started;
  std::string received;
  bool sent = false;
  bool done = false;
  bool answered = false;
  double millis = 0;
};

// The status of a complete answer in `bytes`, 0 while it is incomplete.
int completeStatus(const std::string& bytes) {
  const std::size_t end = bytes.find("\r\n\r\n");
  if (end == std::string::npos) return 0;
  std::size_t length = 0;
  const std::size_t field = bytes.find("\r\nContent-Length: ");
  if (field != std::string::npos && field < end) {
    length = std::strtoul(bytes.c_str() + field + 18, nullptr, 10);
  }
  if (bytes.size() < end + 4 + length) return 0;
  return std::atoi(bytes.c_str() + bytes.find(' ') + 1);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: http_burst_client PORT COUNT PATH BODY [SECONDS]\n");
    return 2;
  }
  const int port = std::atoi(argv[1]);
  const int count = std::atoi(argv[2]);
  const std::string path = argv[3];
  const std::string body = argv[4];
  const double seconds = argc > 5 ? std::atof(argv[5]) : 10.0;
  const std::string request = "POST " + path +
                              " HTTP/1.1\r\nHost: bench\r\nContent-Type: application/json\r\n"
                              "Content-Length: " +
                              std::to_string(body.size()) + "\r\n\r\n" + body;

  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);

  const int poller = epoll_create1(EPOLL_CLOEXEC);
  std::vector<Connection> connections(static_cast<std::size_t>(count));
  const Clock::time_point begin = Clock::now();
  const Clock::time_point deadline =
      begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  int opened = 0;
  int finished = 0;
  int failed = 0;
  double openedMillis = 0;
  std::vector<epoll_event> events(1024);
  while (finished < count && Clock::now() < deadline) {
    // A few dozen new connections, then a look at the open ones.
    for (int i = 0; i < 32 && opened < count; ++i, ++opened) {
      Connection& c = connections[static_cast<std::size_t>(opened)];
      c.started = Clock::now();
      c.fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      const int one = 1;
      setsockopt(c.fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
      if (c.fd < 0 ||
          (connect(c.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
           errno != EINPROGRESS)) {
        c.done = true;
        ++failed;
        ++finished;
        continue;
      }
      epoll_event interest{};
      interest.events = EPOLLOUT | EPOLLIN | EPOLLRDHUP;
      interest.data.u32 = static_cast<std::uint32_t>(opened);
      epoll_ctl(poller, EPOLL_CTL_ADD, c.fd, &interest);
      if (opened + 1 == count) {
        openedMillis = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
      }
    }
    const int ready =
        epoll_wait(poller, events.data(), static_cast<int>(events.size()), opened < count ? 0 : 50);
    for (int e = 0; e < ready; ++e) {
      Connection& c = connections[events[static_cast<std::size_t>(e)].data.u32];
      if (c.done) continue;
      const std::uint32_t what = events[static_cast<std::size_t>(e)].events;
      if (!c.sent && (what & EPOLLOUT) != 0 && (what & (EPOLLERR | EPOLLHUP)) == 0) {
        // Connected: the request goes at once (it fits one send on loopback).
        c.sent = send(c.fd, request.data(), request.size(), MSG_NOSIGNAL) ==
                 static_cast<ssize_t>(request.size());
        epoll_event interest{};
        interest.events = EPOLLIN | EPOLLRDHUP;
        interest.data.u32 = events[static_cast<std::size_t>(e)].data.u32;
        epoll_ctl(poller, EPOLL_CTL_MOD, c.fd, &interest);
      }
      bool ended = (what & (EPOLLERR | EPOLLHUP)) != 0;
      if ((what & EPOLLIN) != 0) {
        char chunk[4096];
        for (;;) {
          const ssize_t n = recv(c.fd, chunk, sizeof chunk, 0);
          if (n > 0) {
            c.received.append(chunk, static_cast<std::size_t>(n));
            continue;
          }
          if (n == 0 || errno != EAGAIN) ended = true;
          break;
        }
      }
      const int status = completeStatus(c.received);
      if (status != 0 || ended) {
        c.done = true;
        c.answered = status >= 200 && status < 300;
        c.millis = std::chrono::duration<double, std::milli>(Clock::now() - c.started).count();
        if (!c.answered) ++failed;
        ++finished;
        close(c.fd);
      }
    }
  }
  std::vector<double> times;
  int withinTwoSeconds = 0;
  for (Connection& c : connections) {
    if (!c.done && c.fd >= 0) close(c.fd);
    if (!c.answered) continue;
    times.push_back(c.millis);
    if (c.millis <= 2000) ++withinTwoSeconds;
  }
  std::sort(times.begin(), times.end());
  auto at = [&](double q) {
    return times.empty()
               ? 0.0
               : times[std::min(times.size() - 1, static_cast<std::size_t>(q * times.size()))];
  };
  std::printf(
      "burst %d connections: answered %zu, failed %d, unfinished %d; from each connection's "
      "start: p50 %.1f ms, p99 %.1f ms, max %.1f ms; within 2 s: %d; opened in %.0f ms\n",
      count, times.size(), failed, count - finished, at(0.5), at(0.99),
      times.empty() ? 0.0 : times.back(), withinTwoSeconds, openedMillis);
  close(poller);
  return withinTwoSeconds == count ? 0 : 1;
}

// detail::GatewayListener: the accept loop of an HttpGateway, on the first event loop. It
// hands every accepted socket to the core (a session on one of the loops, each in turn,
// or a 503 over maxConnections) and never stops on its own: when the process is out of
// file descriptors (or memory for sockets) it pauses 100 ms and accepts again; every
// other failure is skipped at once. Private to connector/net.
//
//   auto listener = std::make_shared<GatewayListener>(loops, core);
//   listener->open(endpoint);   // throws boost::system::system_error
//   listener->run();
//   listener->close();          // from any thread; the loop ends
//
// Each time the listening socket is ready, every connection waiting in its backlog is
// taken, up to kAcceptBatch, before the loop serves anything else: however many
// connections are open and busy, a new one waits one turn of the loop, not one turn per
// connection queued before it.
//
// Thread-safety: open() before run(); close() from any thread (posted to the loop).
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "connector/net/detail/Socket.hpp"

namespace connector::net::detail {

class EventLoops;
class GatewayCore;

class GatewayListener : public std::enable_shared_from_this<GatewayListener> {
 public:
  static constexpr std::chrono::milliseconds kPauseWhenOutOfDescriptors{100};
  // Connections taken from the backlog in one turn at most.
  static constexpr std::size_t kAcceptBatch = 1024;

  GatewayListener(EventLoops& loops, GatewayCore& core);

  void open(const boost::asio::ip::tcp::endpoint& endpoint);
  std::uint16_t port() const { return acceptor.local_endpoint().port(); }
  void run();
  void close();
  // Closes at once, on the calling thread: only while the loops do not run.
  void closeNow() noexcept;

 private:
  void accept();
  void onAccept(const boost::system::error_code& error, Socket socket,
                boost::asio::io_context& loop);
  // Handles a failed accept; false when accepting pauses.
  bool onFailure(const boost::system::error_code& error);

  EventLoops& loops;
  GatewayCore& core;
  boost::asio::io_context& home;  // the loop it runs on
  boost::asio::ip::tcp::acceptor acceptor;
  boost::asio::steady_timer pause;
  bool closed = false;  // on the home loop
};

}  // namespace connector::net::detail

// detail::GatewayListener: the accept loop of an HttpGateway, on its own strand. It hands
// every accepted socket to the core (a session, or a 503 over maxConnections) and never
// stops on its own: when the process is out of file descriptors (or memory for sockets)
// it pauses 100 ms and accepts again; every other failure is skipped at once. Private
// to connector/net.
//
//   auto listener = std::make_shared<GatewayListener>(io, core, ioThreads > 1);
//   listener->open(endpoint);   // throws boost::system::system_error
//   listener->run();
//   listener->close();          // from any thread; the loop ends
//
// Thread-safety: open() before run(); close() from any thread (posted to the strand).
#pragma once

#include <chrono>
#include <memory>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>

namespace connector::net::detail {

class GatewayCore;

class GatewayListener : public std::enable_shared_from_this<GatewayListener> {
 public:
  static constexpr std::chrono::milliseconds kPauseWhenOutOfDescriptors{100};

  // `strandPerConnection`: give each accepted socket a strand (needed with several I/O
  // threads).
  GatewayListener(boost::asio::io_context& io, GatewayCore& core, bool strandPerConnection);

  void open(const boost::asio::ip::tcp::endpoint& endpoint);
  std::uint16_t port() const { return acceptor.local_endpoint().port(); }
  void run();
  void close();
  // Closes at once, on the calling thread: only while the I/O threads do not run.
  void closeNow() noexcept;

 private:
  void accept();
  void onAccept(const boost::system::error_code& error, boost::asio::ip::tcp::socket socket);

  boost::asio::io_context& io;
  GatewayCore& core;
  const bool strandPerConnection;
  boost::asio::strand<boost::asio::io_context::executor_type> strand;
  boost::asio::ip::tcp::acceptor acceptor;
  boost::asio::steady_timer pause;
  bool closed = false;  // on the strand
};

}  // namespace connector::net::detail

// detail::Socket: the socket of one gateway connection, bound to the event loop that owns
// it through the loop's own executor type (no type-erased executor to copy on every
// operation). Private to connector/net.
//
//   Socket socket = acceptor.accept(loop, error);   // loop: a boost::asio::io_context
//
// Thread-safety: as any Asio socket: one operation of each kind at a time, on its loop.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace connector::net::detail {

using Socket =
    boost::asio::ip::tcp::socket::rebind_executor<boost::asio::io_context::executor_type>::other;

}  // namespace connector::net::detail

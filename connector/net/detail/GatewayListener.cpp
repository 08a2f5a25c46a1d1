#include "connector/net/detail/GatewayListener.hpp"

#include <cerrno>
#include <utility>

#include <boost/asio/post.hpp>

#include "connector/net/detail/GatewayCore.hpp"

namespace connector::net::detail {

namespace asio = boost::asio;
using boost::system::error_code;

GatewayListener::GatewayListener(asio::io_context& io, GatewayCore& core, bool strandPerConnection)
    : io(io),
      core(core),
      strandPerConnection(strandPerConnection),
      strand(asio::make_strand(io)),
      acceptor(strand),
      pause(strand) {}

void GatewayListener::open(const asio::ip::tcp::endpoint& endpoint) {
  acceptor.open(endpoint.protocol());
  // Address reuse lets a restarted gateway take its port back at once (no port reuse:
  // two gateways never share a port unnoticed).
  acceptor.set_option(asio::socket_base::reuse_address(true));
  acceptor.bind(endpoint);
  acceptor.listen(asio::socket_base::max_listen_connections);
}

void GatewayListener::run() {
  asio::post(strand, [self = shared_from_this()] { self->accept(); });
}

void GatewayListener::close() {
  asio::post(strand, [self = shared_from_this()] {
    self->closed = true;
    error_code ignored;
    self->pause.cancel();
    self->acceptor.close(ignored);
  });
}

void GatewayListener::closeNow() noexcept {
  closed = true;
  error_code ignored;
  acceptor.close(ignored);
}

void GatewayListener::accept() {
  if (closed) return;
  auto handler = [self = shared_from_this()](const error_code& error,
                                             asio::ip::tcp::socket socket) {
    self->onAccept(error, std::move(socket));
  };
  // With several I/O threads each connection gets a strand of its own; with one, the
  // thread itself keeps a connection's handlers apart.
  if (strandPerConnection) {
    acceptor.async_accept(asio::make_strand(io), std::move(handler));
  } else {
    acceptor.async_accept(io.get_executor(), std::move(handler));
  }
}

void GatewayListener::onAccept(const error_code& error, asio::ip::tcp::socket socket) {
  if (closed || error == asio::error::operation_aborted) return;
  if (error) {
    // Compared as codes, not as conditions: nothing here may need a descriptor, not
    // even a sanitizer's check of a virtual call.
    const bool outOfResources =
        error == asio::error::no_descriptors || error == asio::error::no_buffer_space ||
        error == asio::error::no_memory ||
        (error.category() == boost::system::system_category() && error.value() == ENFILE);
    if (outOfResources) {
      // The pending connection stays in the backlog; once a descriptor is free again it
      // is accepted.
      pause.expires_after(kPauseWhenOutOfDescriptors);
      pause.async_wait([self = shared_from_this()](const error_code&) { self->accept(); });
      return;
    }
    accept();  // e.g. a connection the client aborted before it was accepted
    return;
  }
  core.accepted(std::move(socket));
  accept();
}

}  // namespace connector::net::detail

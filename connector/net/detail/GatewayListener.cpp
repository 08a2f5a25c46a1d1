#include "connector/net/detail/GatewayListener.hpp"

#include <cerrno>
#include <utility>

#include <boost/asio/post.hpp>

#include "connector/net/detail/EventLoops.hpp"
#include "connector/net/detail/GatewayCore.hpp"

namespace connector::net::detail {

namespace asio = boost::asio;
using boost::system::error_code;

GatewayListener::GatewayListener(EventLoops& loops, GatewayCore& core)
    : loops(loops), core(core), home(loops.loop(0)), acceptor(home), pause(home) {}

void GatewayListener::open(const asio::ip::tcp::endpoint& endpoint) {
  acceptor.open(endpoint.protocol());
  // Address reuse lets a restarted gateway take its port back at once (no port reuse:
  // two gateways never share a port unnoticed).
  acceptor.set_option(asio::socket_base::reuse_address(true));
  acceptor.bind(endpoint);
  acceptor.listen(asio::socket_base::max_listen_connections);
  // The batch after each ready turn ends when the backlog is empty, not in a wait.
  acceptor.non_blocking(true);
}

void GatewayListener::run() {
  asio::post(home, [self = shared_from_this()] { self->accept(); });
}

void GatewayListener::close() {
  asio::post(home, [self = shared_from_this()] {
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
  asio::io_context& loop = loops.nextLoop();
  acceptor.async_accept(loop,
                        [self = shared_from_this(), &loop](const error_code& error, Socket socket) {
                          self->onAccept(error, std::move(socket), loop);
                        });
}

void GatewayListener::onAccept(const error_code& error, Socket socket, asio::io_context& loop) {
  if (closed || error == asio::error::operation_aborted) return;
  if (error) {
    if (onFailure(error)) accept();
    return;
  }
  core.accepted(std::move(socket), loop);
  // The rest of the backlog, without waiting for another turn.
  for (std::size_t taken = 1; taken < kAcceptBatch && !closed; ++taken) {
    asio::io_context& next = loops.nextLoop();
    error_code failure;
    Socket more = acceptor.accept(next, failure);
    if (failure == asio::error::would_block || failure == asio::error::try_again) break;
    if (failure) {
      if (!onFailure(failure)) return;
      continue;
    }
    core.accepted(std::move(more), next);
  }
  accept();
}

bool GatewayListener::onFailure(const error_code& error) {
  // Compared as codes, not as conditions: nothing here may need a descriptor, not even a
  // sanitizer's check of a virtual call.
  const bool outOfResources =
      error == asio::error::no_descriptors || error == asio::error::no_buffer_space ||
      error == asio::error::no_memory ||
      (error.category() == boost::system::system_category() && error.value() == ENFILE);
  if (!outOfResources) return true;  // e.g. a connection the client aborted before it was taken
  // The pending connection stays in the backlog; once a descriptor is free again it is
  // accepted.
  pause.expires_after(kPauseWhenOutOfDescriptors);
  pause.async_wait([self = shared_from_this()](const error_code&) { self->accept(); });
  return false;
}

}  // namespace connector::net::detail

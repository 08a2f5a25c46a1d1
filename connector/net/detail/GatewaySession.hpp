// detail::GatewaySession<Stream>: one connection of an HttpGateway. It owns its stream,
// its read buffer and a request parser made afresh for every request (header and body
// limits set on the parser), reads requests one after the other, hands deliveries to the
// scheduler (which runs them on its loop thread when they answer at once), and writes
// the answers in request order. Private to connector/net.
//
//   std::make_shared<GatewaySession<PlainStream>>(std::move(stream), core, true, loop)->start();
//
// Deadlines sit on the stream (expires_at/expires_after before each read and write): a
// connection that misses one is closed. Up to kPipelineDepth requests may wait for their
// answers; past it the session reads no more until answers leave (back-pressure instead
// of growth). A request whose body does not fit the in-flight budget waits, unread.
//
// The session is generic over its stream: PlainStream (HTTP) or TlsStream (HTTPS, a TLS
// stream over a tcp_stream). A TLS session first completes its handshake, within the
// headerTimeout of the connection's first request; a handshake that fails is counted
// (reason "tls") unless the client left before saying anything. A TLS connection that
// closes after its last answer sends close_notify before it stops sending.
//
// Thread-safety: everything runs on the session's event loop, which one thread runs at a
// time; drain() and forceClose() post there, and so do the threads of deliveries that
// end elsewhere (deliveredElsewhere).
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>

#include "connector/net/detail/DataBufferBody.hpp"
#include "connector/net/detail/GatewayCore.hpp"
#include "connector/net/detail/RequestRoute.hpp"

namespace connector::net::detail {

using PlainStream = boost::beast::tcp_stream;
using TlsStream = boost::beast::ssl_stream<boost::beast::tcp_stream>;

// Stops sending on a plain TCP stream (the answer is out; the peer sees the end).
void closeSending(boost::beast::tcp_stream& stream) noexcept;

template <class Stream>
class GatewaySession : public SessionBase,
                       public std::enable_shared_from_this<GatewaySession<Stream>> {
 public:
  static constexpr std::size_t kPipelineDepth = 16;
  // How long a closing connection reads and drops what the client still sends, so that
  // the client reads its answer instead of a reset.
  static constexpr std::chrono::milliseconds kLinger{2000};

  // `counted`: the connection counts against maxConnections (false for one refused).
  // `loop`: the event loop the stream belongs to. On that loop's thread.
  GatewaySession(Stream&& stream, std::shared_ptr<GatewayCore> core, bool counted,
                 boost::asio::io_context& loop);
  ~GatewaySession() override;
  GatewaySession(const GatewaySession&) = delete;
  GatewaySession& operator=(const GatewaySession&) = delete;

  // Serves requests until the client leaves, a deadline passes or the gateway stops.
  void start();
  // Answers 503 "Too many connections" and closes, reading no request.
  void refuse();

  void drain() override;
  void forceClose() override;
  void delivered(std::uint64_t sequence, DeliveryAnswer&& answer) override;
  void deliveredElsewhere(std::uint64_t sequence, DeliveryAnswer&& answer) override;

 private:
  static constexpr bool kTls = std::is_same_v<Stream, TlsStream>;
  using Clock = std::chrono::steady_clock;
  using Parser = boost::beast::http::request_parser<DataBufferBody>;
  using Response = boost::beast::http::response<DataBufferBody>;
  enum class Reading { None, Idle, Header, Budget, Body };

  // One request's place in the answer order.
  struct Slot {
    std::uint64_t sequence = 0;
    unsigned version = 11;
    bool keepAlive = true;  // what the request asked for
    bool close = false;     // the answer closes the connection
    bool ready = false;     // response holds the answer
    bool inFlight = false;  // counted in requests_in_flight
    Clock::time_point started;
    std::string address;  // of a delivery
    Response response;
    bool delivering = false;     // handed to the scheduler, not answered yet
    Clock::time_point deadline;  // of a delivery
  };

  // The TLS handshake (a TlsStream only), then `next`.
  void handshake(void (GatewaySession::*next)());
  void onHandshakeFailure(const boost::beast::error_code& error);
  // The 503 of a connection over maxConnections.
  void answerTooMany();

  // Reading.
  void readRequest();
  void onFirstBytes(const boost::beast::error_code& error, std::size_t bytes);
  void readHeader();
  void onHeader(const boost::beast::error_code& error);
  void waitForBudget(std::size_t bytes);
  void onBudgetGranted();
  void onBudgetTimeout(const boost::beast::error_code& error);
  void readBody();
  void onBody(const boost::beast::error_code& error);
  void onReadFailure(const boost::beast::error_code& error, bool inBody);
  void dispatch();
  // Refuses the request just read unless it carries an accepted bearer token (when the
  // gateway asks for one): turns `route` into a 401.
  void checkToken(const Parser::value_type& request, RequestRoute& route);
  // Logs (when the module logger is on) why the request or connection was refused.
  void logRefusal(const std::string& what);

  // Answers.
  Slot& pushSlot(bool inFlight);
  Slot* find(std::uint64_t sequence);
  void answer(Slot& slot, int status, const std::string& contentType, common::DataBuffer&& body,
              bool close);
  void answerError(Slot& slot, int status, const std::string& text, bool close);
  void answerLocally(Slot& slot, int kind);
  void onDelivered(std::uint64_t sequence, DeliveryAnswer delivered);
  // One timer per session watches the oldest delivery's deadline: deliveries end in
  // order of their deadlines' start, so it is re-armed for the next one only when it
  // fires (no timer work per request).
  void watchDeliveries();
  void onDeliveryTimer(const boost::beast::error_code& error);
  // Ends the current request read with an answer that closes the connection.
  void refuseRead(int status, const std::string& text, std::optional<Rejection> why);

  // Writing and closing.
  void writeNext();
  void onWrite(const boost::beast::error_code& error);
  void sendContinue();
  void maybeRead();
  void linger();
  void dropUntilEnd();
  void onLinger(const boost::beast::error_code& error);
  void shutdownNow();
  void releaseHeld();

  // The core owns the io_context the stream's timers live in: declared first, it is
  // released last, after the stream, when the session is the last one to hold it.
  const std::shared_ptr<GatewayCore> core;
  const bool counted;
  boost::asio::io_context& loop;
  Stream stream;
  boost::beast::flat_buffer buffer;
  std::optional<Parser> parser;

  std::deque<Slot> slots;  // answers in request order
  std::uint64_t nextSequence = 0;
  Reading reading = Reading::None;
  bool firstRequest = true;
  bool writing = false;
  bool closing = false;  // reads no more; closes once the answers are out
  bool closed = false;
  Clock::time_point acceptedAt;
  Clock::time_point headerDeadline;
  std::size_t heldBytes = 0;  // budget taken by the request being read
  std::size_t wantedBytes = 0;
  std::uint64_t waitId = 0;
  std::optional<boost::asio::steady_timer> budgetTimer;
  std::optional<boost::asio::steady_timer> deliveryTimer;
  bool deliveryTimerArmed = false;
};

}  // namespace connector::net::detail

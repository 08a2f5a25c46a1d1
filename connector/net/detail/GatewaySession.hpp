// detail::GatewaySession<Stream>: one connection of an HttpGateway. It owns its stream,
// its read buffer and a request parser made afresh for every request (header and body
// limits set on the parser), reads requests one after the other, hands deliveries to the
// scheduler (which runs them on this loop's thread when they answer at once), and writes
// the answers in request order. Private to connector/net.
//
//   std::make_shared<GatewaySession<PlainStream>>(std::move(socket), core, true, loop)->start();
//
// Once warm, a request costs it no allocation beyond what it hands to the delivery (the
// body's buffer, the address and the content type): the head is parsed into strings the
// connection keeps, the answer's head is written into a buffer it keeps, and the answers
// wait in a ring of slots that keep their strings. Up to kPipelineDepth requests may
// wait for their answers; past it the session reads no more until answers leave
// (back-pressure instead of growth). A request whose body does not fit the in-flight
// budget waits, unread.
//
// Deadlines: each read and each write has one (headerTimeout, keepAliveTimeout,
// bodyTimeout), and a connection that misses one is closed. They are kept as times, and
// one timer per connection wakes at the earliest; moving a deadline later costs
// nothing (the timer, when it fires early, sleeps again until the deadline in force).
//
// The session is generic over its stream: PlainStream (HTTP) or TlsStream (HTTPS, a TLS
// stream over the socket). A TLS session first completes its handshake, within the
// headerTimeout of the connection's first request; a handshake that fails is counted
// (reason "tls") unless the client left before saying anything. A TLS connection that
// closes after its last answer sends close_notify before it stops sending.
//
// Thread-safety: everything runs on the session's event loop, which one thread runs at a
// time; drain() and forceClose() post there, and so do the threads of deliveries that
// end elsewhere (deliveredElsewhere).
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>

#include "connector/net/detail/GatewayCore.hpp"
#include "connector/net/detail/RequestParser.hpp"
#include "connector/net/detail/RequestRoute.hpp"

namespace connector::net::detail {

using PlainStream = Socket;
using TlsStream = boost::asio::ssl::stream<Socket>;

template <class Stream>
class GatewaySession : public SessionBase,
                       public std::enable_shared_from_this<GatewaySession<Stream>> {
 public:
  static constexpr std::size_t kPipelineDepth = 16;
  // How long a closing connection reads and drops what the client still sends, so that
  // the client reads its answer instead of a reset.
  static constexpr std::chrono::milliseconds kLinger{2000};

  // `counted`: the connection counts against maxConnections (false for one refused).
  // `loop`: the event loop the socket belongs to. On that loop's thread.
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
  using error_code = boost::system::error_code;
  enum class Reading { None, Idle, Header, Budget, Body };
  // What a missed deadline means.
  enum class Expiry { FirstHeader, KeepAlive, Header, Body, Write, Linger };

  // One request's place in the answer order, and its answer once made.
  struct Slot {
    std::uint64_t sequence = 0;
    unsigned version = 11;
    bool keepAlive = true;    // what the request asked for
    bool close = false;       // the answer closes the connection
    bool ready = false;       // the answer is made
    bool inFlight = false;    // counted in requests_in_flight
    bool delivering = false;  // handed to the scheduler, not answered yet
    bool keptAlive = false;   // what the answer being written says
    Clock::time_point started;
    Clock::time_point deadline;  // of a delivery
    std::string address;         // of a delivery
    int status = 200;
    std::string contentType;
    std::string extraFields;  // whole field lines beyond the usual ones
    common::DataBuffer body;
  };

  // The answers due, in request order: a ring that keeps its slots (and their strings)
  // from one request to the next.
  class Slots {
   public:
    static constexpr std::size_t kCapacity = kPipelineDepth + 2;
    bool empty() const noexcept { return count == 0; }
    std::size_t size() const noexcept { return count; }
    bool full() const noexcept { return count == kCapacity; }
    Slot& front() noexcept { return ring[first]; }
    Slot& back() noexcept { return ring[(first + count - 1) % kCapacity]; }
    Slot& operator[](std::size_t i) noexcept { return ring[(first + i) % kCapacity]; }
    Slot& push() noexcept;
    void pop() noexcept;

   private:
    std::array<Slot, kCapacity> ring;
    std::size_t first = 0;
    std::size_t count = 0;
  };

  // The socket under the stream.
  Socket& socket() noexcept;

  // The TLS handshake (a TlsStream only), then `next`.
  void handshake(void (GatewaySession::*next)());
  void onHandshakeFailure(const error_code& error);
  // The 503 of a connection over maxConnections.
  void answerTooMany();

  // Deadlines.
  void watchRead(Expiry kind, Clock::time_point at);
  void watchWrite(Clock::time_point at);
  void arm(Clock::time_point at);
  void onDeadline(const error_code& error, std::uint64_t generation);
  void expire(Expiry kind);

  // Reading.
  void readRequest();
  void onFirstBytes(const error_code& error, std::size_t bytes);
  void readHeader();
  void onHeader(const error_code& error);
  void waitForBudget(std::size_t bytes);
  void onBudgetGranted();
  void onBudgetTimeout(const error_code& error);
  void readBody();
  void onBody(const error_code& error);
  // The error a read's end of stream means for the request being read.
  error_code endOfStream(const error_code& error);
  void onReadFailure(const error_code& error, bool inBody);
  void dispatch();
  // Refuses the request just read unless it carries an accepted bearer token (when the
  // gateway asks for one): turns `route` into a 401.
  void checkToken(RequestRoute& route);
  // Refuses a delivery whose Content-Type is not JSON: turns `route` into a 415 (the
  // body, if any, is then left unread and the connection closes after the answer).
  void checkContentType(RequestRoute& route);
  // Logs (when the module logger is on) why the request or connection was refused.
  void logRefusal(const std::string& what);

  // Answers.
  Slot* pushSlot(bool inFlight);
  Slot* find(std::uint64_t sequence);
  void answer(Slot& slot, int status, std::string_view contentType, common::DataBuffer&& body,
              bool close);
  void answerError(Slot& slot, int status, const std::string& text, bool close);
  void answerLocally(Slot& slot, const RequestRoute& local);
  // GET /docs and /docs/<file>: the page or a file of it, under the docs' policy.
  void answerDocs(Slot& slot, const RequestRoute& local);
  void onDelivered(std::uint64_t sequence, DeliveryAnswer&& delivered);
  // One timer per session watches the oldest delivery's deadline: deliveries end in
  // order of their deadlines' start, so it is re-armed for the next one only when it
  // fires (no timer work per request).
  void watchDeliveries();
  void onDeliveryTimer(const error_code& error);
  // Ends the current request read with an answer that closes the connection.
  void refuseRead(int status, const std::string& text, std::optional<Rejection> why);

  // Writing and closing.
  void writeNext();
  void onWrite(const error_code& error);
  void sendContinue();
  void maybeRead();
  void linger();
  void dropUntilEnd();
  void onLinger(const error_code& error);
  void shutdownNow();
  void releaseHeld();

  // The core owns the event loop the socket and timers live in: declared first, it is
  // released last, after them, when the session is the last one to hold it.
  const std::shared_ptr<GatewayCore> core;
  const bool counted;
  boost::asio::io_context& loop;
  Stream stream;
  boost::beast::flat_buffer buffer;
  RequestHead head;
  common::DataBuffer body;  // of the request being read
  std::optional<RequestParser> parser;
  RequestRoute route;      // of the request being read
  std::string answerHead;  // of the answer being written

  Slots slots;
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

  // The deadlines in force (max: none) and the timer that wakes at the earliest.
  Clock::time_point readDeadline = Clock::time_point::max();
  Clock::time_point writeDeadline = Clock::time_point::max();
  Expiry readExpiry = Expiry::KeepAlive;
  boost::asio::steady_timer deadlineTimer;
  Clock::time_point armedAt = Clock::time_point::max();  // max: not waiting
  std::uint64_t armGeneration = 0;

  std::optional<boost::asio::steady_timer> budgetTimer;
  std::optional<boost::asio::steady_timer> deliveryTimer;
  bool deliveryTimerArmed = false;
};

}  // namespace connector::net::detail

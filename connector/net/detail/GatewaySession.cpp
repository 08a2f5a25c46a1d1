#include "connector/net/detail/GatewaySession.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include <openssl/ssl.h>
#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/read_size.hpp>
#include <boost/beast/http/error.hpp>

#include "connector/host/ModuleLogger.hpp"
#include "connector/net/detail/ContentType.hpp"
#include "connector/net/detail/ResponseHead.hpp"
#include "connector/transport/ErrorBody.hpp"
#include "connector/transport/FailureAnswer.hpp"
#include "connector/transport/RequestBody.hpp"

namespace connector::net::detail {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace {

constexpr std::string_view kJson = "application/json";

// Reads of a request header or body take at most this much at once.
constexpr std::size_t kReadSize = 65536;

// Answers up to this size go out in one piece with their head over TLS (one record
// rather than two); larger ones are written from where they are.
constexpr std::size_t kJoinedTlsBody = std::size_t{16} * 1024;

bool isHttpError(const boost::system::error_code& error) {
  return &error.category() == &http::make_error_code(http::error::bad_target).category();
}

}  // namespace

// ---- slots --------------------------------------------------------------------------

template <class Stream>
typename GatewaySession<Stream>::Slot& GatewaySession<Stream>::Slots::push() noexcept {
  Slot& slot = ring[(first + count) % kCapacity];
  ++count;
  return slot;
}

template <class Stream>
void GatewaySession<Stream>::Slots::pop() noexcept {
  Slot& slot = ring[first];
  slot.body = common::DataBuffer();  // the answer's bytes are not kept
  first = (first + 1) % kCapacity;
  --count;
}

// ---- life ---------------------------------------------------------------------------

template <class Stream>
GatewaySession<Stream>::GatewaySession(Stream&& stream, std::shared_ptr<GatewayCore> core,
                                       bool counted, asio::io_context& loop)
    : core(std::move(core)),
      counted(counted),
      loop(loop),
      stream(std::move(stream)),
      deadlineTimer(loop) {
  if (counted) this->core->metrics.connectionsOpen.increment();
  if constexpr (!kTls) {
    // Answers are written at once when they fit (writeNext): a full socket must say so,
    // not block.
    error_code ignored;
    socket().non_blocking(true, ignored);
  }
}

template <class Stream>
GatewaySession<Stream>::~GatewaySession() {
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (slots[i].inFlight) core->metrics.requestsInFlight.decrement();
  }
  if (heldBytes > 0) core->budget.release(heldBytes);
  if (counted) {
    core->connections.fetch_sub(1, std::memory_order_relaxed);
    core->metrics.connectionsOpen.decrement();
  }
  core->remove(this);
}

template <class Stream>
Socket& GatewaySession<Stream>::socket() noexcept {
  if constexpr (kTls) {
    return stream.next_layer();
  } else {
    return stream;
  }
}

template <class Stream>
void GatewaySession<Stream>::start() {
  core->add(this->shared_from_this());
  acceptedAt = Clock::now();
  handshake(&GatewaySession::maybeRead);
}

template <class Stream>
void GatewaySession<Stream>::refuse() {
  core->add(this->shared_from_this());
  acceptedAt = Clock::now();
  handshake(&GatewaySession::answerTooMany);
}

template <class Stream>
void GatewaySession<Stream>::answerTooMany() {
  closing = true;
  Slot* slot = pushSlot(false);
  answerError(*slot, 503,
              "Too many connections (limit " + std::to_string(core->options.maxConnections) + ")",
              true);
  writeNext();
}

template <class Stream>
void GatewaySession<Stream>::handshake(void (GatewaySession::*next)()) {
  if constexpr (kTls) {
    // Nothing read yet: a drain closes the connection at once. The handshake and the
    // first request header share one deadline.
    reading = Reading::Idle;
    watchRead(Expiry::FirstHeader, acceptedAt + core->options.headerTimeout);
    stream.async_handshake(asio::ssl::stream_base::server,
                           [self = this->shared_from_this(), next](const error_code& error) {
                             self->reading = Reading::None;
                             if (self->closed) return;
                             if (error) {
                               self->onHandshakeFailure(error);
                               return;
                             }
                             ((*self).*next)();
                           });
  } else {
    (this->*next)();
  }
}

template <class Stream>
void GatewaySession<Stream>::onHandshakeFailure(const error_code& error) {
  if constexpr (kTls) {
    if (error.category() == asio::error::get_ssl_category() ||
        SSL_get_state(stream.native_handle()) != TLS_ST_BEFORE) {
      // Plain HTTP or other bytes that are no TLS handshake, a protocol or cipher the
      // gateway does not speak, an alert from a client that does not trust the
      // certificate, or a handshake cut off after it began. A client that closed
      // before its first message simply left.
      core->metrics.rejected(Rejection::Tls);
      logRefusal("TLS handshake failed: " + error.message());
    }
  }
  shutdownNow();
}

template <class Stream>
void GatewaySession<Stream>::drain() {
  asio::post(loop, [self = this->shared_from_this()] {
    if (self->closed) return;
    if (self->reading == Reading::Idle) {
      self->shutdownNow();  // waiting for a request that it will not read
    } else if (self->reading == Reading::None && !self->writing) {
      self->maybeRead();  // closes an idle connection, writes what is ready
      self->writeNext();
    }
  });
}

template <class Stream>
void GatewaySession<Stream>::forceClose() {
  asio::post(loop, [self = this->shared_from_this()] { self->shutdownNow(); });
}

// ---- deadlines ----------------------------------------------------------------------

template <class Stream>
void GatewaySession<Stream>::watchRead(Expiry kind, Clock::time_point at) {
  readExpiry = kind;
  readDeadline = at;
  arm(at);
}

template <class Stream>
void GatewaySession<Stream>::watchWrite(Clock::time_point at) {
  writeDeadline = at;
  arm(at);
}

template <class Stream>
void GatewaySession<Stream>::arm(Clock::time_point at) {
  // A timer that fires earlier looks again then; only an earlier deadline re-arms it.
  if (at >= armedAt || closed) return;
  armedAt = at;
  const std::uint64_t generation = ++armGeneration;
  deadlineTimer.expires_at(at);
  deadlineTimer.async_wait([self = this->shared_from_this(), generation](const error_code& error) {
    self->onDeadline(error, generation);
  });
}

template <class Stream>
void GatewaySession<Stream>::onDeadline(const error_code& error, std::uint64_t generation) {
  if (error || generation != armGeneration) return;  // re-armed earlier, or closed
  armedAt = Clock::time_point::max();
  if (closed) return;
  const Clock::time_point now = Clock::now();
  if (readDeadline <= now) {
    expire(readExpiry);
  } else if (writeDeadline <= now) {
    expire(Expiry::Write);
  } else {
    const Clock::time_point next = std::min(readDeadline, writeDeadline);
    if (next != Clock::time_point::max()) arm(next);
  }
}

template <class Stream>
void GatewaySession<Stream>::expire(Expiry kind) {
  switch (kind) {
    case Expiry::FirstHeader:
    case Expiry::Header:
      core->metrics.rejected(Rejection::HeaderTimeout);
      break;
    case Expiry::Body:
    case Expiry::Write:
      core->metrics.rejected(Rejection::BodyTimeout);
      break;
    case Expiry::KeepAlive:  // an idle connection simply ends
    case Expiry::Linger:
      break;
  }
  // What was pending completes with an error and finds the session closed.
  shutdownNow();
}

// ---- reading ------------------------------------------------------------------------

template <class Stream>
void GatewaySession<Stream>::maybeRead() {
  if (closed || reading != Reading::None) return;
  if (closing || core->draining.load(std::memory_order_relaxed)) {
    // Reads no new request; closes once the answers already due are out.
    closing = true;
    if (slots.empty() && !writing) linger();
    return;
  }
  if (slots.size() >= kPipelineDepth) return;
  // With answers still due and no pipelined bytes, wait for the answers first: the
  // next request's deadlines start once the connection is idle.
  if (!slots.empty() && buffer.size() == 0) return;
  readRequest();
}

template <class Stream>
void GatewaySession<Stream>::readRequest() {
  parser.emplace(head, body);
  parser->header_limit(static_cast<std::uint32_t>(HttpGatewayOptions::kMaxHeaderBytes));
  parser->body_limit(core->options.maxBodyBytes);
  if (buffer.size() > 0) {
    headerDeadline = firstRequest ? acceptedAt + core->options.headerTimeout
                                  : Clock::now() + core->options.headerTimeout;
    readHeader();
    return;
  }
  // An idle connection keeps no large buffer.
  if (buffer.capacity() > 4096) buffer.shrink_to_fit();
  reading = Reading::Idle;
  if (firstRequest) {
    watchRead(Expiry::FirstHeader, acceptedAt + core->options.headerTimeout);
  } else {
    watchRead(Expiry::KeepAlive, Clock::now() + core->options.keepAliveTimeout);
  }
  stream.async_read_some(buffer.prepare(512), [self = this->shared_from_this()](
                                                  const error_code& error, std::size_t bytes) {
    self->onFirstBytes(error, bytes);
  });
}

template <class Stream>
void GatewaySession<Stream>::onFirstBytes(const error_code& error, std::size_t bytes) {
  buffer.commit(bytes);
  reading = Reading::None;
  readDeadline = Clock::time_point::max();
  if (error) {
    // The client closed or the connection failed (a missed deadline closed it already).
    shutdownNow();
    return;
  }
  if (closed) return;
  headerDeadline = firstRequest ? acceptedAt + core->options.headerTimeout
                                : Clock::now() + core->options.headerTimeout;
  readHeader();
}

template <class Stream>
void GatewaySession<Stream>::readHeader() {
  reading = Reading::Header;
  // A header already in the buffer (the common case: it came with the first bytes) is
  // parsed at once, without an asynchronous round.
  error_code error;
  buffer.consume(parser->put(buffer.data(), error));
  if (error != http::error::need_more && (error || parser->is_header_done())) {
    readDeadline = Clock::time_point::max();
    onHeader(error);
    return;
  }
  watchRead(firstRequest ? Expiry::FirstHeader : Expiry::Header, headerDeadline);
  stream.async_read_some(
      buffer.prepare(beast::read_size(buffer, kReadSize)),
      [self = this->shared_from_this()](const error_code& error, std::size_t bytes) {
        self->buffer.commit(bytes);
        if (self->closed) return;
        if (error) {
          self->reading = Reading::None;
          self->onReadFailure(self->endOfStream(error), false);
          return;
        }
        self->readHeader();
      });
}

template <class Stream>
void GatewaySession<Stream>::onHeader(const error_code& error) {
  reading = Reading::None;
  firstRequest = false;
  if (error) {
    onReadFailure(error, false);
    return;
  }
  if (closed) return;
  Slot* slot = pushSlot(true);
  if (slot == nullptr) {  // never past kPipelineDepth: maybeRead() stops reading first
    shutdownNow();
    return;
  }
  slot->version = head.version;
  slot->keepAlive = parser->keep_alive();
  if (!slot->keepAlive) closing = true;

  routeRequest(head.methodText, head.target, route);
  if (core->tokens && route.kind != RequestRoute::Health) checkToken(route);
  if (route.kind == RequestRoute::Deliver) checkContentType(route);
  if (route.kind != RequestRoute::Deliver) {
    // Answered without the body: a body that is there is never read, so the
    // connection closes after the answer.
    const bool unreadBody = !parser->is_done();
    if (route.kind == RequestRoute::Refuse) {
      answerError(*slot, route.status, route.text, unreadBody);
      if (!route.allow.empty()) slot->extraFields.append("Allow: " + route.allow + "\r\n");
      if (route.challenge) slot->extraFields.append("WWW-Authenticate: Bearer\r\n");
    } else {
      answerLocally(*slot, route);
      slot->close = slot->close || unreadBody;
    }
    if (unreadBody) closing = true;
    parser.reset();
    writeNext();
    maybeRead();
    return;
  }
  slot->address.assign(route.address);
  if (parser->is_done()) {  // no body at all
    dispatch();
    return;
  }
  // A body of declared length takes its share of the budget before it is read; a
  // chunked one takes it as it arrives.
  const auto length = parser->content_length();
  if (!length) {
    readBody();
    return;
  }
  const auto bytes = static_cast<std::size_t>(*length);
  if (core->budget.tryAcquire(bytes)) {
    heldBytes = bytes;
    sendContinue();
    readBody();
    return;
  }
  waitForBudget(bytes);
}

template <class Stream>
void GatewaySession<Stream>::checkToken(RequestRoute& route) {
  BearerTokens::Verdict verdict = BearerTokens::Verdict::Malformed;
  if (head.authorizationFields <= 1) {
    verdict = core->tokens->check(head.authorization, head.authorizationFields == 1);
  }
  if (verdict == BearerTokens::Verdict::Accepted) return;
  core->metrics.rejected(Rejection::Auth);
  route.kind = RequestRoute::Refuse;
  route.status = 401;
  route.text = BearerTokens::textOf(verdict);
  route.allow.clear();
  route.challenge = true;
  // The method and the path, not the query (a client may put a token there), and
  // never the header.
  const std::string_view target(head.target);
  logRefusal("401 " + head.methodText + " " +
             std::string(target.substr(0, target.find_first_of("?#"))) + ": " + route.text);
}

template <class Stream>
void GatewaySession<Stream>::checkContentType(RequestRoute& route) {
  // No Content-Type at all is taken for JSON (dispatch delivers it as such).
  if (head.contentType.empty() || isJsonContentType(head.contentType)) return;
  core->metrics.rejected(Rejection::ContentType);
  route.kind = RequestRoute::Refuse;
  route.status = 415;
  route.text = kUnsupportedContentTypeText;
  route.allow.clear();
  route.challenge = false;
}

template <class Stream>
void GatewaySession<Stream>::logRefusal(const std::string& what) {
  json::ModuleLogRecord record;
  if (!record) return;
  error_code ignored;
  const auto peer = socket().remote_endpoint(ignored);
  record << "HttpGateway refused a client at " << peer.address().to_string() << ":" << peer.port()
         << ": " << what;
}

template <class Stream>
void GatewaySession<Stream>::waitForBudget(std::size_t bytes) {
  reading = Reading::Budget;
  wantedBytes = bytes;
  waitId = core->nextWaitId.fetch_add(1, std::memory_order_relaxed);
  budgetTimer.emplace(loop);
  budgetTimer->expires_after(core->options.bodyTimeout);
  budgetTimer->async_wait(
      [self = this->shared_from_this()](const error_code& error) { self->onBudgetTimeout(error); });
  core->budget.acquire(bytes, waitId, [self = this->shared_from_this()] {
    self->core->postBack(self->loop.get_executor(), [self] { self->onBudgetGranted(); });
  });
}

template <class Stream>
void GatewaySession<Stream>::onBudgetGranted() {
  heldBytes = wantedBytes;  // released by the destructor when the session ends first
  budgetTimer->cancel();
  if (closed || reading != Reading::Budget) return;
  reading = Reading::None;
  sendContinue();
  readBody();
}

template <class Stream>
void GatewaySession<Stream>::onBudgetTimeout(const error_code& error) {
  if (error || closed || reading != Reading::Budget) return;
  if (!core->budget.cancel(waitId)) return;  // granted meanwhile; the grant follows
  reading = Reading::None;
  refuseRead(503, "The gateway is busy; try again later", Rejection::Busy);
}

template <class Stream>
void GatewaySession<Stream>::readBody() {
  reading = Reading::Body;
  // Body bytes already in the buffer are parsed at once.
  if (buffer.size() > 0) {
    error_code error;
    const std::size_t used = parser->put(buffer.data(), error);
    buffer.consume(used);
    if (error != http::error::need_more && (error || used > 0)) {
      readDeadline = Clock::time_point::max();
      onBody(error);
      return;
    }
  }
  watchRead(Expiry::Body, Clock::now() + core->options.bodyTimeout);
  stream.async_read_some(
      buffer.prepare(beast::read_size(buffer, kReadSize)),
      [self = this->shared_from_this()](const error_code& error, std::size_t bytes) {
        self->buffer.commit(bytes);
        self->readDeadline = Clock::time_point::max();
        if (self->closed) return;
        if (error) {
          self->reading = Reading::None;
          self->onReadFailure(self->endOfStream(error), true);
          return;
        }
        self->readBody();
      });
}

template <class Stream>
void GatewaySession<Stream>::onBody(const error_code& error) {
  reading = Reading::None;
  if (error) {
    onReadFailure(error, true);
    return;
  }
  if (closed) return;
  if (parser->chunked()) {
    // A chunked body takes the budget as it grows, without waiting (waiting while
    // holding a part could leave every reader waiting for the others).
    const std::size_t size = body.size;
    if (size > heldBytes) {
      if (!core->budget.tryAcquire(size - heldBytes)) {
        refuseRead(503, "The gateway is busy; try again later", Rejection::Busy);
        return;
      }
      heldBytes = size;
    }
  }
  if (!parser->is_done()) {
    readBody();
    return;
  }
  dispatch();
}

template <class Stream>
boost::system::error_code GatewaySession<Stream>::endOfStream(const error_code& error) {
  if (error != asio::error::eof) return error;
  // Before any byte of a request: the client left between requests. Within one: the
  // parser tells whether the request is cut short.
  if (!parser->got_some()) return http::error::end_of_stream;
  error_code ended;
  parser->put_eof(ended);
  return ended ? ended : error_code(http::error::partial_message);
}

template <class Stream>
void GatewaySession<Stream>::onReadFailure(const error_code& error, bool inBody) {
  if (closed) return;
  if (error == http::error::header_limit) {
    refuseRead(431,
               "Request header exceeds the limit of " +
                   std::to_string(HttpGatewayOptions::kMaxHeaderBytes) + " bytes",
               Rejection::HeaderSize);
  } else if (error == http::error::body_limit) {
    refuseRead(413,
               "Request body exceeds the limit of " + std::to_string(core->options.maxBodyBytes) +
                   " bytes",
               Rejection::BodySize);
  } else if (error == http::error::end_of_stream && !inBody) {
    // The client closed between requests.
    closing = true;
    if (slots.empty() && !writing) shutdownNow();
  } else if (error == http::error::partial_message ||
             (error == http::error::end_of_stream && inBody)) {
    refuseRead(400, "Request ends before its body is complete", std::nullopt);
  } else if (isHttpError(error)) {
    refuseRead(400, "Malformed request: " + error.message(), std::nullopt);
  } else {
    shutdownNow();  // the connection failed (reset, aborted, closed)
  }
}

template <class Stream>
void GatewaySession<Stream>::refuseRead(int status, const std::string& text,
                                        std::optional<Rejection> why) {
  if (why) core->metrics.rejected(*why);
  // The request being read owns the last slot when its header was complete.
  const bool headerRead = parser && parser->is_header_done();
  Slot* slot = nullptr;
  if (headerRead && !slots.empty() && !slots.back().ready) {
    slot = &slots.back();
  } else {
    slot = pushSlot(false);
    if (slot == nullptr) {
      shutdownNow();
      return;
    }
    if (parser) slot->version = head.version;
  }
  parser.reset();
  releaseHeld();
  closing = true;
  answerError(*slot, status, text, true);
  writeNext();
}

template <class Stream>
void GatewaySession<Stream>::dispatch() {
  reading = Reading::None;
  parser.reset();
  Slot& slot = slots.back();
  if (!transport::isJsonObjectText(body.view())) {
    // Every service takes a JSON object: anything else is refused here, undelivered.
    // The body was read whole, so the connection stays usable.
    releaseHeld();
    answerError(slot, 400, transport::kNotAnObjectText, false);
    writeNext();
    maybeRead();
    return;
  }
  slot.delivering = true;
  slot.deadline = Clock::now() + core->options.deliveryTimeout;
  watchDeliveries();

  Delivery delivery;
  delivery.client = this->shared_from_this();
  delivery.loop = &loop;
  delivery.sequence = slot.sequence;
  delivery.heldBytes = heldBytes;
  heldBytes = 0;  // given back once the delivery is over
  if (head.contentType.empty()) {
    delivery.contentType.assign(kJson);
  } else {
    delivery.contentType.swap(head.contentType);
  }
  delivery.address = slot.address;
  delivery.deadline = slot.deadline;
  delivery.body = std::move(body);
  core->deliveries.submit(std::move(delivery));
  maybeRead();
}

// ---- answers ------------------------------------------------------------------------

template <class Stream>
typename GatewaySession<Stream>::Slot* GatewaySession<Stream>::pushSlot(bool inFlight) {
  if (slots.full()) return nullptr;
  Slot& slot = slots.push();
  slot.sequence = nextSequence++;
  slot.version = 11;
  slot.keepAlive = true;
  slot.close = false;
  slot.ready = false;
  slot.delivering = false;
  slot.keptAlive = false;
  slot.started = Clock::now();
  slot.address.clear();
  slot.extraFields.clear();
  slot.inFlight = inFlight;
  if (inFlight) core->metrics.requestsInFlight.increment();
  return &slot;
}

template <class Stream>
typename GatewaySession<Stream>::Slot* GatewaySession<Stream>::find(std::uint64_t sequence) {
  if (slots.empty() || sequence < slots.front().sequence) return nullptr;
  const std::uint64_t index = sequence - slots.front().sequence;
  return index < slots.size() ? &slots[static_cast<std::size_t>(index)] : nullptr;
}

template <class Stream>
void GatewaySession<Stream>::answer(Slot& slot, int status, std::string_view contentType,
                                    common::DataBuffer&& body, bool close) {
  slot.status = status;
  slot.contentType.assign(contentType.data(), contentType.size());
  slot.body = std::move(body);
  slot.close = slot.close || close;
  slot.ready = true;
  slot.delivering = false;
  const double seconds = std::chrono::duration<double>(Clock::now() - slot.started).count();
  core->metrics.answered(status, slot.inFlight ? seconds : -1.0);
  core->served.fetch_add(1, std::memory_order_relaxed);
}

template <class Stream>
void GatewaySession<Stream>::answerError(Slot& slot, int status, const std::string& text,
                                         bool close) {
  answer(slot, status, kJson, common::DataBuffer(transport::errorBody(text)), close);
  if (status == 503 && close) slot.extraFields.append("Retry-After: 1\r\n");
}

template <class Stream>
void GatewaySession<Stream>::answerLocally(Slot& slot, const RequestRoute& local) {
  switch (local.kind) {
    case RequestRoute::ListAddresses:
      answer(slot, 200, kJson, common::DataBuffer(core->addressesJson()), false);
      break;
    case RequestRoute::Health:
      if (core->draining.load()) {
        answer(slot, 503, kJson, common::DataBuffer(std::string_view(R"({"status":"draining"})")),
               false);
      } else {
        answer(slot, 200, kJson, common::DataBuffer(std::string_view(R"({"status":"ok"})")), false);
      }
      break;
    case RequestRoute::Schemas:
      answer(slot, 200, kJson,
             common::DataBuffer(core->options.schemas.empty()
                                    ? std::string_view("{}")
                                    : std::string_view(core->options.schemas)),
             false);
      break;
    case RequestRoute::OpenApi:
      if (core->docs.described()) {
        answer(slot, 200, kJson, common::DataBuffer(std::string_view(core->docs.openApi())), false);
      } else {
        answerError(slot, 404, core->docs.missing(), false);
      }
      break;
    case RequestRoute::Docs:
    case RequestRoute::DocsFile:
      answerDocs(slot, local);
      break;
    default:
      answer(slot, 200, "text/plain; version=0.0.4; charset=utf-8",
             common::DataBuffer(core->metricsText()), false);
      break;
  }
}

template <class Stream>
void GatewaySession<Stream>::answerDocs(Slot& slot, const RequestRoute& local) {
  const ApiDocs& docs = core->docs;
  const ApiDocs::File* file =
      local.kind == RequestRoute::Docs ? docs.page() : docs.find(local.address);
  if (file != nullptr) {
    answer(slot, 200, file->type, common::DataBuffer(std::string_view(file->bytes)), false);
  } else if (local.kind == RequestRoute::Docs || docs.page() == nullptr) {
    answerError(slot, 404, docs.missing(), false);
  } else {
    answerError(slot, 404, "No file '" + local.address + "' in the docs", false);
  }
  slot.extraFields.append("Content-Security-Policy: ");
  slot.extraFields.append(kContentSecurityPolicy);
  slot.extraFields.append("\r\nX-Content-Type-Options: nosniff\r\n");
}

template <class Stream>
void GatewaySession<Stream>::delivered(std::uint64_t sequence, DeliveryAnswer&& answer) {
  onDelivered(sequence, std::move(answer));
}

template <class Stream>
void GatewaySession<Stream>::deliveredElsewhere(std::uint64_t sequence, DeliveryAnswer&& answer) {
  core->postBack(loop.get_executor(),
                 [self = this->shared_from_this(), sequence, answer = std::move(answer)]() mutable {
                   self->onDelivered(sequence, std::move(answer));
                 });
}

template <class Stream>
void GatewaySession<Stream>::onDelivered(std::uint64_t sequence, DeliveryAnswer&& delivered) {
  Slot* slot = find(sequence);
  if (closed || slot == nullptr || slot->ready) return;  // answered 504 before, or gone
  answer(*slot, delivered.status, delivered.contentType, std::move(delivered.body), false);
  writeNext();
}

template <class Stream>
void GatewaySession<Stream>::watchDeliveries() {
  if (deliveryTimerArmed || closed) return;
  for (std::size_t i = 0; i < slots.size(); ++i) {
    const Slot& slot = slots[i];
    if (!slot.delivering) continue;
    if (!deliveryTimer) deliveryTimer.emplace(loop);
    deliveryTimer->expires_at(slot.deadline);
    deliveryTimerArmed = true;
    deliveryTimer->async_wait([self = this->shared_from_this()](const error_code& error) {
      self->onDeliveryTimer(error);
    });
    return;
  }
}

template <class Stream>
void GatewaySession<Stream>::onDeliveryTimer(const error_code& error) {
  deliveryTimerArmed = false;
  if (error || closed) return;
  const Clock::time_point now = Clock::now();
  bool answered = false;
  for (std::size_t i = 0; i < slots.size(); ++i) {
    Slot& slot = slots[i];
    if (!slot.delivering || slot.deadline > now) continue;
    core->metrics.rejected(Rejection::DeliveryTimeout);
    // Still waiting for its turn: it will not be delivered at all.
    core->deliveries.withdraw(this, slot.sequence);
    const transport::FailureAnswer late =
        transport::timedOutAnswer(slot.address, core->options.deliveryTimeout);
    answerError(slot, late.status, late.text, false);
    answered = true;
  }
  watchDeliveries();
  if (answered) writeNext();
}

// ---- writing and closing ------------------------------------------------------------

template <class Stream>
void GatewaySession<Stream>::writeNext() {
  if (closed || writing || slots.empty() || !slots.front().ready) return;
  Slot& slot = slots.front();
  // While draining, the last answer due closes the connection.
  const bool lastWhileDraining = core->draining.load(std::memory_order_relaxed) &&
                                 slots.size() == 1 && reading == Reading::None;
  const bool keepAlive = slot.keepAlive && !slot.close && !lastWhileDraining;
  slot.keptAlive = keepAlive;
  if (!keepAlive) closing = true;
  writing = true;
  answerHead.clear();
  appendResponseHead(answerHead, slot.version, slot.status, slot.contentType, slot.body.size,
                     keepAlive, slot.extraFields);
  auto done = [self = this->shared_from_this()](const error_code& error, std::size_t) {
    self->onWrite(error);
  };
  if (kTls && slot.body.size <= kJoinedTlsBody) {
    answerHead.append(slot.body.view());
    watchWrite(Clock::now() + core->options.bodyTimeout);
    asio::async_write(stream, asio::buffer(answerHead), std::move(done));
    return;
  }
  std::array<asio::const_buffer, 2> pieces = {asio::buffer(answerHead),
                                              asio::buffer(slot.body.data, slot.body.size)};
  if constexpr (!kTls) {
    // An answer that fits the socket's send buffer (nearly all do) is written at once:
    // no asynchronous round, no handler. The rest, if any, follows when the socket can
    // take it.
    error_code error;
    const std::size_t sent = socket().write_some(pieces, error);
    if (error != asio::error::would_block && error != asio::error::try_again &&
        (error || sent == answerHead.size() + slot.body.size)) {
      onWrite(error);
      return;
    }
    if (sent >= pieces[0].size()) {
      pieces[1] += sent - pieces[0].size();
      pieces[0] = asio::const_buffer();
    } else {
      pieces[0] += sent;
    }
  }
  watchWrite(Clock::now() + core->options.bodyTimeout);
  asio::async_write(stream, pieces, std::move(done));
}

template <class Stream>
void GatewaySession<Stream>::onWrite(const error_code& error) {
  writing = false;
  writeDeadline = Clock::time_point::max();
  const bool keepAlive = slots.front().keptAlive;
  if (slots.front().inFlight) core->metrics.requestsInFlight.decrement();
  slots.pop();
  if (error) {
    shutdownNow();
    return;
  }
  if (closed) return;
  if (!keepAlive) {
    linger();
    return;
  }
  writeNext();
  maybeRead();
}

template <class Stream>
void GatewaySession<Stream>::sendContinue() {
  if (writing || slots.size() != 1 || !head.expectContinue) return;
  static constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
  // Written before the body is read; nothing else is being written (checked above), and
  // the body read that follows does not write.
  writing = true;
  watchWrite(Clock::now() + core->options.bodyTimeout);
  asio::async_write(stream, asio::buffer(kContinue.data(), kContinue.size()),
                    [self = this->shared_from_this()](const error_code& error, std::size_t) {
                      self->writing = false;
                      self->writeDeadline = Clock::time_point::max();
                      if (error) {
                        self->shutdownNow();
                        return;
                      }
                      self->writeNext();
                    });
}

template <class Stream>
void GatewaySession<Stream>::linger() {
  if (closed) return;
  closing = true;
  releaseHeld();
  parser.reset();
  buffer.consume(buffer.size());
  watchRead(Expiry::Linger,
            Clock::now() + std::min<std::chrono::milliseconds>(kLinger, core->options.bodyTimeout));
  reading = Reading::Idle;
  if constexpr (kTls) {
    // close_notify tells the client that the answer is complete; the shutdown ends
    // when the client answers it or leaves (or the deadline passes).
    stream.async_shutdown([self = this->shared_from_this()](const error_code&) {
      if (self->closed) {
        self->shutdownNow();
        return;
      }
      self->dropUntilEnd();
    });
  } else {
    dropUntilEnd();
  }
}

template <class Stream>
void GatewaySession<Stream>::dropUntilEnd() {
  // What the client still sends is read from the socket and dropped (as bytes, also on
  // a TLS connection), so that it reads its answer instead of a reset.
  error_code ignored;
  socket().shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
  buffer.consume(buffer.size());
  reading = Reading::Idle;
  socket().async_read_some(buffer.prepare(4096), [self = this->shared_from_this()](
                                                     const error_code& error, std::size_t bytes) {
    self->buffer.commit(bytes);
    self->onLinger(error);
  });
}

template <class Stream>
void GatewaySession<Stream>::onLinger(const error_code& error) {
  reading = Reading::None;
  if (error || closed) {
    shutdownNow();
    return;
  }
  dropUntilEnd();
}

template <class Stream>
void GatewaySession<Stream>::shutdownNow() {
  if (closed) return;
  closed = true;
  closing = true;
  if (reading == Reading::Budget && core->budget.cancel(waitId)) reading = Reading::None;
  if (budgetTimer) budgetTimer->cancel();
  if (deliveryTimer) deliveryTimer->cancel();
  deadlineTimer.cancel();
  for (std::size_t i = 0; i < slots.size(); ++i) {
    Slot& slot = slots[i];
    if (slot.delivering) core->deliveries.withdraw(this, slot.sequence);
    slot.delivering = false;
  }
  error_code ignored;
  socket().close(ignored);
}

template <class Stream>
void GatewaySession<Stream>::releaseHeld() {
  if (heldBytes > 0) {
    core->budget.release(heldBytes);
    heldBytes = 0;
  }
}

template class GatewaySession<PlainStream>;
template class GatewaySession<TlsStream>;

}  // namespace connector::net::detail

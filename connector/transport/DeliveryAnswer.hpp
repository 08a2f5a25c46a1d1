// connector::transport::deliverForAnswer: what every transport does with a request it
// received: deliver it as an OpaqueMessage to a router (or any context), wait for the
// answer, and make the status, content type and body it is answered with.
//
//   DeliveryAnswer answer = deliverForAnswer(router.get(), nullptr, "application/json",
//                                            std::move(body), "shop/ReserveItem");
//   reply(answer.status, answer.contentType, answer.body);
//
// Answers: 200 with the answer's content type ("application/json" when it has none) and
// payload; a failure's status (FailureAnswer.hpp) with "application/json" and
// {"error":"<text>"}; 500 "The service at '<address>' answered without an OpaqueMessage"
// for an answer of another type.
//
// Thread-safety: a plain function; it blocks the calling thread while the service works
// (Future::get), so call it from a worker, never from an I/O or delivery thread.
#pragma once

#include <optional>
#include <string>

#include "connector/Export.hpp"
#include "connector/host/Context.hpp"
#include "connector/host/DataBuffer.hpp"
#include "connector/host/Router.hpp"
#include "connector/transport/DeliveryDeadline.hpp"

namespace connector::transport {

struct DeliveryAnswer {
  int status = 200;
  std::string contentType;
  common::DataBuffer body;
};

// Delivers (contentType, body) to `router` at `address`, or to `target` when `router` is
// null, and waits for the answer. `deadline`, when given, is when the requester stops
// waiting: the delivery runs in a DeliveryDeadline scope of it, so that a link it goes
// through tells the next hop. Never throws: even running out of memory is answered 500
// {"error":"Out of memory"}.
// The content type is taken by value: a caller that moves it in saves its copy, and the
// answer's content type is moved out of the answer message likewise.
CONNECTOR_API DeliveryAnswer deliverForAnswer(
    Router* router, Context* target, std::string contentType, common::DataBuffer body,
    const std::string& address,
    std::optional<DeliveryDeadline::Clock::time_point> deadline = std::nullopt) noexcept;

}  // namespace connector::transport

// detail::RequestFailures: the exceptions a NatsLink's request fails with, one maker per
// cause, so that each text is written once. Each is a transport::StatusError whose what()
// is "NATS request to <subject> failed: <cause>" and whose status and answer text are
// what an HTTP edge forwarding the request answers. Private to connector/nats.
//
//   promise.setException(timedOut("connector.shop.ReserveItem", "shop/ReserveItem", limit));
//
// Thread-safety: plain functions.
#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <string>

namespace connector::nats::detail {

// 503 "... failed: no service is listening"; answer "No service is listening at '<address>'".
std::exception_ptr noResponders(const std::string& subject, const std::string& address);

// 504 "... failed: no answer within <n> ms"; answer as the gateway's own time-out,
// "No answer from '<address>' within <n> ms".
std::exception_ptr timedOut(const std::string& subject, const std::string& address,
                            std::chrono::milliseconds limit);

// 504 "... failed: its requester's deadline passed before it was sent" (the delivery ran
// under a DeliveryDeadline already past).
std::exception_ptr deadlinePassed(const std::string& subject);

// 503 "... failed: connection lost" (the request was sent; its answer cannot come).
std::exception_ptr connectionLost(const std::string& subject);

// 503 "... failed: connection closed" (the link was closed or gave up reconnecting).
std::exception_ptr connectionClosed(const std::string& subject);

// 413 "... failed: request of <n> bytes exceeds the server's limit of <max> bytes";
// answer "Request of <n> bytes exceeds the NATS server's limit of <max> bytes".
std::exception_ptr tooLarge(const std::string& subject, std::uint64_t bytes, std::int64_t limit);

// 503 "... failed: <cause>" for a publish that nats.c refused (e.g. its reconnect buffer
// is full).
std::exception_ptr notSent(const std::string& subject, const std::string& cause);

// The far side's error answer: "... failed: status <status>: <text>" with that status and
// text. `header` names where the status came from (Connector-Status,
// Nats-Service-Error-Code); a value that is not a number from 400 to 599 is 500 "...
// failed: answer with the unreadable <header> '<value>'". An empty text becomes "the far
// side answered <status> without an error text".
std::exception_ptr farFailure(const std::string& subject, const char* header,
                              const std::string& status, std::string text);

}  // namespace connector::nats::detail

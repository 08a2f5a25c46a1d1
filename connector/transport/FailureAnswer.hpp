// connector::transport::FailureAnswer: how a transport answers a delivery that failed or
// took too long, as an HTTP-style status code and the text of its {"error":"<text>"}
// body. Every transport (HTTP gateway, NATS listener) answers the same failure alike.
//
//   try {
//     answer = router->deliver(std::move(request), Address(address)).get();
//   } catch (...) {
//     FailureAnswer failure = answerForFailure(std::current_exception(), address, router.get());
//     reply(failure.status, errorBody(failure.text));
//   }
//
// Statuses:
//   any  a StatusError: its status() and answerText(), e.g. a far side's own 404 or 500
//        that a link passed on, 503 when no far service listens, 504 on a link time-out
//   400  std::invalid_argument from a bound address: the service refused the request
//   404  std::invalid_argument and nothing bound at the address (only known with a router)
//   503  std::runtime_error "Service exists but is not running.", or any
//        std::runtime_error while the router is stopped
//   500  any other failure, with its text ("The service failed with an exception of
//        unknown type" for one that is not a std::exception)
//   504  timedOutAnswer: no answer within the transport's delivery time-out
//
// Thread-safety: plain functions; the router is only read (addresses(), isStarted()).
#pragma once

#include <chrono>
#include <exception>
#include <string>

#include "connector/Export.hpp"
#include "connector/host/Router.hpp"

namespace connector::transport {

struct FailureAnswer {
  int status = 500;  // HTTP status code
  std::string text;  // the error text, unescaped
};

// The typed dispatch's text for a provider that is not running.
inline constexpr const char* kNotRunningText = "Service exists but is not running.";
// The text of a failure that is not a std::exception.
inline constexpr const char* kUnknownFailureText =
    "The service failed with an exception of unknown type";

// The answer to a delivery to `address` that failed with `error` (not null). `router`,
// when not null, is the router delivered to: its address table tells an unbound address
// (404) from a refused request (400), and its stopped state makes a runtime failure
// 503. With a null router (any other context) std::invalid_argument is 400. Never
// throws (but std::bad_alloc).
CONNECTOR_API FailureAnswer answerForFailure(const std::exception_ptr& error,
                                             const std::string& address, const Router* router);

// 504 "No answer from '<address>' within <n> ms".
CONNECTOR_API FailureAnswer timedOutAnswer(const std::string& address,
                                           std::chrono::milliseconds limit);

}  // namespace connector::transport

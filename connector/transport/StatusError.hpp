// connector::transport::StatusError: a failure that knows the status a transport answers
// it with, and the text of that answer's {"error":"<text>"} body. A link that reaches a
// far service over a transport throws it for failures whose status is known (the far
// side's own error answer, nobody listening, a time-out), so that an edge that forwards
// requests through that link answers with the same status and text as local serving.
//
//   throw StatusError(504, "NATS request to 'connector.shop.ReserveItem' failed: no answer "
//                          "within 200 ms",
//                     "No answer from 'shop/ReserveItem' within 200 ms");
//   ...
//   catch (const StatusError& failure) {
//     reply(failure.status(), errorBody(failure.answerText()));
//   }
//
// what() is the full description for whoever called the link (it names what was asked
// for); answerText() is what an edge answers with. answerForFailure (FailureAnswer.hpp)
// maps a StatusError to {status(), answerText()}.
//
// Thread-safety: an immutable value; copies share their texts and never throw.
#pragma once

#include <stdexcept>
#include <string>

#include "connector/Export.hpp"

namespace connector::transport {

class CONNECTOR_API StatusError : public std::runtime_error {
 public:
  // `status` is an HTTP-style code (400 to 599 for failures); `what` the full text;
  // `answerText` the text an edge answers with. Throws std::bad_alloc only.
  StatusError(int status, const std::string& what, const std::string& answerText);
  ~StatusError() override;
  StatusError(const StatusError&) noexcept;
  StatusError& operator=(const StatusError&) noexcept;

  int status() const noexcept { return code; }
  const char* answerText() const noexcept { return answer.what(); }

 private:
  int code;
  // Held in a std::runtime_error, whose copies share the text without allocating, so
  // that copying the exception cannot throw.
  std::runtime_error answer;
};

}  // namespace connector::transport

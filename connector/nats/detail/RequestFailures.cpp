#include "connector/nats/detail/RequestFailures.hpp"

#include <charconv>

#include "connector/transport/FailureAnswer.hpp"
#include "connector/transport/StatusError.hpp"

namespace connector::nats::detail {

namespace {

std::exception_ptr failure(int status, const std::string& subject, const std::string& cause,
                           const std::string& answer) {
  return std::make_exception_ptr(
      transport::StatusError(status, "NATS request to " + subject + " failed: " + cause, answer));
}

// Same answer text as the full one.
std::exception_ptr failure(int status, const std::string& subject, const std::string& cause) {
  const std::string text = "NATS request to " + subject + " failed: " + cause;
  return std::make_exception_ptr(transport::StatusError(status, text, text));
}

}  // namespace

std::exception_ptr noResponders(const std::string& subject, const std::string& address) {
  return failure(503, subject, "no service is listening",
                 "No service is listening at '" + address + "'");
}

std::exception_ptr timedOut(const std::string& subject, const std::string& address,
                            std::chrono::milliseconds limit) {
  return failure(504, subject, "no answer within " + std::to_string(limit.count()) + " ms",
                 transport::timedOutAnswer(address, limit).text);
}

std::exception_ptr deadlinePassed(const std::string& subject) {
  return failure(504, subject, "its requester's deadline passed before it was sent");
}

std::exception_ptr connectionLost(const std::string& subject) {
  return failure(503, subject, "connection lost");
}

std::exception_ptr connectionClosed(const std::string& subject) {
  return failure(503, subject, "connection closed");
}

std::exception_ptr tooLarge(const std::string& subject, std::uint64_t bytes, std::int64_t limit) {
  const std::string sizes = std::to_string(bytes) + " bytes exceeds the ";
  const std::string bound = "limit of " + std::to_string(limit) + " bytes";
  return failure(413, subject, "request of " + sizes + "server's " + bound,
                 "Request of " + sizes + "NATS server's " + bound);
}

std::exception_ptr notSent(const std::string& subject, const std::string& cause) {
  return failure(503, subject, cause);
}

std::exception_ptr farFailure(const std::string& subject, const char* header,
                              const std::string& status, std::string text) {
  int code = 0;
  const char* end = status.data() + status.size();
  const auto parsed = std::from_chars(status.data(), end, code);
  if (parsed.ec != std::errc() || parsed.ptr != end || code < 400 || code > 599) {
    return failure(500, subject,
                   "answer with the unreadable " + std::string(header) + " '" + status + "'");
  }
  if (text.empty()) text = "the far side answered " + status + " without an error text";
  return failure(code, subject, "status " + status + ": " + text, text);
}

}  // namespace connector::nats::detail

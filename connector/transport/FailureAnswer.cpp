#include "connector/transport/FailureAnswer.hpp"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "connector/transport/StatusError.hpp"

namespace connector::transport {

namespace {

bool isBound(const Router& router, const std::string& address) {
  const std::vector<Address> bound = router.addresses();
  return std::any_of(bound.begin(), bound.end(),
                     [&](const Address& a) { return a.str() == address; });
}

}  // namespace

FailureAnswer answerForFailure(const std::exception_ptr& error, const std::string& address,
                               const Router* router) {
  try {
    std::rethrow_exception(error);
  } catch (const StatusError& failure) {
    // A link that knows the status, e.g. the far side's own answer: passed on as it is.
    return {failure.status(), failure.answerText()};
  } catch (const std::invalid_argument& failure) {
    // An unbound address and a refused request both arrive as invalid_argument; the
    // address table tells them apart.
    const bool unbound = router != nullptr && !isBound(*router, address);
    return {unbound ? 404 : 400, failure.what()};
  } catch (const std::runtime_error& failure) {
    const bool notRunning = (router != nullptr && !router->isStarted()) ||
                            std::string(failure.what()) == kNotRunningText;
    return {notRunning ? 503 : 500, failure.what()};
  } catch (const std::exception& failure) {
    return {500, failure.what()};
  } catch (...) {
    return {500, kUnknownFailureText};
  }
}

FailureAnswer timedOutAnswer(const std::string& address, std::chrono::milliseconds limit) {
  return {504, "No answer from '" + address + "' within " + std::to_string(limit.count()) + " ms"};
}

}  // namespace connector::transport

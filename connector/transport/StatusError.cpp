#include "connector/transport/StatusError.hpp"

namespace connector::transport {

StatusError::StatusError(int status, const std::string& what, const std::string& answerText)
    : std::runtime_error(what), code(status), answer(answerText) {}

// Defined here so that the class's type information (which exception matching in other
// libraries relies on) has one home.
StatusError::~StatusError() = default;
StatusError::StatusError(const StatusError&) noexcept = default;
StatusError& StatusError::operator=(const StatusError&) noexcept = default;

}  // namespace connector::transport

#include "connector/transport/NotOpaque.hpp"

#include <stdexcept>
#include <typeinfo>

#include "connector/host/Demangle.hpp"

namespace connector::transport {

std::exception_ptr notOpaque(const Message* message, const std::string& link) {
  const std::string what =
      message != nullptr
          ? foundation::core::diag::detail::demangle_typeid_name(typeid(*message).name(), true)
          : std::string("a null message");
  return std::make_exception_ptr(
      std::invalid_argument(link + " delivers only an OpaqueMessage, not " + what));
}

}  // namespace connector::transport

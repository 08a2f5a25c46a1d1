#include "connector/host/Demangle.hpp"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace foundation::core::diag::detail {

std::string demangle_typeid_name(const char* name, bool /*qualified*/) {
  if (name == nullptr) {
    return {};
  }
  if (*name == '*') {
    ++name;
  }
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> readable(
      abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
  if (status != 0 || !readable) {
    return name;
  }
  return readable.get();
}

}  // namespace foundation::core::diag::detail

// foundation::core::diag::detail::demangle_typeid_name: readable class names.
//
//   demangle_typeid_name(typeid(connector::Message).name(), true);  // "connector::Message"
//
// Returns the fully qualified name without any leading keyword, for both flag values
// (the flag asks for the qualified form; this demangler always gives it). A leading
// '*' (the platform's mark for internal-linkage names) is skipped. A name the
// platform demangler cannot read is returned as it was given.
//
// Thread-safety: pure function; safe from any thread.
#pragma once

#include <string>

#include "connector/Export.hpp"

namespace foundation::core::diag::detail {

CONNECTOR_API std::string demangle_typeid_name(const char* name, bool qualified);

}  // namespace foundation::core::diag::detail

// The declared message types that the direct codec's differential tests run: the shop's,
// those of the declared-types tests, and the corpus documents'; each with the name it is
// read by and its JSON Schema (what the document generator works from).
//
//   DirectDifferential both;
//   const auto types = declareTypesInScope(both);   // registers all on both serializers
//
// Thread-safety: declarations are built once and then only read.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <Poco/JSON/Object.h>

#include "support/DirectDifferential.hpp"

namespace connector::testing {

struct TypeInScope {
  std::string name;
  Poco::JSON::Object::Ptr schema;
  // Registers the type's direct codec on serializer with converters that do nothing
  // (empty functions), so that only the direct codec can read or write it.
  std::function<void(json::JsonSerializerImpl&)> registerDirectCodecAlone;
};

// Declares every type in scope on both serializers; returns them in a fixed order.
std::vector<TypeInScope> declareTypesInScope(DirectDifferential& both);

// Whether this build runs under a sanitizer (the tests then run fewer documents).
constexpr bool sanitizedBuild() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return true;
#elif defined(__has_feature)
#  if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  return true;
#  else
  return false;
#  endif
#else
  return false;
#endif
}

}  // namespace connector::testing

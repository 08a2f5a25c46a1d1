// FutureStatus: where a promise/future pair stands.
//
// Thread-safety: a plain enumeration; the shared state reads and writes it under its
// own mutex.
#pragma once

#include <cstdint>

namespace connector {

enum class FutureStatus : std::uint32_t {
  Pending = 0,       // not yet resolved
  HasValue = 1,      // resolved with a value
  HasException = 2,  // resolved with an exception
  Cancelled = 3,     // the future was cancelled; a later value or error is dropped
};

}  // namespace connector

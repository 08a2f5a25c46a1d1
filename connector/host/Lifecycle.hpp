// connector::common::Lifecycle: the start/stop contract of services.
//
//   provider->start();            // the service's own start-up work
//   provider->setRunning(true);   // done by whoever starts services (the Router)
//
// `running` is the first data member and starts false. Typed dispatch reads it with a
// plain load, without a lock.
//
// Thread-safety: whoever starts and stops services must not change `running` while
// deliveries to the service are in flight; the flag is not atomic.
#pragma once

#include "connector/Export.hpp"

namespace connector::common {

class CONNECTOR_API Lifecycle {
 public:
  Lifecycle();
  Lifecycle(const Lifecycle&) = delete;
  Lifecycle& operator=(const Lifecycle&) = delete;
  virtual ~Lifecycle();

  // The service's own start-up and shut-down work.
  virtual void start() = 0;
  virtual void stop() = 0;

  bool isRunning() const noexcept { return running; }
  void setRunning(bool value) noexcept { running = value; }

  bool running = false;
};

}  // namespace connector::common

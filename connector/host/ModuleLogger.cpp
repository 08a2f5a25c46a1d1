#include "connector/host/ModuleLogger.hpp"

#include <iostream>
#include <utility>

#include <boost/log/keywords/severity.hpp>

namespace connector::json {

foundation::log::basic_diagnostic_logger<char> moduleLogger("connector::json");

ModuleLogRecord::ModuleLogRecord() {
  if ((moduleLogger.enabledSeverities() & static_cast<std::uint32_t>(kModuleLogSeverity)) == 0) {
    return;
  }
  // The logger checks that logging is enabled, then sets this thread's severity and
  // opens the record under its own lock.
  record = moduleLogger.logger().open_record(boost::log::keywords::severity = kModuleLogSeverity);
  if (record) {
    compound = StreamProvider::allocate_compound(record);
    exceptionsAtOpen = std::uncaught_exceptions();
  }
}

ModuleLogRecord::~ModuleLogRecord() {
  if (compound == nullptr) {
    return;
  }
  struct Release {
    StreamProvider::stream_compound* compound;
    ~Release() { StreamProvider::release_compound(compound); }
  } release{compound};
  // A record begun before an exception started unwinding is incomplete: drop it.
  if (std::uncaught_exceptions() > exceptionsAtOpen) {
    return;
  }
  compound->stream.flush();
  moduleLogger.logger().push_record(std::move(compound->stream.get_record()));
}

}  // namespace connector::json

// connector::json::moduleLogger: the JSON module's one diagnostic logger, channel
// "connector::json", and the routine that writes the module's error records.
//
//   // in a handler of the module:
//   catch (const std::exception& e) {
//     connector::json::logError("Exception serializing ", name, ", ", e.what());
//     throw;
//   }
//   // an application turns the records on and reads them with any Boost.Log sink:
//   connector::json::moduleLogger.setEnabledSeverities(connector::json::kModuleLogSeverity);
//
// Every record has severity kModuleLogSeverity (512). A record is opened only when bit
// 512 is set in the logger's enabled-severity word; otherwise nothing is opened and
// nothing is written. A record whose writer sees a new exception start unwinding
// before the record is finished is discarded rather than pushed half-written.
//
// Thread-safety: moduleLogger is shared by all threads. The enabled-severity word is
// read without a lock; opening a record takes the carried Boost.Log logger's lock only
// while the severity is set and the record opened; streaming and pushing need no lock
// of this module. A ModuleLogRecord belongs to the thread that created it.
#pragma once

#include <exception>

#include <boost/log/core/record.hpp>
#include <boost/log/sources/record_ostream.hpp>

#include "connector/Export.hpp"
#include "connector/host/DiagnosticLogger.hpp"

namespace connector::json {

// The one severity the module writes, and the bit tested in the enabled-severity word.
inline constexpr int kModuleLogSeverity = 512;

// The module-wide logger; constructed when the library loads, destroyed at unload.
CONNECTOR_API extern foundation::log::basic_diagnostic_logger<char> moduleLogger;

// One record of moduleLogger at severity 512, open from construction to destruction.
//
//   { ModuleLogRecord record; if (record) { record << "text " << value; } }  // pushed here
//
// Construction opens the record only when bit 512 is enabled and the logging core
// accepts it; pieces streamed into a record that was not opened are ignored. The
// destructor pushes the record to the core, or discards it when more exceptions are in
// flight than when it was opened. Throws nothing of its own; a failure of the core or
// of a sink while pushing ends the process (destructors never let exceptions out).
class CONNECTOR_API ModuleLogRecord {
 public:
  ModuleLogRecord();
  ModuleLogRecord(const ModuleLogRecord&) = delete;
  ModuleLogRecord& operator=(const ModuleLogRecord&) = delete;
  ~ModuleLogRecord();

  // True when the record was opened and will be pushed (unless an exception intervenes).
  explicit operator bool() const noexcept { return compound != nullptr; }

  // Appends one piece of text through the record's formatting stream.
  template <typename Piece>
  ModuleLogRecord& operator<<(const Piece& piece) {
    if (compound != nullptr) {
      compound->stream << piece;
    }
    return *this;
  }

 private:
  using StreamProvider = boost::log::aux::stream_provider<char>;

  boost::log::record record;
  StreamProvider::stream_compound* compound = nullptr;
  int exceptionsAtOpen = 0;
};

// Writes one record made of the pieces, in order, when severity 512 is enabled.
template <typename... Pieces>
void logError(const Pieces&... pieces) {
  ModuleLogRecord record;
  if (record) {
    (record << ... << pieces);
  }
}

}  // namespace connector::json

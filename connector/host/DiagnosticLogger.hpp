// foundation::log::basic_diagnostic_logger<char>: a channel logger with a switchboard of
// enabled severities.
//
//   foundation::log::basic_diagnostic_logger<char> log("my::channel");
//   log.setEnabledSeverities(0x200);
//   if (log.enabledSeverities() & 0x200) {
//     BOOST_LOG_SEV(log.logger(), 0x200) << "something failed";
//   }
//
// Records carry the attributes "Severity" (int) and "Channel" (std::string) and go to
// the process-wide Boost.Log core, so sinks that an application adds receive them.
//
// Thread-safety: the enabled-severity word is atomic and may be read and changed from
// any thread without a lock; the carried logger is the thread-safe (_mt) variant.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include <boost/log/sources/severity_channel_logger.hpp>

#include "connector/Export.hpp"

namespace foundation::log {

template <typename CharT>
class basic_diagnostic_logger;

template <>
class CONNECTOR_API basic_diagnostic_logger<char> {
 public:
  using logger_type = boost::log::sources::severity_channel_logger_mt<int, std::string>;

  explicit basic_diagnostic_logger(const std::string& channel);
  basic_diagnostic_logger(const basic_diagnostic_logger&) = delete;
  basic_diagnostic_logger& operator=(const basic_diagnostic_logger&) = delete;
  ~basic_diagnostic_logger();

  // Bit mask of the severities for which records are written; starts 0 (none).
  std::uint32_t enabledSeverities() const noexcept {
    return enabled.load(std::memory_order_relaxed);
  }
  void setEnabledSeverities(std::uint32_t mask) noexcept {
    enabled.store(mask, std::memory_order_relaxed);
  }

  logger_type& logger() noexcept { return log; }

 private:
  std::atomic<std::uint32_t> enabled{0};
  logger_type log;
};

}  // namespace foundation::log

// LogCapture: records what reaches the process-wide Boost.Log core while it lives.
//
//   LogCapture capture;                       // adds a sink to boost::log::core
//   ... code that logs ...
//   ASSERT_EQ(capture.records().size(), 1u);
//   EXPECT_EQ(capture.records()[0].message, "Exception serializing a, boom");
//
// ModuleLogSwitch sets moduleLogger's enabled-severity word for a scope and restores it.
//
// Thread-safety: records may arrive from any thread; records() takes a copy under lock.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <connector/json.hpp>

namespace connector::testing {

struct CapturedRecord {
  int severity = -1;
  std::string channel;
  std::string message;
};

class LogCapture {
 public:
  LogCapture()
      : backend(boost::make_shared<Backend>()),
        sink(boost::make_shared<boost::log::sinks::synchronous_sink<Backend>>(backend)) {
    boost::log::core::get()->add_sink(sink);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture() { boost::log::core::get()->remove_sink(sink); }

  std::vector<CapturedRecord> records() const { return backend->copy(); }

 private:
  class Backend
      : public boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
   public:
    void consume(const boost::log::record_view& record) {
      CapturedRecord captured;
      if (auto severity = boost::log::extract<int>("Severity", record)) {
        captured.severity = *severity;
      }
      if (auto channel = boost::log::extract<std::string>("Channel", record)) {
        captured.channel = *channel;
      }
      if (auto message = record[boost::log::expressions::smessage]) {
        captured.message = *message;
      }
      std::lock_guard<std::mutex> guard(mutex);
      received.push_back(std::move(captured));
    }
    std::vector<CapturedRecord> copy() const {
      std::lock_guard<std::mutex> guard(mutex);
      return received;
    }

   private:
    mutable std::mutex mutex;
    std::vector<CapturedRecord> received;
  };

  boost::shared_ptr<Backend> backend;
  boost::shared_ptr<boost::log::sinks::synchronous_sink<Backend>> sink;
};

// Sets the module logger's enabled severities for the scope; restores them after.
class ModuleLogSwitch {
 public:
  explicit ModuleLogSwitch(std::uint32_t mask) : previous(json::moduleLogger.enabledSeverities()) {
    json::moduleLogger.setEnabledSeverities(mask);
  }
  ModuleLogSwitch(const ModuleLogSwitch&) = delete;
  ModuleLogSwitch& operator=(const ModuleLogSwitch&) = delete;
  ~ModuleLogSwitch() { json::moduleLogger.setEnabledSeverities(previous); }

 private:
  std::uint32_t previous;
};

inline constexpr std::uint32_t kModuleErrorBit = 0x200;

}  // namespace connector::testing

// The module logger: channel, severity, the enabled-severity switch, and records that
// an unwinding exception interrupts.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include <boost/log/core/core.hpp>

#include <connector/json.hpp>

#include "support/LogCapture.hpp"

namespace connector::json {
namespace {

using connector::testing::kModuleErrorBit;
using connector::testing::LogCapture;
using connector::testing::ModuleLogSwitch;

TEST(ModuleLogger, WritesOneRecordOfTheJoinedPiecesAtSeverity512OnItsChannel) {
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  logError("Exception serializing ", std::string("shop/Reserve"), ", ", "disk full");
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].message, "Exception serializing shop/Reserve, disk full");
  EXPECT_EQ(records[0].severity, 512);
  EXPECT_EQ(records[0].channel, "connector::json");
}

TEST(ModuleLogger, WritesNothingWhenBit512IsClear) {
  ModuleLogSwitch enabled(0xFFFFFFFFu & ~kModuleErrorBit);
  LogCapture capture;
  logError("never written");
  ModuleLogRecord record;
  EXPECT_FALSE(record);
  EXPECT_TRUE(capture.records().empty());
}

TEST(ModuleLogger, StartsWithEverySeverityOff) { EXPECT_EQ(moduleLogger.enabledSeverities(), 0u); }

TEST(ModuleLogger, OpensNoRecordWhileTheCoreHasLoggingDisabled) {
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  boost::log::core::get()->set_logging_enabled(false);
  {
    ModuleLogRecord record;
    EXPECT_FALSE(record);
    record << "dropped";
  }
  boost::log::core::get()->set_logging_enabled(true);
  EXPECT_TRUE(capture.records().empty());
}

TEST(ModuleLogger, RecordInterruptedByAnUnwindingExceptionIsDiscarded) {
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  bool wasOpen = false;
  try {
    ModuleLogRecord record;
    wasOpen = static_cast<bool>(record);
    record << "half of a ";
    throw std::runtime_error("interrupts the record");
  } catch (const std::runtime_error&) {
  }
  EXPECT_TRUE(wasOpen);
  EXPECT_TRUE(capture.records().empty());
}

// Writes a record from a destructor that runs while an exception unwinds: the record
// was opened during that unwinding, so no new exception started after it and it stays.
struct LogsWhenDestroyed {
  ~LogsWhenDestroyed() { logError("cleanup ", 1); }
};

TEST(ModuleLogger, RecordOpenedDuringUnwindingIsStillWritten) {
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  try {
    LogsWhenDestroyed guard;
    throw std::runtime_error("unwinds");
  } catch (const std::runtime_error&) {
  }
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].message, "cleanup 1");
}

TEST(ModuleLogger, RecordWrittenInsideAHandlerIsKept) {
  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  try {
    throw std::runtime_error("caught");
  } catch (const std::runtime_error& e) {
    logError("Handled: ", e.what());
  }
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].message, "Handled: caught");
}

}  // namespace
}  // namespace connector::json

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include <boost/core/null_deleter.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <connector/json.hpp>

namespace foundation::log {
namespace {

namespace logging = boost::log;
namespace expr = boost::log::expressions;

// Collects formatted records in a string while it lives.
class CapturedRecords {
 public:
  CapturedRecords() {
    auto backend = boost::make_shared<logging::sinks::text_ostream_backend>();
    backend->add_stream(boost::shared_ptr<std::ostream>(&text, boost::null_deleter()));
    sink = boost::make_shared<Sink>(backend);
    sink->set_formatter(expr::stream << expr::attr<std::string>("Channel") << "|"
                                     << expr::attr<int>("Severity") << "|" << expr::smessage);
    logging::core::get()->add_sink(sink);
  }
  ~CapturedRecords() { logging::core::get()->remove_sink(sink); }
  std::string lines() {
    sink->flush();
    return text.str();
  }

 private:
  using Sink = logging::sinks::synchronous_sink<logging::sinks::text_ostream_backend>;
  std::ostringstream text;
  boost::shared_ptr<Sink> sink;
};

TEST(DiagnosticLogger, EnabledSeveritiesStartAtZero) {
  basic_diagnostic_logger<char> logger("test::channel");
  EXPECT_EQ(logger.enabledSeverities(), 0u);
}

TEST(DiagnosticLogger, EnabledSeveritiesAreReadBackAsSet) {
  basic_diagnostic_logger<char> logger("test::channel");
  logger.setEnabledSeverities(512u);
  EXPECT_EQ(logger.enabledSeverities(), 512u);
  logger.setEnabledSeverities(0xFFFFFFFFu);
  EXPECT_EQ(logger.enabledSeverities(), 0xFFFFFFFFu);
  logger.setEnabledSeverities(0u);
  EXPECT_EQ(logger.enabledSeverities(), 0u);
}

TEST(DiagnosticLogger, CarriedLoggerHasTheGivenChannel) {
  basic_diagnostic_logger<char> logger("connector::json");
  EXPECT_EQ(logger.logger().channel(), "connector::json");
}

TEST(DiagnosticLogger, RecordsCarryChannelAndSeverityAttributes) {
  CapturedRecords captured;
  basic_diagnostic_logger<char> logger("test::channel");
  BOOST_LOG_SEV(logger.logger(), 512) << "converter failed: boom";
  EXPECT_EQ(captured.lines(), "test::channel|512|converter failed: boom\n");
}

TEST(DiagnosticLogger, TwoLoggersKeepTheirOwnChannels) {
  CapturedRecords captured;
  basic_diagnostic_logger<char> first("first");
  basic_diagnostic_logger<char> second("second");
  BOOST_LOG_SEV(first.logger(), 1) << "a";
  BOOST_LOG_SEV(second.logger(), 2) << "b";
  EXPECT_EQ(captured.lines(), "first|1|a\nsecond|2|b\n");
}

}  // namespace
}  // namespace foundation::log

#include "connector/host/DiagnosticLogger.hpp"

#include <boost/log/keywords/channel.hpp>

namespace foundation::log {

basic_diagnostic_logger<char>::basic_diagnostic_logger(const std::string& channel)
    : log(boost::log::keywords::channel = channel) {}

basic_diagnostic_logger<char>::~basic_diagnostic_logger() = default;

}  // namespace foundation::log

#include "connector/nats/DisplayUrl.hpp"

namespace connector::nats {

std::string displayUrl(const std::string& url) {
  std::string shown;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = url.find(',', start);
    std::string part =
        url.substr(start, end == std::string::npos ? std::string::npos : end - start);
    const std::size_t scheme = part.find("://");
    const std::size_t hostStart = scheme == std::string::npos ? 0 : scheme + 3;
    // The user info ends at the last '@': a password may hold '@' or '/'; a host never does.
    const std::size_t at = part.rfind('@');
    if (at != std::string::npos && at >= hostStart) part.erase(hostStart, at + 1 - hostStart);
    shown += part;
    if (end == std::string::npos) return shown;
    shown += ',';
    start = end + 1;
  }
}

}  // namespace connector::nats

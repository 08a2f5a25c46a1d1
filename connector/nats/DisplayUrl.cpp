#include "connector/nats/DisplayUrl.hpp"

#include "connector/nats/detail/ServerList.hpp"

namespace connector::nats {

std::string displayUrl(const std::string& url) {
  std::string shown;
  bool first = true;
  for (std::string entry : detail::serverEntries(url)) {
    const std::size_t scheme = entry.find("://");
    const std::size_t hostStart = scheme == std::string::npos ? 0 : scheme + 3;
    // The user info ends at the last '@': a password may hold '@' or '/'; a host never does.
    const std::size_t at = entry.rfind('@');
    if (at != std::string::npos && at >= hostStart) entry.erase(hostStart, at + 1 - hostStart);
    if (!first) shown += ',';
    shown += entry;
    first = false;
  }
  return shown;
}

}  // namespace connector::nats

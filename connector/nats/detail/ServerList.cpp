#include "connector/nats/detail/ServerList.hpp"

namespace connector::nats::detail {

namespace {

bool blank(char c) { return c == ' ' || c == '\t'; }

// Where the user info of `entry` starts and the '@' that ends it; npos when it has none.
// The user info ends at the last '@': a password may hold '@' or '/'; a host never does.
std::pair<std::size_t, std::size_t> userInfo(const std::string& entry) {
  const std::size_t scheme = entry.find("://");
  const std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
  const std::size_t at = entry.rfind('@');
  if (at == std::string::npos || at < start) return {std::string::npos, std::string::npos};
  return {start, at};
}

}  // namespace

std::vector<std::string> serverEntries(const std::string& url) {
  std::vector<std::string> entries;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = url.find(',', start);
    std::size_t first = start;
    std::size_t last = end == std::string::npos ? url.size() : end;
    while (first < last && blank(url[first])) ++first;
    while (last > first && blank(url[last - 1])) --last;
    entries.push_back(url.substr(first, last - first));
    if (end == std::string::npos) return entries;
    start = end + 1;
  }
}

bool asksForTls(const std::vector<std::string>& servers) {
  for (const std::string& entry : servers) {
    if (entry.compare(0, 6, "tls://") == 0) return true;
  }
  return false;
}

std::vector<std::string> secretsOf(const std::vector<std::string>& servers) {
  std::vector<std::string> secrets;
  for (const std::string& entry : servers) {
    const auto [start, at] = userInfo(entry);
    if (start == std::string::npos || at == start) continue;
    const std::string info = entry.substr(start, at - start);
    const std::size_t colon = info.find(':');
    secrets.push_back(colon == std::string::npos ? info : info.substr(colon + 1));
  }
  return secrets;
}

std::string withoutSecrets(std::string text, const std::vector<std::string>& servers) {
  for (const std::string& secret : secretsOf(servers)) {
    if (secret.empty()) continue;
    for (std::size_t at = text.find(secret); at != std::string::npos;
         at = text.find(secret, at + 3)) {
      text.replace(at, secret.size(), "***");
    }
  }
  return text;
}

}  // namespace connector::nats::detail

#include "connector/nats/Subjects.hpp"

#include <stdexcept>
#include <string_view>

namespace connector::nats {

namespace {

// What makes `token` unfit for one token of a subject, or null. `slash` also refuses '/'
// (a subject token that would read back as two address segments).
const char* tokenFault(std::string_view token, bool slash) {
  if (token.empty()) return "it has an empty";
  for (const char c : token) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '.') return "holds '.'";
    if (c == '*') return "holds '*'";
    if (c == '>') return "holds '>'";
    if (slash && c == '/') return "holds '/'";
    if (c == ' ' || (byte >= '\t' && byte <= '\r')) return "holds whitespace";
    if (byte < 0x20 || byte == 0x7f) return "holds a control character";
  }
  return nullptr;
}

// "<head>: it has an empty <what>" or "<head>: <what> '<token>' holds ...".
[[noreturn]] void refuse(const std::string& head, const char* what, std::string_view token,
                         const char* fault) {
  if (token.empty()) throw std::invalid_argument(head + ": " + fault + " " + what);
  throw std::invalid_argument(head + ": " + what + " '" + std::string(token) + "' " + fault);
}

// Calls check(token) for each `separator`-separated token of `text`.
template <class Check>
void forEachToken(std::string_view text, char separator, Check check) {
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find(separator, start);
    check(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    if (end == std::string_view::npos) return;
    start = end + 1;
  }
}

}  // namespace

void checkSubjectPrefix(const std::string& prefix) {
  forEachToken(prefix, '.', [&](std::string_view token) {
    if (const char* fault = tokenFault(token, true)) {
      refuse("NATS subject prefix '" + prefix + "' is not valid", "token", token, fault);
    }
  });
}

std::string subjectFor(const Address& address, const std::string& prefix) {
  checkSubjectPrefix(prefix);
  const std::string& text = address.str();
  std::string subject;
  subject.reserve(prefix.size() + 1 + text.size());
  subject += prefix;
  forEachToken(text, '/', [&](std::string_view segment) {
    if (const char* fault = tokenFault(segment, false)) {
      refuse("Address '" + text + "' cannot map to a NATS subject", "segment", segment, fault);
    }
    subject += '.';
    subject += segment;
  });
  return subject;
}

Address addressFor(const std::string& subject, const std::string& prefix) {
  checkSubjectPrefix(prefix);
  if (subject.size() <= prefix.size() + 1 || subject.compare(0, prefix.size(), prefix) != 0 ||
      subject[prefix.size()] != '.') {
    throw std::invalid_argument("Subject '" + subject + "' is not under the prefix '" + prefix +
                                "'");
  }
  const std::string_view rest = std::string_view(subject).substr(prefix.size() + 1);
  std::string address;
  address.reserve(rest.size());
  forEachToken(rest, '.', [&](std::string_view token) {
    if (const char* fault = tokenFault(token, true)) {
      refuse("Subject '" + subject + "' maps to no address", "token", token, fault);
    }
    if (!address.empty()) address += '/';
    address += token;
  });
  return Address(std::move(address));
}

}  // namespace connector::nats

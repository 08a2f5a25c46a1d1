#include "connector/nats/detail/ServiceDiscovery.hpp"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <random>
#include <sstream>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

namespace connector::nats::detail {

namespace {

bool nameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-';
}

// An object that writes its members in the order they were set.
Poco::JSON::Object::Ptr ordered() { return new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER); }

Poco::JSON::Object::Ptr identity(const char* type, const ServiceIdentity& me) {
  Poco::JSON::Object::Ptr document = ordered();
  document->set("type", std::string(type));
  document->set("name", me.name);
  document->set("id", me.id);
  document->set("version", me.version);
  document->set("metadata", ordered());
  return document;
}

// Each endpoint's place: name, subject, queue group.
Poco::JSON::Object::Ptr placeOf(const EndpointView& endpoint) {
  Poco::JSON::Object::Ptr place = ordered();
  place->set("name", endpoint.name);
  place->set("subject", endpoint.subject);
  place->set("queue_group", endpoint.queueGroup);
  return place;
}

std::string text(const Poco::JSON::Object::Ptr& document) {
  std::ostringstream out;
  document->stringify(out, 0, -1);
  return out.str();
}

// Whether `numbers` is a number without leading zeros.
bool plainNumber(std::string_view numbers) {
  if (numbers.empty() || (numbers.size() > 1 && numbers[0] == '0')) return false;
  return numbers.find_first_not_of("0123456789") == std::string_view::npos;
}

// Whether `part` is dot-separated identifiers of [0-9A-Za-z-]; numeric ones without
// leading zeros when `numericRule`.
bool identifiers(std::string_view part, bool numericRule) {
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = part.find('.', start);
    const std::string_view id =
        part.substr(start, end == std::string_view::npos ? end : end - start);
    if (id.empty()) return false;
    for (const char c : id) {
      if (!nameChar(c) || c == '_') return false;
    }
    if (numericRule && id.find_first_not_of("0123456789") == std::string_view::npos &&
        !plainNumber(id)) {
      return false;
    }
    if (end == std::string_view::npos) return true;
    start = end + 1;
  }
}

}  // namespace

Verb verbFor(std::string_view subject, const ServiceIdentity& me) {
  const std::string_view prefix = "$SRV.";
  if (subject.substr(0, prefix.size()) != prefix) return Verb::None;
  subject.remove_prefix(prefix.size());
  const std::size_t dot = subject.find('.');
  const std::string_view verb = subject.substr(0, dot);
  const Verb asked = verb == "PING"    ? Verb::Ping
                     : verb == "INFO"  ? Verb::Info
                     : verb == "STATS" ? Verb::Stats
                                       : Verb::None;
  if (asked == Verb::None || dot == std::string_view::npos) return asked;
  subject.remove_prefix(dot + 1);
  const std::size_t idDot = subject.find('.');
  if (subject.substr(0, idDot) != me.name) return Verb::None;
  if (idDot == std::string_view::npos) return asked;
  return subject.substr(idDot + 1) == me.id ? asked : Verb::None;
}

std::string pingDocument(const ServiceIdentity& me) {
  return text(identity("io.nats.micro.v1.ping_response", me));
}

std::string infoDocument(const ServiceIdentity& me, const std::vector<EndpointView>& endpoints) {
  Poco::JSON::Object::Ptr document = identity("io.nats.micro.v1.info_response", me);
  document->set("description", me.description);
  Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
  for (const EndpointView& endpoint : endpoints) {
    Poco::JSON::Object::Ptr entry = placeOf(endpoint);
    Poco::JSON::Object::Ptr metadata = ordered();
    metadata->set("address", endpoint.address);
    if (const json::ApiOperation* operation = endpoint.operation) {
      metadata->set("summary", operation->summary);
      metadata->set("request_type", operation->requestType);
      metadata->set("request_schema", operation->requestSchema);
      metadata->set("answer_type", operation->answerType);
      metadata->set("answer_schema", operation->answerSchema);
    }
    entry->set("metadata", metadata);
    list->add(entry);
  }
  document->set("endpoints", list);
  return text(document);
}

std::string statsDocument(const ServiceIdentity& me, const std::vector<EndpointView>& endpoints) {
  Poco::JSON::Object::Ptr document = identity("io.nats.micro.v1.stats_response", me);
  document->set("started", me.started);
  Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
  for (const EndpointView& endpoint : endpoints) {
    Poco::JSON::Object::Ptr entry = placeOf(endpoint);
    entry->set("num_requests", static_cast<Poco::UInt64>(endpoint.requests));
    entry->set("num_errors", static_cast<Poco::UInt64>(endpoint.errors));
    entry->set("last_error", endpoint.lastError);
    entry->set("processing_time", static_cast<Poco::Int64>(endpoint.processingNanos));
    entry->set("average_processing_time",
               static_cast<Poco::Int64>(endpoint.requests == 0
                                            ? 0
                                            : endpoint.processingNanos /
                                                  static_cast<std::int64_t>(endpoint.requests)));
    list->add(entry);
  }
  document->set("endpoints", list);
  return text(document);
}

std::vector<std::string> endpointNames(const std::vector<std::string>& addresses) {
  std::vector<std::string> names;
  std::map<std::string, int> seen;
  for (const std::string& address : addresses) {
    std::string name = address;
    for (char& c : name) {
      if (!nameChar(c)) c = '_';
    }
    if (name.empty()) name = "_";
    const int count = ++seen[name];
    if (count > 1) name += "-" + std::to_string(count);
    names.push_back(std::move(name));
  }
  return names;
}

std::string newServiceId() {
  static constexpr char kAlphabet[] =
      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  std::random_device seed;
  std::mt19937_64 random((static_cast<std::uint64_t>(seed()) << 32) ^ seed());
  std::uniform_int_distribution<std::size_t> pick(0, sizeof kAlphabet - 2);
  std::string id(22, '0');
  for (char& c : id) c = kAlphabet[pick(random)];
  return id;
}

std::string startedNow() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[40];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  char fraction[8];
  std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>(millis));
  return std::string(text, length) + fraction;
}

bool validServiceName(const std::string& name) {
  if (name.empty()) return false;
  for (const char c : name) {
    if (!nameChar(c)) return false;
  }
  return true;
}

bool validServiceVersion(const std::string& version) {
  const std::size_t plus = version.find('+');
  const std::string_view core = std::string_view(version).substr(0, plus);
  if (plus != std::string::npos &&
      !identifiers(std::string_view(version).substr(plus + 1), false)) {
    return false;
  }
  const std::size_t dash = core.find('-');
  if (dash != std::string_view::npos && !identifiers(core.substr(dash + 1), true)) return false;
  const std::string_view numbers = core.substr(0, dash);
  const std::size_t first = numbers.find('.');
  const std::size_t second = first == std::string_view::npos ? first : numbers.find('.', first + 1);
  if (second == std::string_view::npos) return false;
  return plainNumber(numbers.substr(0, first)) &&
         plainNumber(numbers.substr(first + 1, second - first - 1)) &&
         plainNumber(numbers.substr(second + 1));
}

}  // namespace connector::nats::detail

// detail::ServiceDiscovery: what a NatsListener answers as a service of the NATS services
// protocol: which "$SRV" subjects ask it (PING, INFO and STATS, each for all services,
// by name, and by name and id), its identity, and the JSON documents of the answers
// (io.nats.micro.v1.ping_response, info_response, stats_response), one endpoint per
// bound address with that endpoint's figures. Private to connector/nats.
//
//   ServiceIdentity me{"connector", newServiceId(), "0.1.0", "shop services", startedNow()};
//   if (verbFor("$SRV.INFO.connector", me) == Verb::Info) reply(infoDocument(me, endpoints));
//
// Endpoint names follow the protocol's pattern [A-Za-z0-9_-]+: an address's other
// characters become '_' ("shop/ReserveItem" -> "shop_ReserveItem"), a name that two
// addresses would share gets "-2", "-3", ... for the later ones (in address order); the
// exact address is in the endpoint's metadata as "address", followed, for an address with
// a declared operation, by its "summary", "request_type", "request_schema", "answer_type"
// and "answer_schema" (schemas as JSON text: metadata values are strings).
//
// Thread-safety: plain functions without shared state.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "connector/types/ApiOperation.hpp"

namespace connector::nats::detail {

struct ServiceIdentity {
  std::string name;
  std::string id;
  std::string version;
  std::string description;
  std::string started;  // RFC 3339, UTC
};

// What one endpoint shows: its place and its figures (times in nanoseconds).
struct EndpointView {
  std::string name;
  std::string address;
  std::string subject;
  std::string queueGroup;
  std::uint64_t requests = 0;
  std::uint64_t errors = 0;
  std::int64_t processingNanos = 0;
  std::string lastError;
  // The operation declared at the address, or null (INFO's metadata; see
  // NatsListenerOptions::api).
  const json::ApiOperation* operation = nullptr;
};

enum class Verb { None, Ping, Info, Stats };

// The subject every discovery request of the protocol comes on.
inline constexpr const char* kDiscoverySubjects = "$SRV.>";

// What a request on `subject` asks of the service `me`: None for a subject of another
// service, another instance or another verb.
Verb verbFor(std::string_view subject, const ServiceIdentity& me);

std::string pingDocument(const ServiceIdentity& me);
std::string infoDocument(const ServiceIdentity& me, const std::vector<EndpointView>& endpoints);
std::string statsDocument(const ServiceIdentity& me, const std::vector<EndpointView>& endpoints);

// The endpoint names of `addresses` (in the same order; see the banner).
std::vector<std::string> endpointNames(const std::vector<std::string>& addresses);

// A new instance id: 22 random letters and digits.
std::string newServiceId();

// Now, as RFC 3339 in UTC with milliseconds: "2026-11-23T21:04:05.123Z".
std::string startedNow();

// Whether `name` fits the protocol's service names: one or more of [A-Za-z0-9_-].
bool validServiceName(const std::string& name);

// Whether `version` is a semantic version: MAJOR.MINOR.PATCH, numbers without leading
// zeros, then optionally "-<pre-release>" and "+<build>" of dot-separated [0-9A-Za-z-]+.
bool validServiceVersion(const std::string& version);

}  // namespace connector::nats::detail

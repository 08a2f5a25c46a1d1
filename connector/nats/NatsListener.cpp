#include "connector/nats/NatsListener.hpp"

#include <climits>
#include <stdexcept>
#include <utility>

#include "connector/nats/detail/ListenerCore.hpp"
#include "connector/nats/detail/ServiceDiscovery.hpp"

namespace connector::nats {

namespace {

bool validGroup(const std::string& group) {
  if (group.empty()) return false;
  for (const char c : group) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= ' ' || byte == 0x7f) return false;
  }
  return true;
}

}  // namespace

NatsListener::NatsListener(std::shared_ptr<Router> router, NatsListenerOptions options)
    : listenerOptions(std::move(options)) {
  if (!router) throw std::invalid_argument("NatsListener needs a router");
  if (listenerOptions.threads < 1) {
    throw std::invalid_argument("NatsListener needs at least one thread");
  }
  if (!validGroup(listenerOptions.queueGroup)) {
    throw std::invalid_argument("NatsListener needs a queue group without whitespace");
  }
  if (listenerOptions.maxPendingMessages < 1 || listenerOptions.maxPendingBytes < 1 ||
      listenerOptions.maxPendingBytes > static_cast<std::size_t>(INT_MAX)) {
    throw std::invalid_argument("NatsListener pending limits must be at least 1");
  }
  if (listenerOptions.drainTimeout.count() <= 0) {
    throw std::invalid_argument("NatsListener drain time-out must be positive");
  }
  if (!detail::validServiceName(listenerOptions.serviceName)) {
    throw std::invalid_argument("NatsListener service name '" + listenerOptions.serviceName +
                                "' is not valid: use letters, digits, '_' and '-'");
  }
  if (!listenerOptions.serviceVersion.empty() &&
      !detail::validServiceVersion(listenerOptions.serviceVersion)) {
    throw std::invalid_argument("NatsListener service version '" + listenerOptions.serviceVersion +
                                "' is not a semantic version such as 1.2.3");
  }
  checkSubjectPrefix(listenerOptions.subjectPrefix);
  core = std::make_unique<detail::ListenerCore>(std::move(router), listenerOptions);
}

NatsListener::~NatsListener() { stop(); }

void NatsListener::start() {
  std::lock_guard<std::mutex> lock(lifecycleMutex);
  if (phase == Phase::Serving) return;
  if (phase == Phase::Stopped) {
    throw std::logic_error("NatsListener cannot be started again after stop()");
  }
  core->subscribe();
  phase = Phase::Serving;
}

void NatsListener::stop() {
  std::lock_guard<std::mutex> lock(lifecycleMutex);
  if (phase == Phase::Stopped) return;
  phase = Phase::Stopped;
  core->drain();
}

std::string NatsListener::subject() const { return core->subject(); }

std::string NatsListener::connectedUrl() const { return core->connectedUrl(); }

std::uint64_t NatsListener::requestsServed() const noexcept { return core->served(); }

std::uint64_t NatsListener::requestsExpired() const noexcept { return core->expired(); }

std::string NatsListener::serviceId() const { return core->identity().id; }

std::shared_ptr<transport::MetricsRegistry> NatsListener::metrics() const {
  return core->registry();
}

}  // namespace connector::nats

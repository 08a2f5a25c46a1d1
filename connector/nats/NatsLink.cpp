#include "connector/nats/NatsLink.hpp"

#include <exception>
#include <stdexcept>
#include <utility>

#include "connector/futures/MakeFuture.hpp"
#include "connector/nats/detail/LinkCore.hpp"
#include "connector/providers/OpaqueMessage.hpp"
#include "connector/transport/NotOpaque.hpp"

namespace connector::nats {

NatsLink::NatsLink(NatsLinkOptions options) : linkOptions(std::move(options)) {
  if (linkOptions.requestTimeout.count() <= 0) {
    throw std::invalid_argument("NatsLink request time-out must be positive");
  }
  checkSubjectPrefix(linkOptions.subjectPrefix);
  core = std::make_unique<detail::LinkCore>(linkOptions);
}

NatsLink::~NatsLink() = default;

std::string NatsLink::subjectFor(const Address& address) const {
  return nats::subjectFor(address, linkOptions.subjectPrefix);
}

std::size_t NatsLink::requestsInFlight() const { return core->inFlight(); }

std::int64_t NatsLink::maxPayload() const { return core->maxPayload(); }

std::string NatsLink::connectedUrl() const { return core->connectedUrl(); }

Future<std::unique_ptr<Message>> NatsLink::deliver(std::unique_ptr<Message>&& message,
                                                   Address&& address) {
  using MessagePtr = std::unique_ptr<Message>;
  auto* opaque = dynamic_cast<json::OpaqueMessage*>(message.get());
  if (opaque == nullptr) {
    return makeFailedFuture<MessagePtr>(transport::notOpaque(message.get(), "NatsLink"));
  }
  std::string subject;
  try {
    subject = subjectFor(address);
  } catch (const std::invalid_argument&) {
    return makeFailedFuture<MessagePtr>(std::current_exception());
  }
  return core->request(subject, address.str(), *opaque);
}

}  // namespace connector::nats

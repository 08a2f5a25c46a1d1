// Out-of-line constructors and destructors of the host's polymorphic bases: they anchor
// the virtual tables and type information in the host library, so that typeid and
// dynamic_cast agree across library boundaries.
#include "connector/host/Context.hpp"
#include "connector/host/Lifecycle.hpp"
#include "connector/host/Message.hpp"
#include "connector/host/Publisher.hpp"
#include "connector/host/ServiceProvider.hpp"
#include "connector/host/Subscriber.hpp"
#include "connector/host/Subscription.hpp"

namespace connector {

Message::Message() = default;
Message::~Message() = default;

Context::Context() = default;
Context::~Context() = default;

void Context::post(std::unique_ptr<Message>&& message, Address&& address) {
  // The answer, value or error, is dropped on purpose: post is fire-and-forget.
  Future<std::unique_ptr<Message>> ignored = deliver(std::move(message), std::move(address));
  (void)ignored;
}

ServiceProvider::ServiceProvider() = default;
ServiceProvider::~ServiceProvider() = default;

namespace common {
Lifecycle::Lifecycle() = default;
Lifecycle::~Lifecycle() = default;
}  // namespace common

namespace reactive_streams {
Publisher::Publisher() = default;
Publisher::~Publisher() = default;
Subscriber::Subscriber() = default;
Subscriber::~Subscriber() = default;
Subscription::Subscription() = default;
Subscription::~Subscription() = default;
}  // namespace reactive_streams

}  // namespace connector

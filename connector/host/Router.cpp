#include "connector/host/Router.hpp"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "connector/futures/MakeFuture.hpp"

namespace connector {

namespace {

using MessagePtr = std::unique_ptr<Message>;

// The context that delivers into a router. It holds the router weakly, so a router
// whose bindings use it as their next hop does not own itself.
class RouterContext final : public Context {
 public:
  explicit RouterContext(std::weak_ptr<Router> router) : router(std::move(router)) {}

  Future<MessagePtr> deliver(MessagePtr&& message, Address&& address) override {
    if (std::shared_ptr<Router> target = router.lock()) {
      return target->deliver(std::move(message), std::move(address));
    }
    return makeFailedFuture<MessagePtr>(std::make_exception_ptr(std::runtime_error(
        "Router no longer exists; cannot deliver to address '" + address.str() + "'")));
  }

 private:
  std::weak_ptr<Router> router;
};

void startProvider(ServiceProvider& provider) {
  provider.start();
  provider.setRunning(true);
}

void stopProvider(ServiceProvider& provider) {
  // The flag drops first: whatever stop() does, the typed dispatch refuses new work.
  provider.setRunning(false);
  provider.stop();
}

}  // namespace

Router::Router() = default;

Router::~Router() {
  // An exception from a provider's stop() reaches this noexcept destructor and ends the
  // process, as the project's destructors do.
  stop();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the host's public signature.
void Router::bind(Address address, std::shared_ptr<ServiceProvider> provider,
                  std::shared_ptr<Context> nextHop) {
  if (!provider) {
    throw std::invalid_argument("Cannot bind a null service provider at address '" + address.str() +
                                "'");
  }
  if (!nextHop) {
    nextHop = context();
  }
  std::lock_guard<std::mutex> lifecycle(lifecycleMutex);
  {
    std::unique_lock<std::shared_mutex> table(tableMutex);
    if (bindings.count(address) != 0) {
      throw std::invalid_argument("Address '" + address.str() + "' is already bound");
    }
    bindings.emplace(address, Binding{provider, std::move(nextHop)});
  }
  if (!started) {
    return;
  }
  try {
    startProvider(*provider);
  } catch (...) {
    std::unique_lock<std::shared_mutex> table(tableMutex);
    bindings.erase(address);
    throw;
  }
}

bool Router::unbind(const Address& address) {
  std::lock_guard<std::mutex> lifecycle(lifecycleMutex);
  std::shared_ptr<ServiceProvider> provider;
  {
    std::unique_lock<std::shared_mutex> table(tableMutex);
    auto found = bindings.find(address);
    if (found == bindings.end()) {
      return false;
    }
    provider = std::move(found->second.provider);
    bindings.erase(found);
  }
  if (started) {
    stopProvider(*provider);
  }
  return true;
}

std::vector<std::shared_ptr<ServiceProvider>> Router::providersInAddressOrder() const {
  std::vector<std::pair<std::string, std::shared_ptr<ServiceProvider>>> entries;
  {
    std::shared_lock<std::shared_mutex> table(tableMutex);
    entries.reserve(bindings.size());
    for (const auto& [address, binding] : bindings) {
      entries.emplace_back(address.str(), binding.provider);
    }
  }
  std::sort(entries.begin(), entries.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::shared_ptr<ServiceProvider>> providers;
  providers.reserve(entries.size());
  for (auto& entry : entries) {
    providers.push_back(std::move(entry.second));
  }
  return providers;
}

void Router::start() {
  std::lock_guard<std::mutex> lifecycle(lifecycleMutex);
  if (started) {
    return;
  }
  // bind/unbind wait on lifecycleMutex, so this list stays the bound set throughout.
  std::vector<std::shared_ptr<ServiceProvider>> providers = providersInAddressOrder();
  std::size_t startedCount = 0;
  try {
    for (; startedCount < providers.size(); ++startedCount) {
      startProvider(*providers[startedCount]);
    }
  } catch (...) {
    while (startedCount > 0) {
      --startedCount;
      try {
        stopProvider(*providers[startedCount]);
      } catch (...) {
        // The start failure is the one the caller needs to see.
      }
    }
    throw;
  }
  started = true;
}

void Router::stop() {
  std::lock_guard<std::mutex> lifecycle(lifecycleMutex);
  if (!started) {
    return;
  }
  started = false;
  std::vector<std::shared_ptr<ServiceProvider>> providers = providersInAddressOrder();
  std::exception_ptr firstFailure;
  for (auto provider = providers.rbegin(); provider != providers.rend(); ++provider) {
    try {
      stopProvider(**provider);
    } catch (...) {
      if (!firstFailure) {
        firstFailure = std::current_exception();
      }
    }
  }
  if (firstFailure) {
    std::rethrow_exception(firstFailure);
  }
}

bool Router::isStarted() const {
  std::lock_guard<std::mutex> lifecycle(lifecycleMutex);
  return started;
}

Future<std::unique_ptr<Message>> Router::deliver(std::unique_ptr<Message>&& message,
                                                 Address&& address) {
  std::shared_ptr<ServiceProvider> provider;
  std::shared_ptr<Context> nextHop;
  {
    std::shared_lock<std::shared_mutex> table(tableMutex);
    auto found = bindings.find(address);
    if (found != bindings.end()) {
      provider = found->second.provider;
      nextHop = found->second.nextHop;
    }
  }
  if (!provider) {
    return makeFailedFuture<MessagePtr>(std::make_exception_ptr(
        std::invalid_argument("No service bound at address '" + address.str() + "'")));
  }
  // The lock is released: the provider may deliver onward (even into this router) and
  // block on the answer, while other threads bind and unbind.
  try {
    return provider->deliver(std::move(message), std::move(address), std::move(nextHop));
  } catch (...) {
    return makeFailedFuture<MessagePtr>(std::current_exception());
  }
}

std::shared_ptr<Context> Router::context() {
  return std::make_shared<RouterContext>(std::weak_ptr<Router>(shared_from_this()));
}

std::vector<Address> Router::addresses() const {
  std::vector<Address> result;
  {
    std::shared_lock<std::shared_mutex> table(tableMutex);
    result.reserve(bindings.size());
    for (const auto& entry : bindings) {
      result.push_back(entry.first);
    }
  }
  std::sort(result.begin(), result.end(),
            [](const Address& a, const Address& b) { return a.str() < b.str(); });
  return result;
}

}  // namespace connector

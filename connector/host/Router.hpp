// connector::Router: one node of the reference host. It binds services to addresses,
// starts and stops them, and delivers messages to them.
//
//   auto node = std::make_shared<connector::Router>();
//   node->bind(connector::Address("shop/ReserveItem"), std::make_shared<Inventory>());
//   node->start();
//   auto answer = node->deliver(std::make_unique<ReserveItem>("SKU-1", 2),
//                               connector::Address("shop/ReserveItem"));
//   std::unique_ptr<connector::Message> reply = answer.get();
//
// Next hops. Each binding carries the context that the router hands its provider on
// every delivery: the provider's onward deliveries go through it. By default it is the
// router itself (context()), so a service reaches its neighbours on the same node; a
// binding may instead name a link to another node (InProcessLink). That is how one
// address can mean "the bridge" on a client node and "the real service" on the far
// node without delivering in a loop.
//
// Thread-safety: all operations may be called from any thread. The address table is
// guarded by a std::shared_mutex: deliveries look up their binding under the shared
// lock and release it before calling the provider, so bind/unbind of other addresses
// proceed while deliveries (including nested ones that block on the delivering thread)
// are in flight. start(), stop(), bind() and unbind() are serialised among themselves
// and run the providers' lifecycle operations outside the table lock; those operations
// must not call bind/unbind/start/stop of the same router. The providers' `running`
// flag is a plain bool that the typed dispatch reads without a lock: do not start, stop,
// or unbind (on a started router) a provider while deliveries to it are in flight.
//
// Lifetime: create routers with std::make_shared (context() needs shared ownership).
// The context a router hands out holds it only weakly, so bindings whose next hop is
// the router itself form no ownership cycle.
#pragma once

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

#include "connector/Export.hpp"
#include "connector/futures/Future.hpp"
#include "connector/host/Address.hpp"
#include "connector/host/Context.hpp"
#include "connector/host/Message.hpp"
#include "connector/host/ServiceProvider.hpp"

namespace connector {

class CONNECTOR_API Router : public std::enable_shared_from_this<Router> {
 public:
  Router();
  Router(const Router&) = delete;
  Router& operator=(const Router&) = delete;

  // Stops the bound providers if the router is started. An exception from a
  // provider's stop() ends the process (destructors never let one out).
  ~Router();

  // Binds `provider` at `address`. `nextHop` is the context handed to the provider on
  // every delivery; null means this router (context()). On a started router the
  // provider is started at once (start(), then setRunning(true)); if its start() throws,
  // the binding is removed again and the exception propagates.
  // Throws std::invalid_argument "Address 'shop/ReserveItem' is already bound" when the
  // address is taken, std::invalid_argument "Cannot bind a null service provider at
  // address 'shop/ReserveItem'" for a null provider, and std::bad_weak_ptr when
  // `nextHop` is null and the router is not owned by std::shared_ptr.
  void bind(Address address, std::shared_ptr<ServiceProvider> provider,
            std::shared_ptr<Context> nextHop = nullptr);

  // Removes the binding at `address` and returns true; returns false (and changes
  // nothing) when nothing is bound there. On a started router the provider is stopped
  // (setRunning(false), then stop()); an exception from its stop() propagates after the
  // binding is gone. Deliveries already handed to the provider finish normally.
  bool unbind(const Address& address);

  // Starts every bound provider, in address order: its start(), then setRunning(true).
  // If one start() throws, the providers started so far are stopped again, the router
  // stays stopped and the exception propagates. Does nothing when already started.
  void start();

  // Stops every bound provider, in reverse address order: setRunning(false), then its
  // stop(). Every provider is stopped even if one stop() throws; the first
  // such exception then propagates. Does nothing when not started.
  void stop();

  bool isStarted() const;

  // Delivers `message` to the provider bound at `address`, handing it the binding's next
  // hop; the future carries the answer. Never throws: an unbound address yields a failed
  // future with std::invalid_argument "No service bound at address 'shop/ReserveItem'",
  // and an exception thrown by the provider's deliver becomes a failed future holding it.
  // Runs the provider on the calling thread and blocks as long as the provider does.
  Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&& address);

  // The context that delivers into this router (it holds the router weakly; once the
  // router is gone its deliveries fail with std::runtime_error "Router no longer exists;
  // cannot deliver to address 'shop/ReserveItem'"). Use it as the next hop of a binding
  // on another node that forwards into this one. Throws std::bad_weak_ptr when the
  // router is not owned by std::shared_ptr.
  std::shared_ptr<Context> context();

  // The bound addresses, sorted by their text.
  std::vector<Address> addresses() const;

 private:
  struct Binding {
    std::shared_ptr<ServiceProvider> provider;
    std::shared_ptr<Context> nextHop;
  };

  std::vector<std::shared_ptr<ServiceProvider>> providersInAddressOrder() const;

  // Serialises bind, unbind, start and stop; never taken by deliveries.
  mutable std::mutex lifecycleMutex;
  bool started = false;  // guarded by lifecycleMutex

  mutable std::shared_mutex tableMutex;
  std::unordered_map<Address, Binding> bindings;  // guarded by tableMutex (written under both)
};

}  // namespace connector

#include <gtest/gtest.h>
#include <connector/json.hpp>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TestServices.hpp"

namespace connector::testing {
namespace {

using MessagePtr = std::unique_ptr<Message>;

constexpr int kDeliveringThreads = 4;
constexpr int kDeliveriesPerThread = 2000;
constexpr int kTransientAddresses = 8;

std::string transient(int i) { return "transient/" + std::to_string(i); }

TEST(RouterConcurrencyTest, BindAndUnbindOfOtherAddressesWhileFourThreadsDeliverLosesNothing) {
  auto router = std::make_shared<Router>();
  router->bind(Address("stable/outer"), std::make_shared<ForwardingService>("stable/inner"));
  router->bind(Address("stable/inner"), std::make_shared<EchoService>());
  router->start();

  std::atomic<bool> delivering{true};
  std::atomic<long> rebinds{0};
  std::thread binder([&] {
    int i = 0;
    while (delivering.load()) {
      const int slot = i++ % kTransientAddresses;
      router->bind(Address(transient(slot)), std::make_shared<EchoService>("t: "));
      router->unbind(Address(transient((slot + kTransientAddresses / 2) % kTransientAddresses)));
      ++rebinds;
    }
  });

  std::atomic<long> matched{0};
  std::atomic<long> transientServed{0};
  std::atomic<long> transientUnbound{0};
  std::atomic<long> wrong{0};
  std::vector<std::thread> clients;
  for (int t = 0; t < kDeliveringThreads; ++t) {
    clients.emplace_back([&, t] {
      for (int i = 0; i < kDeliveriesPerThread; ++i) {
        const long id = t * 1000000L + i;
        MessagePtr answer =
            router->deliver(text("req-" + std::to_string(id), id), Address("stable/outer")).get();
        const TextMessage& typed = asText(answer);
        if (typed.number == id && typed.text == "forwarded(echo: req-" + std::to_string(id) + ")") {
          ++matched;
        } else {
          ++wrong;
        }
        // Transient addresses come and go: either answered correctly or cleanly unbound.
        Future<MessagePtr> maybe = router->deliver(text("t", id), Address(transient(i % 8)));
        try {
          MessagePtr transientAnswer = maybe.get();
          if (asText(transientAnswer).number == id)
            ++transientServed;
          else
            ++wrong;
        } catch (const std::invalid_argument& error) {
          if (std::string(error.what()) ==
              "No service bound at address '" + transient(i % 8) + "'") {
            ++transientUnbound;
          } else {
            ++wrong;
          }
        }
      }
    });
  }
  for (std::thread& client : clients) client.join();
  delivering = false;
  binder.join();

  EXPECT_EQ(matched.load(), kDeliveringThreads * kDeliveriesPerThread);
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(transientServed + transientUnbound, kDeliveringThreads * kDeliveriesPerThread);
  EXPECT_GT(rebinds.load(), 0);
  router->stop();
}

TEST(RouterConcurrencyTest, ConcurrentBindsOfDistinctAddressesAreAllKept) {
  auto router = std::make_shared<Router>();
  std::vector<std::thread> binders;
  for (int t = 0; t < 4; ++t) {
    binders.emplace_back([&, t] {
      for (int i = 0; i < 250; ++i) {
        router->bind(Address("n" + std::to_string(t) + "/" + std::to_string(i)),
                     std::make_shared<EchoService>());
      }
    });
  }
  for (std::thread& binder : binders) binder.join();

  EXPECT_EQ(router->addresses().size(), 1000U);
}

TEST(RouterConcurrencyTest, OnlyOneOfConcurrentBindsOfTheSameAddressWins) {
  auto router = std::make_shared<Router>();
  std::atomic<int> won{0};
  std::atomic<int> refused{0};
  std::vector<std::thread> binders;
  for (int t = 0; t < 4; ++t) {
    binders.emplace_back([&] {
      try {
        router->bind(Address("shop/ReserveItem"), std::make_shared<EchoService>());
        ++won;
      } catch (const std::invalid_argument&) {
        ++refused;
      }
    });
  }
  for (std::thread& binder : binders) binder.join();

  EXPECT_EQ(won.load(), 1);
  EXPECT_EQ(refused.load(), 3);
}

TEST(RouterConcurrencyTest, FourThreadsDeliverAcrossALinkWithNestedBlockingDeliveries) {
  auto far = std::make_shared<Router>();
  far->bind(Address("shop/ReserveItem"), std::make_shared<ForwardingService>("inventory"));
  far->bind(Address("inventory"), std::make_shared<EchoService>("stock: "));
  auto client = std::make_shared<Router>();
  client->bind(Address("shop/ReserveItem"), std::make_shared<ForwardingService>("shop/ReserveItem"),
               std::make_shared<InProcessLink>(far));

  std::atomic<long> matched{0};
  std::vector<std::thread> clients;
  for (int t = 0; t < kDeliveringThreads; ++t) {
    clients.emplace_back([&, t] {
      for (int i = 0; i < kDeliveriesPerThread; ++i) {
        const long id = t * 1000000L + i;
        MessagePtr answer =
            client->deliver(text(std::to_string(id), id), Address("shop/ReserveItem")).get();
        const TextMessage& typed = asText(answer);
        if (typed.number == id &&
            typed.text == "forwarded(forwarded(stock: " + std::to_string(id) + "))") {
          ++matched;
        }
      }
    });
  }
  for (std::thread& thread : clients) thread.join();

  EXPECT_EQ(matched.load(), kDeliveringThreads * kDeliveriesPerThread);
}

}  // namespace
}  // namespace connector::testing

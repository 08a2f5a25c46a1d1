// Many client threads through two nodes and the JSON bridge: every answer matches its
// request, none is lost, and the inventory agrees with the answers.
#include <gtest/gtest.h>
#include <connector/json.hpp>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "shop/Inventory.hpp"
#include "shop/ShopMessages.hpp"
#include "shop/ShopNodes.hpp"

namespace connector::testing {
namespace {

using MessagePtr = std::unique_ptr<Message>;

constexpr int kThreads = 8;

// 2,000 requests per thread; CONNECTOR_E2E_REQUESTS_PER_THREAD overrides it (the
// ThreadSanitizer pass, where each request costs far more, sets a smaller count).
int requestsPerThread() {
  if (const char* text = std::getenv("CONNECTOR_E2E_REQUESTS_PER_THREAD")) {
    const int value = std::atoi(text);
    if (value > 0) return value;
  }
#if defined(__SANITIZE_THREAD__)
  return 250;
#else
  return 2000;
#endif
}

TEST(BridgeConcurrencyTest, EightThreadsThroughTwoNodesAndTheBridgeGetEveryAnswerMatched) {
  shop::ShopNodes nodes;
  const int perThread = requestsPerThread();
  const std::vector<std::string> skus = {"LAMP-01", "DESK-02", "CHAIR-03"};

  std::vector<std::vector<std::string>> ids(kThreads);
  std::vector<long> pieces(kThreads, 0);
  std::atomic<long> mismatched{0};
  std::atomic<long> failed{0};
  std::vector<std::thread> clients;
  for (int t = 0; t < kThreads; ++t) {
    clients.emplace_back([&, t] {
      for (int i = 0; i < perThread; ++i) {
        const std::string& sku = skus[static_cast<std::size_t>(t + i) % skus.size()];
        const int quantity = 1 + (t * 7 + i) % 5;
        try {
          MessagePtr answer = nodes.client
                                  ->deliver(std::make_unique<shop::ReserveItem>(sku, quantity),
                                            Address(shop::kReserveItem))
                                  .get();
          auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
          if (reservation != nullptr && reservation->accepted && reservation->sku == sku &&
              reservation->quantity == quantity) {
            ids[static_cast<std::size_t>(t)].push_back(reservation->reservationId);
            pieces[static_cast<std::size_t>(t)] += quantity;
          } else {
            ++mismatched;
          }
        } catch (...) {
          ++failed;
        }
      }
    });
  }
  for (std::thread& client : clients) client.join();

  std::set<std::string> distinct;
  long reserved = 0;
  for (int t = 0; t < kThreads; ++t) {
    distinct.insert(ids[static_cast<std::size_t>(t)].begin(),
                    ids[static_cast<std::size_t>(t)].end());
    reserved += pieces[static_cast<std::size_t>(t)];
  }
  long left = 0;
  for (const std::string& sku : skus) left += nodes.inventory->available(sku);

  EXPECT_EQ(failed.load(), 0);
  EXPECT_EQ(mismatched.load(), 0);
  EXPECT_EQ(distinct.size(), static_cast<std::size_t>(kThreads * perThread));
  EXPECT_EQ(3 * 1000000L - left, reserved);
}

}  // namespace
}  // namespace connector::testing

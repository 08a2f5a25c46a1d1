// The JSON bridge across HTTP under concurrent clients: every answer matches its request.
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "NetFixtures.hpp"

namespace {

TEST(HttpBridgeConcurrencyTest, FourClientsOfFiveHundredRequestsEachGetTheirOwnAnswers) {
  constexpr int kClients = 4;
  constexpr int kRequests = 500;
  nettest::FarShop far;
  const std::vector<std::string> skus = {"LAMP-01", "DESK-02", "CHAIR-03"};
  long stockBefore = 0;
  for (const std::string& sku : skus) stockBefore += far.nodes->inventory->available(sku);

  // Each client is its own node with its own link (and so its own connections).
  std::vector<std::unique_ptr<nettest::ClientShop>> clients;
  for (int c = 0; c < kClients; ++c) {
    clients.push_back(std::make_unique<nettest::ClientShop>(far.url()));
  }
  struct Tally {
    int matched = 0;
    long pieces = 0;
    std::vector<std::string> ids;
    std::string firstProblem;
  };
  std::vector<Tally> tallies(kClients);
  std::vector<std::thread> threads;
  for (int c = 0; c < kClients; ++c) {
    threads.emplace_back([&, c] {
      Tally& tally = tallies[static_cast<std::size_t>(c)];
      for (int i = 0; i < kRequests; ++i) {
        const std::string& sku = skus[static_cast<std::size_t>(i + c) % skus.size()];
        const int quantity = 1 + (i * kClients + c) % 7;
        try {
          auto answer = clients[static_cast<std::size_t>(c)]->reserve(sku, quantity);
          auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
          if (reservation != nullptr && reservation->accepted && reservation->sku == sku &&
              reservation->quantity == quantity) {
            ++tally.matched;
            tally.pieces += quantity;
            tally.ids.push_back(reservation->reservationId);
          } else if (tally.firstProblem.empty()) {
            tally.firstProblem = "mismatched answer";
          }
        } catch (const std::exception& error) {
          if (tally.firstProblem.empty()) tally.firstProblem = error.what();
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  std::set<std::string> ids;
  long pieces = 0;
  for (const Tally& tally : tallies) {
    EXPECT_EQ(tally.matched, kRequests) << tally.firstProblem;
    ids.insert(tally.ids.begin(), tally.ids.end());
    pieces += tally.pieces;
  }
  EXPECT_EQ(ids.size(), static_cast<std::size_t>(kClients * kRequests));
  long stockAfter = 0;
  for (const std::string& sku : skus) stockAfter += far.nodes->inventory->available(sku);
  EXPECT_EQ(stockBefore - stockAfter, pieces);
  EXPECT_EQ(far.gateway->requestsServed(), static_cast<std::uint64_t>(kClients * kRequests));
}

TEST(HttpBridgeConcurrencyTest, OneLinkSharedByFourThreadsKeepsEveryAnswerWithItsRequest) {
  nettest::FarShop far;
  nettest::ClientShop client(far.url());
  std::vector<int> matched(4, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        const int quantity = 1 + t * 10 + i % 10;
        try {
          auto answer = client.reserve("LAMP-01", quantity);
          auto* r = dynamic_cast<shop::Reservation*>(answer.get());
          if (r != nullptr && r->quantity == quantity) ++matched[static_cast<std::size_t>(t)];
        } catch (const std::exception&) {
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int m : matched) EXPECT_EQ(m, 200);
  EXPECT_LE(client.link->idleConnections(), 4u);
}

}  // namespace

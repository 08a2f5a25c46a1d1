// NatsLink and NatsListener under load with real threads: one thread keeping a thousand
// requests in flight, a queue group sharing the load, a drain in the middle of a load,
// many threads sharing one link. Every loop is bounded in count and time.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "NatsFixtures.hpp"
#include "RawNatsClient.hpp"
#include "SlowEcho.hpp"

namespace {

using connector::Address;
using connector::nats::NatsLink;
using connector::nats::NatsListener;
using natstest::ClientShop;
using natstest::FarShop;
using natstest::RawNatsClient;
using natstest::RawReply;
using natstest::RawRequest;
using Clock = std::chrono::steady_clock;
using MessageFuture = connector::Future<std::unique_ptr<connector::Message>>;

class NatsConcurrencyTest : public natstest::NatsSuite {};

// Waits until `done()` holds, at most `limit`.
template <class Condition>
bool waitFor(Condition done, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  const auto deadline = Clock::now() + limit;
  while (!done()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

TEST_F(NatsConcurrencyTest, OneThreadKeepsAThousandRequestsInFlightAtOnce) {
  constexpr int kRequests = 1000;
  // The far side holds every request unanswered until all of them have arrived.
  RawNatsClient far(url());
  std::mutex mutex;
  std::vector<RawRequest> held;
  far.respond("connector.test.held", [&](const RawRequest& request) {
    std::lock_guard<std::mutex> lock(mutex);
    held.push_back(request);
    RawReply none;
    none.timedOut = true;
    return none;
  });
  NatsLink link(natstest::linkOptions(url(), std::chrono::seconds(30)));
  std::vector<MessageFuture> answers;
  answers.reserve(kRequests);
  for (int i = 0; i < kRequests; ++i) {
    answers.push_back(link.deliver(natstest::opaque(std::to_string(i)), Address("test/held")));
  }
  ASSERT_TRUE(waitFor([&] {
    std::lock_guard<std::mutex> lock(mutex);
    return held.size() == kRequests;
  }));
  EXPECT_EQ(link.requestsInFlight(), static_cast<std::size_t>(kRequests));
  // Answered in reverse order: each answer still finds its own request.
  std::vector<RawRequest> received;
  {
    std::lock_guard<std::mutex> lock(mutex);
    received = held;
  }
  std::reverse(received.begin(), received.end());
  for (const RawRequest& request : received) {
    const std::string body = "answer " + request.body;
    natsConnection_Publish(far.get(), request.reply.c_str(), body.data(),
                           static_cast<int>(body.size()));
  }
  natsConnection_Flush(far.get());
  for (int i = 0; i < kRequests; ++i) {
    EXPECT_EQ(natstest::textOf(answers[static_cast<std::size_t>(i)].get()),
              "answer " + std::to_string(i));
  }
  EXPECT_EQ(link.requestsInFlight(), 0u);
}

TEST_F(NatsConcurrencyTest, OneThreadKeepsAThousandShopRequestsInFlightThroughAListener) {
  constexpr int kRequests = 1000;
  FarShop far(url());
  NatsLink link(natstest::linkOptions(url(), std::chrono::seconds(30)));
  std::vector<MessageFuture> answers;
  for (int i = 0; i < kRequests; ++i) {
    answers.push_back(link.deliver(
        natstest::opaque(R"({"type":"shop/ReserveItem","sku":"LAMP-01","quantity":1})"),
        Address(shop::kReserveItem)));
  }
  std::set<std::string> ids;
  for (auto& answer : answers) {
    const std::string text = natstest::textOf(answer.get());
    ids.insert(text.substr(0, text.find(',')));
  }
  EXPECT_EQ(ids.size(), static_cast<std::size_t>(kRequests));
  EXPECT_EQ(far.nodes->inventory->available("LAMP-01"), 1000000 - kRequests);
  EXPECT_EQ(far.listener->requestsServed(), static_cast<std::uint64_t>(kRequests));
}

TEST_F(NatsConcurrencyTest, TwoListenersInOneQueueGroupBothServe) {
  FarShop first(url());
  FarShop second(url());
  ClientShop client(url());
  constexpr int kThreads = 4;
  constexpr int kEach = 100;
  std::atomic<int> matched{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kEach; ++i) {
        auto answer = client.reserve("DESK-02", 1);
        if (dynamic_cast<shop::Reservation&>(*answer).accepted) ++matched;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(matched.load(), kThreads * kEach);
  const std::uint64_t one = first.listener->requestsServed();
  const std::uint64_t two = second.listener->requestsServed();
  EXPECT_EQ(one + two, static_cast<std::uint64_t>(kThreads * kEach));
  EXPECT_GT(one, 0u);
  EXPECT_GT(two, 0u);
  // Each far node reserved from its own inventory what its listener served.
  EXPECT_EQ(first.nodes->inventory->available("DESK-02"), 1000000 - static_cast<long>(one));
  EXPECT_EQ(second.nodes->inventory->available("DESK-02"), 1000000 - static_cast<long>(two));
}

TEST_F(NatsConcurrencyTest, ADrainInTheMiddleOfALoadLosesNothing) {
  auto leavingEcho = std::make_shared<natstest::SlowEcho>(std::chrono::milliseconds(3));
  auto stayingEcho = std::make_shared<natstest::SlowEcho>(std::chrono::milliseconds(3));
  NatsListener leaving(natstest::slowEchoRouter(leavingEcho), natstest::listenerOptions(url()));
  NatsListener staying(natstest::slowEchoRouter(stayingEcho), natstest::listenerOptions(url()));
  leaving.start();
  staying.start();
  NatsLink link(natstest::linkOptions(url(), std::chrono::seconds(10)));

  constexpr int kThreads = 8;
  constexpr int kEach = 150;
  std::atomic<int> answered{0};
  std::atomic<int> wrong{0};
  std::mutex mutex;
  std::string firstProblem;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) {
        const std::string body =
            "{\"t\":" + std::to_string(t) + ",\"i\":" + std::to_string(i) + "}";
        try {
          if (natstest::textOf(link.deliver(natstest::opaque(body), Address("test/slow")).get()) ==
              body) {
            ++answered;
            continue;
          }
          ++wrong;
        } catch (const std::exception& error) {
          ++wrong;
          std::lock_guard<std::mutex> lock(mutex);
          if (firstProblem.empty()) firstProblem = error.what();
        }
      }
    });
  }
  // Stop one listener once both are busy serving.
  ASSERT_TRUE(waitFor([&] { return leavingEcho->started >= 20 && stayingEcho->started >= 20; }));
  const auto begin = Clock::now();
  leaving.stop();
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
  const std::uint64_t servedByLeaving = leaving.requestsServed();
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(wrong.load(), 0) << firstProblem;
  EXPECT_EQ(answered.load(), kThreads * kEach);
  EXPECT_EQ(servedByLeaving + staying.requestsServed(),
            static_cast<std::uint64_t>(kThreads * kEach));
  EXPECT_EQ(leaving.requestsServed(), servedByLeaving);  // nothing after its stop
  EXPECT_EQ(leavingEcho->started.load(), static_cast<int>(servedByLeaving));
  EXPECT_GT(staying.requestsServed(), 0u);
}

TEST_F(NatsConcurrencyTest, ManyThreadsShareOneLinkAndEveryAnswerMatchesItsRequest) {
  FarShop far(url());
  ClientShop client(url());
  constexpr int kThreads = 8;
  constexpr int kEach = 100;
  std::mutex mutex;
  std::set<std::string> ids;
  std::atomic<int> mismatched{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const std::string sku = t % 2 == 0 ? "LAMP-01" : "CHAIR-03";
      for (int i = 0; i < kEach; ++i) {
        const int quantity = 1 + (i % 3);
        auto answer = client.reserve(sku, quantity);
        auto& reservation = dynamic_cast<shop::Reservation&>(*answer);
        if (reservation.sku != sku || reservation.quantity != quantity) ++mismatched;
        std::lock_guard<std::mutex> lock(mutex);
        ids.insert(reservation.reservationId);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mismatched.load(), 0);
  EXPECT_EQ(ids.size(), static_cast<std::size_t>(kThreads * kEach));
  EXPECT_EQ(client.link->requestsInFlight(), 0u);
}

}  // namespace

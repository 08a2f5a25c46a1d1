// A listener given the whole server list of a three-node cluster, whose node is killed
// during a load: only the requests in flight on that node fail, and the listener serves
// again through another node within 2 s. It prints how long that took.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <connector/transport/StatusError.hpp>

#include "NatsFixtures.hpp"
#include "support/NatsCluster.hpp"

namespace {

using connector::Address;
using connector::nats::NatsLink;
using connector::nats::NatsListener;
using connector::testing::NatsCluster;
using Clock = std::chrono::steady_clock;
using MessageFuture = connector::Future<std::unique_ptr<connector::Message>>;

// An echo service that notes when it began each request (by the request's text).
class StampEcho : public connector::ServiceProvider {
 public:
  void start() override {}
  void stop() override {}
  connector::Future<std::unique_ptr<connector::Message>> deliver(
      std::unique_ptr<connector::Message>&& message, connector::Address&&,
      std::shared_ptr<connector::Context>&&) override {
    auto& request = dynamic_cast<connector::json::OpaqueMessage&>(*message);
    {
      std::lock_guard<std::mutex> lock(mutex);
      began.emplace(std::string(request.payload.view()), Clock::now());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return connector::makeReadyFuture<std::unique_ptr<connector::Message>>(
        std::make_unique<connector::json::OpaqueMessage>(request.contentType,
                                                         std::move(request.payload)));
  }

  std::map<std::string, Clock::time_point> stamps() {
    std::lock_guard<std::mutex> lock(mutex);
    return began;
  }

 private:
  std::mutex mutex;
  std::map<std::string, Clock::time_point> began;  // guarded by mutex
};

std::shared_ptr<connector::Router> echoRouter(std::shared_ptr<StampEcho> echo) {
  auto router = std::make_shared<connector::Router>();
  router->bind(Address("test/echo"), std::move(echo));
  router->start();
  return router;
}

TEST(NatsClusterTest, KillingTheNodeOfAListenerLosesOnlyItsRequestsInFlightAndItServesAgain) {
  NatsCluster cluster;
  auto echoOne = std::make_shared<StampEcho>();
  auto echoTwo = std::make_shared<StampEcho>();
  auto options = natstest::listenerOptions(cluster.urls());
  NatsListener one(echoRouter(echoOne), options);  // on any node of the list
  one.start();
  const int killed = cluster.indexOf(one.connectedUrl());
  ASSERT_GE(killed, 0) << one.connectedUrl();
  // The other listener and the client each on one of the two nodes that stay.
  NatsListener two(echoRouter(echoTwo),
                   natstest::listenerOptions(cluster.node((killed + 1) % 3).url()));
  two.start();
  NatsLink link(
      natstest::linkOptions(cluster.node((killed + 2) % 3).url(), std::chrono::milliseconds(1000)));
  // A probe on the same node, whose requests wait 200 ms at most.
  NatsLink probe(
      natstest::linkOptions(cluster.node((killed + 2) % 3).url(), std::chrono::milliseconds(200)));

  // The load: kThreads threads, each sending rounds of kRound requests and waiting for
  // them, so that a round waiting for a lost request's time-out holds up one thread
  // only. Each request's text is its number, as {"n":<number>}.
  constexpr int kThreads = 4;
  constexpr int kRound = 4;
  constexpr int kMaxRequests = 30000;
  const auto loadEnds = Clock::now() + std::chrono::seconds(20);
  // When each request was sent (just before its deliver call), read by this thread too.
  const auto sentAt = std::make_unique<std::atomic<Clock::rep>[]>(kMaxRequests);
  std::atomic<int> sent{0};
  std::atomic<int> answered{0};
  std::atomic<bool> stop{false};
  std::mutex failuresMutex;
  std::vector<std::string> failures;  // guarded by failuresMutex
  std::vector<std::thread> load;
  for (int t = 0; t < kThreads; ++t) {
    load.emplace_back([&] {
      while (!stop && Clock::now() < loadEnds) {
        std::vector<MessageFuture> round;
        for (int i = 0; i < kRound; ++i) {
          const int number = sent++;
          if (number >= kMaxRequests) break;
          sentAt[static_cast<std::size_t>(number)] = Clock::now().time_since_epoch().count();
          round.push_back(
              link.deliver(natstest::opaque(natstest::numbered(number)), Address("test/echo")));
        }
        if (round.empty()) return;
        for (MessageFuture& future : round) {
          try {
            future.get();
            ++answered;
          } catch (const std::exception& error) {
            std::lock_guard<std::mutex> lock(failuresMutex);
            failures.emplace_back(error.what());
          }
        }
      }
    });
  }

  // The probe: a request every 2 ms whatever became of the earlier ones, so that it
  // tells within milliseconds when the listener serves again.
  std::vector<MessageFuture> probes;
  load.emplace_back([&] {
    while (!stop && Clock::now() < loadEnds) {
      const int number = sent++;
      if (number >= kMaxRequests) return;
      sentAt[static_cast<std::size_t>(number)] = Clock::now().time_since_epoch().count();
      probes.push_back(
          probe.deliver(natstest::opaque(natstest::numbered(number)), Address("test/echo")));
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });

  auto waitFor = [](auto condition) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!condition() && Clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
  };
  EXPECT_TRUE(waitFor([&] { return answered >= 500; }));
  const auto killedAt = Clock::now();
  cluster.node(killed).stop(true);
  // Served again: a request sent after the kill begins on the first listener.
  const auto servedAgainAt = [&]() -> std::optional<Clock::time_point> {
    std::optional<Clock::time_point> first;
    for (const auto& [text, began] : echoOne->stamps()) {
      const Clock::time_point sentWhen(Clock::duration(sentAt[natstest::numberOf(text)].load()));
      if (sentWhen > killedAt && (!first || began < *first)) first = began;
    }
    return first;
  };
  const bool servedAgain = waitFor([&] { return servedAgainAt().has_value(); });
  const int answeredAtRecovery = answered;
  EXPECT_TRUE(waitFor([&] { return answered >= answeredAtRecovery + 500; }));
  stop = true;
  for (std::thread& thread : load) thread.join();
  for (MessageFuture& future : probes) {
    try {
      future.get();
    } catch (const std::exception&) {
      // lost on the killed node, or late: the probe only measures
    }
  }

  ASSERT_TRUE(servedAgain) << "the listener did not serve again within 10 s";
  const auto recovery =
      std::chrono::duration_cast<std::chrono::milliseconds>(*servedAgainAt() - killedAt);
  std::cout << "listener serving again " << recovery.count() << " ms after its node was killed ("
            << answered << " answered, " << failures.size() << " failed)" << std::endl;
  EXPECT_LT(recovery, std::chrono::seconds(2));
  EXPECT_NE(one.connectedUrl(), cluster.node(killed).url());
  // Only what was in flight on the killed node may fail, each by its time-out: at most
  // the requests in flight at once.
  EXPECT_LE(failures.size(), static_cast<std::size_t>(kThreads * kRound));
  for (const std::string& failure : failures) {
    EXPECT_EQ(failure, "NATS request to connector.test.echo failed: no answer within 1000 ms");
  }
  EXPECT_EQ(link.requestsInFlight(), 0u);
}

}  // namespace

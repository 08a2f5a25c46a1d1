// Deadlines across hops: a request carries how long its requester still waits
// (Connector-Timeout-Ms); a listener whose worker takes it after that time skips it
// (no delivery, no answer) and counts it, so an overloaded service spends its time on
// requests somebody still waits for.
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <connector/transport/MetricNames.hpp>
#include <connector/transport/StatusError.hpp>

#include "NatsFixtures.hpp"
#include "RawNatsClient.hpp"
#include "SlowEcho.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using connector::Address;
using connector::nats::NatsLink;
using connector::nats::NatsListener;
using natstest::RawNatsClient;
using MessageFuture = connector::Future<std::unique_ptr<connector::Message>>;

class NatsDeadlineTest : public natstest::NatsSuite {};

// The line of connector_nats_expired_total in the listener's metrics text, e.g.
// "connector_nats_expired_total 1".
std::string expiredMetric(const NatsListener& listener) {
  const std::string text = listener.metrics()->exposition();
  const std::string name = connector::transport::metric::kNatsExpired;
  const std::size_t at = text.find("\n" + name + " ");
  if (at == std::string::npos) return "missing";
  return text.substr(at + 1, text.find('\n', at + 1) - at - 1);
}

TEST_F(NatsDeadlineTest, ARequestWhoseTimeRanOutWhileQueuedIsSkippedAndCounted) {
  auto echo = std::make_shared<natstest::SlowEcho>(std::chrono::milliseconds(150));
  auto options = natstest::listenerOptions(url());
  options.threads = 1;
  NatsListener listener(natstest::slowEchoRouter(echo), options);
  listener.start();
  NatsLink link(natstest::linkOptions(url()));
  // The one worker is busy for 150 ms with this one.
  MessageFuture busy = link.deliver(natstest::opaque(R"({"first":1})"), Address("test/slow"));
  while (echo->started < 1) std::this_thread::sleep_for(std::chrono::milliseconds(1));

  RawNatsClient client(url());
  const auto expired = client.request("connector.test.slow", R"({"late":1})",
                                      {{"Connector-Timeout-Ms", "50"}}, 1000);
  EXPECT_TRUE(expired.timedOut);  // skipped: no answer at all
  EXPECT_EQ(natstest::textOf(busy.get()), R"({"first":1})");
  // Unreadable values count as no header: served.
  for (const char* value : {"abc", "-5", "12345678901", ""}) {
    const std::string body = std::string(R"({"v":")") + value + R"("})";
    const auto served =
        client.request("connector.test.slow", body, {{"Connector-Timeout-Ms", value}}, 3000);
    EXPECT_EQ(served.body, body);
  }
  const auto inTime = client.request("connector.test.slow", R"({"in":"time"})",
                                     {{"Connector-Timeout-Ms", "2000"}}, 3000);
  EXPECT_EQ(inTime.body, R"({"in":"time"})");
  EXPECT_EQ(listener.requestsExpired(), 1u);
  EXPECT_EQ(expiredMetric(listener), "connector_nats_expired_total 1");
  EXPECT_EQ(echo->started, 6);  // "late" never reached the service
  EXPECT_EQ(listener.requestsServed(), 6u);
}

// A service that passes each request on over a NatsLink to "test/wait" and answers with
// what comes back: the next hop.
class Relay : public connector::ServiceProvider {
 public:
  explicit Relay(std::shared_ptr<NatsLink> link) : link(std::move(link)) {}
  void start() override {}
  void stop() override {}
  connector::Future<std::unique_ptr<connector::Message>> deliver(
      std::unique_ptr<connector::Message>&& message, connector::Address&&,
      std::shared_ptr<connector::Context>&&) override {
    return connector::makeReadyFuture(
        link->deliver(std::move(message), Address("test/wait")).get());
  }

 private:
  std::shared_ptr<NatsLink> link;
};

TEST_F(NatsDeadlineTest, AServiceCallingOnPassesWhatIsLeftOfItsRequestersTime) {
  RawNatsClient far(url());
  // The next hop under a prefix of its own, apart from the listener's subjects.
  far.respond("far.test.wait", [](const natstest::RawRequest& request) {
    natstest::RawReply reply;
    reply.body = request.headers.count("Connector-Timeout-Ms") != 0
                     ? request.headers.at("Connector-Timeout-Ms")
                     : "none";
    return reply;
  });
  auto nextHop = natstest::linkOptions(url(), std::chrono::seconds(30));
  nextHop.subjectPrefix = "far";
  auto router = std::make_shared<connector::Router>();
  router->bind(Address("test/relay"), std::make_shared<Relay>(std::make_shared<NatsLink>(nextHop)));
  router->start();
  NatsListener listener(router, natstest::listenerOptions(url()));
  listener.start();
  RawNatsClient client(url());
  const std::string relayed =
      client.request("connector.test.relay", "{}", {{"Connector-Timeout-Ms", "1500"}}).body;
  ASSERT_EQ(relayed.find_first_not_of("0123456789"), std::string::npos) << relayed;
  const int left = std::stoi(relayed);
  EXPECT_LE(left, 1500);
  EXPECT_GT(left, 500);
  // Without the header, the next hop hears the relay's own link time-out.
  EXPECT_EQ(client.request("connector.test.relay", "{}", {}).body, "30000");
}

TEST_F(NatsDeadlineTest, AnOverloadedServiceSkipsWhatNobodyWaitsForAndKeepsUp) {
  // Capacity: 2 workers x 20 ms = 100 requests/s; 200 requests at once, each waited for
  // 300 ms: about 30 can be answered in time.
  auto echo = std::make_shared<natstest::SlowEcho>(std::chrono::milliseconds(20));
  auto options = natstest::listenerOptions(url());
  options.threads = 2;
  NatsListener listener(natstest::slowEchoRouter(echo), options);
  listener.start();
  NatsLink link(natstest::linkOptions(url(), std::chrono::milliseconds(300)));
  constexpr int kRequests = 200;
  std::vector<MessageFuture> burst;
  for (int i = 0; i < kRequests; ++i) {
    burst.push_back(link.deliver(natstest::opaque(natstest::numbered(i)), Address("test/slow")));
  }
  int answered = 0;
  for (MessageFuture& future : burst) {
    try {
      future.get();
      ++answered;
    } catch (const connector::transport::StatusError& error) {
      EXPECT_STREQ(error.what(),
                   "NATS request to connector.test.slow failed: no answer within 300 ms");
    }
  }
  // Every request is taken by now or soon: delivered, or skipped.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (static_cast<std::uint64_t>(echo->started) + listener.requestsExpired() <
             static_cast<std::uint64_t>(kRequests) &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const auto delivered = static_cast<std::uint64_t>(echo->started);
  EXPECT_EQ(delivered + listener.requestsExpired(), static_cast<std::uint64_t>(kRequests));
  EXPECT_GE(listener.requestsExpired(), 100u);
  EXPECT_EQ(expiredMetric(listener),
            "connector_nats_expired_total " + std::to_string(listener.requestsExpired()));
  EXPECT_GE(answered, 1);
  // The service's time went to answers somebody got: only what was under way when its
  // requester gave up was delivered in vain (a few per worker, more when the requests
  // took long to arrive: the listener counts from the arrival). Without the deadlines all
  // 200 would be delivered for about 30 answers.
  EXPECT_GE(2 * static_cast<std::uint64_t>(answered), delivered)
      << answered << " answered, " << delivered << " delivered";
  std::cout << answered << " of " << kRequests << " answered in time, " << delivered
            << " delivered, " << listener.requestsExpired() << " skipped" << std::endl;
}

}  // namespace

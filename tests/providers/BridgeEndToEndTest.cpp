// Both halves of the bridge inside one process, with real threads.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include <connector/json.hpp>

#include "support/BridgeWiring.hpp"
#include "support/TestMessages.hpp"

namespace connector::json {
namespace {

using testing::Greeting;
using testing::GreetingReply;

struct SumRequest : Message {
  SumRequest(std::int64_t a, std::int64_t b) : a(a), b(b) {}
  std::int64_t a;
  std::int64_t b;
};

struct SumResult : Message {
  explicit SumResult(std::int64_t sum) : sum(sum) {}
  std::int64_t sum;
};

void registerSums(JsonSerializer& serializer) {
  serializer.registerType(
      "test/SumRequest", typeid(SumRequest),
      [](const std::unique_ptr<Message>& m) {
        const auto& r = static_cast<const SumRequest&>(*m);
        Poco::SharedPtr<Poco::JSON::Object> o = new Poco::JSON::Object();
        o->set("a", r.a);
        o->set("b", r.b);
        return o;
      },
      [](Poco::SharedPtr<Poco::JSON::Object> o) -> std::unique_ptr<Message> {
        return std::make_unique<SumRequest>(o->getValue<std::int64_t>("a"),
                                            o->getValue<std::int64_t>("b"));
      });
  serializer.registerType(
      "test/SumResult", typeid(SumResult),
      [](const std::unique_ptr<Message>& m) {
        Poco::SharedPtr<Poco::JSON::Object> o = new Poco::JSON::Object();
        o->set("sum", static_cast<const SumResult&>(*m).sum);
        return o;
      },
      [](Poco::SharedPtr<Poco::JSON::Object> o) -> std::unique_ptr<Message> {
        return std::make_unique<SumResult>(o->getValue<std::int64_t>("sum"));
      });
}

// The far service: greets back and adds up, answering at once.
Future<std::unique_ptr<Message>> answer(std::unique_ptr<Message>&& request, const Address&) {
  if (auto* g = dynamic_cast<Greeting*>(request.get())) {
    return makeReadyFuture<std::unique_ptr<Message>>(
        std::make_unique<GreetingReply>(g->text, g->number, g->number % 2 == 0));
  }
  if (auto* s = dynamic_cast<SumRequest*>(request.get())) {
    return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<SumResult>(s->a + s->b));
  }
  return makeReadyFuture<std::unique_ptr<Message>>(std::make_unique<Message>());
}

TEST(BridgeEndToEnd, EightClientThreadsGetEveryAnswerMatchedToItsRequest) {
  // One serializer per side, as two processes would have.
  auto clientSerializer = std::make_shared<JsonSerializerImpl>();
  auto farSerializer = std::make_shared<JsonSerializerImpl>();
  for (auto* s : {clientSerializer.get(), farSerializer.get()}) {
    testing::registerTestMessages(*s);
    registerSums(*s);
  }
  auto client = std::make_shared<JsonSerializerServiceProvider>(clientSerializer);
  auto gateway = std::make_shared<JsonDeserializerServiceProvider>(farSerializer);
  gateway->setRunning(true);
  auto service = std::make_shared<testing::ServiceContext>(answer);
  auto link = std::make_shared<testing::ProviderContext>(gateway, service);

  constexpr int kThreads = 8;
  constexpr int kRequests = 1000;
  std::atomic<int> matched{0};
  std::atomic<int> mismatched{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRequests; ++i) {
        const std::int64_t n = static_cast<std::int64_t>(t) * kRequests + i;
        std::unique_ptr<Message> reply;
        bool ok = false;
        switch (i % 3) {
          case 0: {
            reply = client
                        ->deliver(std::make_unique<Greeting>("g" + std::to_string(n), n),
                                  Address("greeter"), link)
                        .get();
            auto* r = dynamic_cast<GreetingReply*>(reply.get());
            ok = r != nullptr && r->text == "g" + std::to_string(n) && r->number == n &&
                 r->accepted == (n % 2 == 0);
            break;
          }
          case 1: {
            reply =
                client->deliver(std::make_unique<SumRequest>(n, 1000000), Address("adder"), link)
                    .get();
            auto* r = dynamic_cast<SumResult*>(reply.get());
            ok = r != nullptr && r->sum == n + 1000000;
            break;
          }
          default: {
            reply = client->deliver(std::make_unique<Message>(), Address("ping"), link).get();
            ok = reply != nullptr && typeid(*reply) == typeid(Message);
            break;
          }
        }
        (ok ? matched : mismatched)++;
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(mismatched.load(), 0);
  EXPECT_EQ(matched.load(), kThreads * kRequests);
}

TEST(BridgeEndToEnd, ConcurrentRequestsShareOneSerializerOnBothSides) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  testing::registerTestMessages(*serializer);
  registerSums(*serializer);
  auto client = std::make_shared<JsonSerializerServiceProvider>(serializer);
  auto gateway = std::make_shared<JsonDeserializerServiceProvider>(serializer);
  gateway->setRunning(true);
  auto link = std::make_shared<testing::ProviderContext>(
      gateway, std::make_shared<testing::ServiceContext>(answer));

  std::atomic<int> matched{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (std::int64_t i = 0; i < 250; ++i) {
        auto reply =
            client->deliver(std::make_unique<SumRequest>(t, i), Address("adder"), link).get();
        auto* r = dynamic_cast<SumResult*>(reply.get());
        if (r != nullptr && r->sum == t + i) {
          ++matched;
        }
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(matched.load(), 1000);
}

}  // namespace
}  // namespace connector::json

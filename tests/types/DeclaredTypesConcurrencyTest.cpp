// One declaration used by several threads at once: the converters it hands out share
// the declared members and nothing else, so concurrent reads and writes of messages give
// the same texts as one thread alone.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <connector/json.hpp>

#include "types/DeclaredOrder.hpp"
#include "types/DeclaredShipment.hpp"

namespace connector::typestest {
namespace {

TEST(DeclaredTypesConcurrency, ThreadsWritingAndReadingTheSameTypeGetTheSameTexts) {
  const OrderTypes types;
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  types.order.registerWith(*serializer);
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  std::atomic<int> mismatches{0};

  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < kRounds; ++round) {
        auto order = std::make_unique<Order>();
        order->id = std::to_string(t) + "-" + std::to_string(round);
        order->items = {{"s", round}};
        order->weights = {{"w", t}};
        std::ostringstream out;
        serializer->serialize(std::unique_ptr<Message>(std::move(order)), out);
        std::unique_ptr<Message> back =
            serializer
                ->deserialize(
                    std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
                        common::DataBuffer(out.str())))
                .get();
        const auto& read = dynamic_cast<const Order&>(*back);
        if (read.id != std::to_string(t) + "-" + std::to_string(round) ||
            read.items.at(0).quantity != round) {
          ++mismatches;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(mismatches.load(), 0);
}

TEST(DeclaredTypesConcurrency, ThreadsSharingEveryOptionAndNewerKindGetTheSameTexts) {
  // The shared pattern, tagged union, kept members and defaults, from several threads
  // through both codecs: the direct one (streamed) and the converters (by object).
  const ShipmentTypes types;
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  types.shipment.registerWith(*serializer);
  std::ostringstream expected;
  serializer->serialize(std::make_unique<Shipment>(sampleShipment()), expected);
  constexpr int kThreads = 4;
  constexpr int kRounds = 100;
  std::atomic<int> mismatches{0};

  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        std::unique_ptr<Message> back =
            serializer
                ->deserialize(
                    std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(
                        common::DataBuffer(expected.str())))
                .get();
        std::ostringstream direct;
        serializer->serialize(back, direct);
        Poco::SharedPtr<Poco::JSON::Object> object = serializer->serializeToJsonObject(back);
        std::ostringstream converted;
        serializer->serialize(serializer->deserialize(types.shipment.name(), std::move(object)),
                              converted);
        if (direct.str() != expected.str() || converted.str() != expected.str()) ++mismatches;
      }
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
}  // namespace connector::typestest

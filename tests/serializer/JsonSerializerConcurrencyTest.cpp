// JsonSerializerImpl under concurrent use: conversions on several threads while other
// threads change the registry. Bounded in time; meant to run under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Poco/JSON/Parser.h>

#include <connector/json.hpp>

#include "serializer/SerializerTestTypes.hpp"
#include "support/LogCapture.hpp"

namespace connector::json {
namespace {

using connector::testing::kModuleErrorBit;
using connector::testing::LogCapture;
using connector::testing::ModuleLogSwitch;
using ObjectPtr = Poco::SharedPtr<Poco::JSON::Object>;

constexpr auto kRunTime = std::chrono::seconds(2);

// One round of a converting thread: three round trips of one message, each checked.
void roundTrips(JsonSerializerImpl& serializer, int thread, int round,
                std::atomic<int>& mismatches) {
  const std::string sku = "T" + std::to_string(thread) + "-" + std::to_string(round);
  const std::unique_ptr<Message> original = std::make_unique<shop::Reserve>(sku, round);
  auto matches = [&](const std::unique_ptr<Message>& back) {
    const auto* reserve = dynamic_cast<const shop::Reserve*>(back.get());
    return reserve != nullptr && reserve->sku == sku && reserve->quantity == round;
  };

  // Text on a stream, parsed, deserialized by "type".
  std::ostringstream text;
  serializer.serialize(original, text);
  Poco::JSON::Parser parser;
  ObjectPtr parsed = parser.parse(text.str()).extract<ObjectPtr>();
  if (!matches(serializer.deserialize(std::move(parsed)))) {
    ++mismatches;
  }
  // Object form, deserialized by name.
  if (!matches(
          serializer.deserialize("shop/Reserve", serializer.serializeToJsonObject(original)))) {
    ++mismatches;
  }
  // Byte publisher into the streamed operation.
  auto future = serializer.deserialize(serializer.serialize(original));
  if (!matches(future.get())) {
    ++mismatches;
  }
}

TEST(JsonSerializerConcurrency, ConversionsStayCorrectWhileOtherNamesComeAndGo) {
  auto serializer = std::make_shared<JsonSerializerImpl>();
  serializer->registerType("shop/Reserve", typeid(shop::Reserve), shop::reserveToJson,
                           shop::reserveFromJson);
  // A converter that changes the registry while it runs.
  std::weak_ptr<JsonSerializerImpl> weak = serializer;
  serializer->registerType(
      "shop/Cancel", typeid(shop::Cancel),
      [weak](const std::unique_ptr<Message>&) {
        weak.lock()->registerTypeIfNotRegistered("from/converter",
                                                 std::string("shop::Unregistered"),
                                                 shop::emptyToJson, shop::cancelFromJson);
        return ObjectPtr(new Poco::JSON::Object);
      },
      [](ObjectPtr) -> std::unique_ptr<Message> { throw std::runtime_error("refused"); });

  ModuleLogSwitch enabled(kModuleErrorBit);
  LogCapture capture;
  std::atomic<bool> stop{false};
  std::atomic<int> mismatches{0};
  std::atomic<int> conversions{0};
  std::atomic<int> registryChanges{0};
  std::atomic<int> refusals{0};

  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; !stop.load(); ++round) {
        roundTrips(*serializer, t, round, mismatches);
        std::ostringstream cancel;
        serializer->serialize(std::make_unique<shop::Cancel>(), cancel);
        try {
          serializer->deserialize("shop/Cancel", ObjectPtr(new Poco::JSON::Object));
        } catch (const std::runtime_error&) {
          ++refusals;
        }
        ++conversions;
      }
    });
  }
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; !stop.load(); ++round) {
        const std::string name = "churn/" + std::to_string(t) + "/" + std::to_string(round % 8);
        serializer->registerType(name, typeid(shop::NamedOnly), shop::emptyToJson,
                                 shop::namedOnlyFromJson);
        serializer->registerTypeIfNotRegistered(name + "/byName", std::string("shop::NamedOnly"),
                                                shop::emptyToJson, shop::namedOnlyFromJson);
        serializer->getNamesOfType(typeid(shop::NamedOnly));
        serializer->deregisterType(name);
        if (round % 5 == 0) {
          try {
            serializer->deregisterType(typeid(shop::NamedOnly));
          } catch (const std::runtime_error&) {
            // The other thread removed them first.
          }
        }
        ++registryChanges;
      }
    });
  }
  std::this_thread::sleep_for(kRunTime);
  stop = true;
  for (auto& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(mismatches.load(), 0);
  EXPECT_GT(conversions.load(), 0);
  EXPECT_GT(registryChanges.load(), 0);
  EXPECT_EQ(refusals.load(), conversions.load());
  EXPECT_EQ(capture.records().size(), static_cast<std::size_t>(refusals.load()));
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Reserve)),
            std::vector<std::string>{"shop/Reserve"});
  EXPECT_EQ(serializer->getNamesOfType(typeid(shop::Unregistered)),
            std::vector<std::string>{"from/converter"});
}

}  // namespace
}  // namespace connector::json

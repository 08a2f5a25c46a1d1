// The direct codec on several threads at once: readers and writers sharing one
// serializer while its names are registered again, deregistered and declared anew; and
// a message whose construction reads another document on the same thread (the thread's
// parser is then busy, and the inner read gets one of its own).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/DirectDifferential.hpp"
#include "types/DeclaredOrder.hpp"

namespace connector::testing {
namespace {

using typestest::Item;
using typestest::Order;

constexpr const char* kOrderText =
    R"({"id":"ORD-7","items":[{"sku":"LAMP-01","quantity":2},{"sku":"BULB","quantity":12}],)"
    R"("note":"by the door","priority":"high","weights":{"BULB":0.05,"LAMP-01":1.25},)"
    R"("type":"shop/Order"})";

std::string textOf(json::JsonSerializer& serializer, const std::unique_ptr<Message>& message) {
  std::ostringstream out;
  serializer.serialize(message, out);
  return out.str();
}

TEST(DirectCodecConcurrencyTest, ReadersAndWritersAgreeWhileTheNameIsRegisteredAgain) {
  const typestest::OrderTypes types;
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  types.order.registerWith(*serializer);
  constexpr int kThreads = 4;
  constexpr int kRounds = 400;
  std::atomic<bool> stop{false};
  std::atomic<int> readsOk{0};
  std::vector<std::string> failures(kThreads);
  std::vector<std::thread> workers;
  for (int t = 0; t < kThreads; ++t) {
    workers.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        try {
          std::unique_ptr<Message> order = serializer->deserialize(oneShot(kOrderText)()).get();
          if (textOf(*serializer, order) != kOrderText) failures[t] = "wrote other text";
          ++readsOk;
        } catch (const std::exception& e) {
          // Only while the name is deregistered, with the converter path's texts: reading
          // fails with "... No deserializer for type: shop/Order"; writing with "No
          // serializer for type: <class>", or, when the name went between the look-ups of
          // the message's name and of its converter, with "Serializer not found:
          // shop/Order" or std::out_of_range's "_Map_base::at".
          const std::string text = e.what();
          if (text.find("No deserializer for type: shop/Order") == std::string::npos &&
              text != "No serializer for type: connector::typestest::Order" &&
              text != "Serializer not found: shop/Order" && text != "_Map_base::at") {
            failures[t] = text;
          }
        }
      }
    });
  }
  std::thread registrar([&] {
    int round = 0;
    while (!stop) {
      switch (round++ % 3) {
        case 0:
          serializer->registerType("shop/Order", typeid(Order), types.order.serializer(),
                                   types.order.deserializer());
          break;
        case 1:
          serializer->deregisterType("shop/Order");
          break;
        default:
          types.order.registerWith(*serializer);
          break;
      }
      std::this_thread::yield();
    }
  });
  for (auto& worker : workers) worker.join();
  stop = true;
  registrar.join();
  for (const auto& failure : failures) EXPECT_EQ(failure, "");
  EXPECT_GT(readsOk.load(), 0);
}

// A message whose every construction reads another document through the same serializer.
struct Nested : Message {
  Nested();
  std::string label;
  std::string inner;
};

std::shared_ptr<json::JsonSerializerImpl>& nestedSerializer() {
  static std::shared_ptr<json::JsonSerializerImpl> serializer;
  return serializer;
}

Nested::Nested() {
  if (auto& serializer = nestedSerializer()) {
    std::unique_ptr<Message> order = serializer->deserialize(oneShot(kOrderText)()).get();
    inner = dynamic_cast<const Order&>(*order).id;
  }
}

TEST(DirectCodecConcurrencyTest, AReadInsideAReadOnOneThreadGetsAParserOfItsOwn) {
  const typestest::OrderTypes types;
  json::MessageType<Nested> nested("test/Nested");
  nested.field("label", &Nested::label);
  auto serializer = std::make_shared<json::JsonSerializerImpl>();
  types.order.registerWith(*serializer);
  nested.registerWith(*serializer);
  nestedSerializer() = serializer;
  std::unique_ptr<Message> read =
      serializer->deserialize(oneShot(R"({"label":"outer","type":"test/Nested"})")()).get();
  nestedSerializer() = nullptr;
  const auto& message = dynamic_cast<const Nested&>(*read);
  EXPECT_EQ(message.label, "outer");
  EXPECT_EQ(message.inner, "ORD-7");
}

}  // namespace
}  // namespace connector::testing

// Small typed messages for tests of the bridge, with their JSON converters.
//
//   auto serializer = std::make_shared<json::JsonSerializerImpl>();
//   testing::registerTestMessages(*serializer);   // "test/Greeting", "test/GreetingReply"
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <Poco/JSON/Object.h>

#include <connector/json.hpp>

namespace connector::testing {

struct Greeting : Message {
  Greeting() = default;
  Greeting(std::string text, std::int64_t number) : text(std::move(text)), number(number) {}
  std::string text;
  std::int64_t number = 0;
};

struct GreetingReply : Message {
  GreetingReply() = default;
  GreetingReply(std::string text, std::int64_t number, bool accepted)
      : text(std::move(text)), number(number), accepted(accepted) {}
  std::string text;
  std::int64_t number = 0;
  bool accepted = false;
};

// A message class that no serializer knows.
struct Unregistered : Message {};

inline constexpr const char* kGreeting = "test/Greeting";
inline constexpr const char* kGreetingReply = "test/GreetingReply";

inline void registerTestMessages(json::JsonSerializer& serializer) {
  serializer.registerType(
      kGreeting, typeid(Greeting),
      [](const std::unique_ptr<Message>& m) {
        const auto& g = static_cast<const Greeting&>(*m);
        Poco::SharedPtr<Poco::JSON::Object> o = new Poco::JSON::Object();
        o->set("text", g.text);
        o->set("number", g.number);
        return o;
      },
      [](Poco::SharedPtr<Poco::JSON::Object> o) -> std::unique_ptr<Message> {
        return std::make_unique<Greeting>(o->getValue<std::string>("text"),
                                          o->getValue<std::int64_t>("number"));
      });
  serializer.registerType(
      kGreetingReply, typeid(GreetingReply),
      [](const std::unique_ptr<Message>& m) {
        const auto& r = static_cast<const GreetingReply&>(*m);
        Poco::SharedPtr<Poco::JSON::Object> o = new Poco::JSON::Object();
        o->set("text", r.text);
        o->set("number", r.number);
        o->set("accepted", r.accepted);
        return o;
      },
      [](Poco::SharedPtr<Poco::JSON::Object> o) -> std::unique_ptr<Message> {
        return std::make_unique<GreetingReply>(o->getValue<std::string>("text"),
                                               o->getValue<std::int64_t>("number"),
                                               o->getValue<bool>("accepted"));
      });
}

}  // namespace connector::testing

// Message classes and converters shared by the serializer suites.
//
//   serializer->registerType("shop/Reserve", typeid(shop::Reserve), shop::reserveToJson,
//                            shop::reserveFromJson);
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include <Poco/JSON/Object.h>

#include <connector/json.hpp>

// A named namespace, so that the readable class names carry no blank (but Pair's).
namespace shop {

struct Reserve : connector::Message {
  Reserve() = default;
  Reserve(std::string sku, int quantity) : sku(std::move(sku)), quantity(quantity) {}
  std::string sku;
  int quantity = 0;
};

struct Cancel : connector::Message {};

// Registered only through its readable name in the tests that need it.
struct NamedOnly : connector::Message {};

// Never registered.
struct Unregistered : connector::Message {};

// A template: its readable name ("shop::Pair<int, long>") carries a blank.
template <typename First, typename Second>
struct Pair : connector::Message {};

inline Poco::SharedPtr<Poco::JSON::Object> reserveToJson(
    const std::unique_ptr<connector::Message>& message) {
  const auto& reserve = dynamic_cast<const Reserve&>(*message);
  Poco::SharedPtr<Poco::JSON::Object> object(new Poco::JSON::Object);
  object->set("sku", reserve.sku);
  object->set("quantity", reserve.quantity);
  return object;
}

inline std::unique_ptr<connector::Message> reserveFromJson(
    Poco::SharedPtr<Poco::JSON::Object> object) {
  return std::make_unique<Reserve>(object->getValue<std::string>("sku"),
                                   object->getValue<int>("quantity"));
}

inline Poco::SharedPtr<Poco::JSON::Object> emptyToJson(const std::unique_ptr<connector::Message>&) {
  return new Poco::JSON::Object;
}

inline std::unique_ptr<connector::Message> cancelFromJson(Poco::SharedPtr<Poco::JSON::Object>) {
  return std::make_unique<Cancel>();
}

inline std::unique_ptr<connector::Message> namedOnlyFromJson(Poco::SharedPtr<Poco::JSON::Object>) {
  return std::make_unique<NamedOnly>();
}

}  // namespace shop

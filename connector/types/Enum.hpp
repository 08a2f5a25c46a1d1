// connector::json::Enum<E>: the JSON names of an enum's values, for the members of
// declared types (json::Struct, json::MessageType) that hold that enum.
//
//   enum class Priority { Low, Normal, High };
//   const auto priority = json::Enum<Priority>(
//       {{Priority::Low, "low"}, {Priority::Normal, "normal"}, {Priority::High, "high"}});
//   order.field("priority", &Order::priority, priority);   // written as "normal"
//   *priority.nameOf(Priority::High) == "high";  priority.valueOf("low") == Priority::Low;
//
// A member holding the enum is written as its name and read only from one of the names:
// anything else is refused with `member "<path>": "<text>" is not one of "low",
// "normal", "high"` (or `expected a string, got <kind>`). Writing a value that has no
// name fails likewise, with the value's number: `member "<path>": 7 is not one of ...`.
//
// Thread-safety: immutable once constructed; copies are independent.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <Poco/JSON/Object.h>

#include "connector/types/detail/SchemaParts.hpp"

namespace connector::json {

template <typename E>
class Enum {
  static_assert(std::is_enum_v<E>, "json::Enum describes an enum type");

 public:
  using Type = E;

  // Names each listed value. Throws std::invalid_argument "an enum needs at least one
  // name" for an empty list, "enum name \"<name>\" is given twice" and "enum value
  // <number> is given twice" for repetitions.
  Enum(std::initializer_list<std::pair<E, std::string>> names) {
    if (names.size() == 0) throw std::invalid_argument("an enum needs at least one name");
    for (const auto& [value, name] : names) {
      if (valueOf(name)) throw std::invalid_argument("enum name \"" + name + "\" is given twice");
      if (nameOf(value) != nullptr) {
        throw std::invalid_argument("enum value " + std::to_string(number(value)) +
                                    " is given twice");
      }
      values.push_back(value);
      valueNames.push_back(name);
    }
  }

  // The name of value; nullptr when it has none.
  const std::string* nameOf(E value) const noexcept {
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (values[i] == value) return &valueNames[i];
    }
    return nullptr;
  }

  // The value named name; std::nullopt when no value has that name.
  std::optional<E> valueOf(std::string_view name) const noexcept {
    for (std::size_t i = 0; i < valueNames.size(); ++i) {
      if (valueNames[i] == name) return values[i];
    }
    return std::nullopt;
  }

  // The names in the order given.
  const std::vector<std::string>& names() const noexcept { return valueNames; }

  // JSON Schema (draft 2020-12) of a value: {"$schema":...,"enum":["low",...]}.
  Poco::JSON::Object::Ptr schema() const {
    Poco::JSON::Object::Ptr schema = new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
    schema->set("$schema", std::string(detail::kSchemaDraft));
    schema->set("enum", detail::enumSchema(valueNames)->get("enum"));
    return schema;
  }

  // The value as its underlying number (for messages about values without a name).
  static auto number(E value) noexcept {
    using Underlying = std::underlying_type_t<E>;
    if constexpr (std::is_signed_v<Underlying>) {
      return static_cast<long long>(value);
    } else {
      return static_cast<unsigned long long>(value);
    }
  }

 private:
  std::vector<E> values;
  std::vector<std::string> valueNames;  // valueNames[i] names values[i]
};

}  // namespace connector::json

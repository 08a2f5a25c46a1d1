// connector::json::Field: the options of one declared member, the optional last argument
// of field() in json::Struct and json::MessageType.
//
//   order.field("id", &Order::id, json::Field().quoted().alias("orderId"))
//        .field("quantity", &Order::quantity, json::Field().minimum(1).maximum(1000).defaulted())
//        .field("sku", &Order::sku, json::Field().minLength(3).pattern("^[A-Z]+-[0-9]+$"))
//        .field("items", &Order::items, item, json::Field().minItems(1).maxItems(100));
//
// alias(name)       the member is also read under name (written under its own name only);
//                   both names in one object: `member "<path>" is given twice, also as
//                   "<alias>"`. The last alias given counts.
// defaulted()       the member may be absent; it then keeps the value a default-constructed
//                   declaring type gives it (null is still refused unless it is optional).
// quoted()          integers written as strings of decimal digits ("9007199254740993"),
//                   read from such a string or a JSON integer; a string that is not one:
//                   `member "<path>": "<text>" is not an integer` (digits as in a JSON
//                   integer, "-0" excluded).
// minimum(x), maximum(x)   inclusive bounds on numbers (x: any integer or floating-point
//                   value): `member "<path>": <value> is less than the minimum <min>`,
//                   `... is more than the maximum <max>`.
// minLength(n), maxLength(n)   bounds on strings in code points: `member "<path>":
//                   <length> characters, fewer than <min>` (`more than <max>`).
// pattern(regex)    an ECMAScript regular expression that must match somewhere in the
//                   string (anchor it to match all of it): `member "<path>": does not
//                   match "<regex>"`.
// minItems(n), maxItems(n)   bounds on the member's own array (a vector or set):
//                   `member "<path>": <count> items, fewer than <min>` (`more than <max>`).
//
// The value options (quoted, the bounds, the lengths, pattern) apply to the innermost
// values: each item of a vector, each value of a map, the value of an optional. field()
// throws std::invalid_argument `member "<name>": <option> does not apply to its type` for
// an option the member's kind cannot take. The options are checked when reading only.
//
// Thread-safety: a plain value; build it on one thread.
#pragma once

#include <cmath>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "connector/types/detail/ValueRules.hpp"

namespace connector::json {

class Field {
 public:
  Field& alias(std::string name) {
    aliasName = std::move(name);
    return *this;
  }
  Field& defaulted() noexcept {
    isDefaulted = true;
    return *this;
  }
  Field& quoted() noexcept {
    isQuoted = true;
    return *this;
  }
  // Throws std::invalid_argument "a bound is a number" for NaN or an infinity.
  template <typename N>
  Field& minimum(N value) {
    lowest = bound(value);
    return *this;
  }
  template <typename N>
  Field& maximum(N value) {
    highest = bound(value);
    return *this;
  }
  Field& minLength(std::size_t n) noexcept {
    shortest = n;
    return *this;
  }
  Field& maxLength(std::size_t n) noexcept {
    longest = n;
    return *this;
  }
  Field& pattern(std::string regex) {
    regexText = std::move(regex);
    return *this;
  }
  Field& minItems(std::size_t n) noexcept {
    fewestItems = n;
    return *this;
  }
  Field& maxItems(std::size_t n) noexcept {
    mostItems = n;
    return *this;
  }

  const std::optional<std::string>& aliasOf() const noexcept { return aliasName; }
  bool isDefaultedMember() const noexcept { return isDefaulted; }
  bool isQuotedMember() const noexcept { return isQuoted; }
  const std::optional<detail::NumberBound>& minimumBound() const noexcept { return lowest; }
  const std::optional<detail::NumberBound>& maximumBound() const noexcept { return highest; }
  std::optional<std::size_t> minLengthBound() const noexcept { return shortest; }
  std::optional<std::size_t> maxLengthBound() const noexcept { return longest; }
  const std::optional<std::string>& patternText() const noexcept { return regexText; }
  std::optional<std::size_t> minItemsBound() const noexcept { return fewestItems; }
  std::optional<std::size_t> maxItemsBound() const noexcept { return mostItems; }

  // Whether an option limits the innermost values.
  bool limitsValues() const noexcept {
    return isQuoted || lowest || highest || shortest || longest || regexText;
  }
  bool limitsItems() const noexcept { return fewestItems || mostItems; }

 private:
  template <typename N>
  static detail::NumberBound bound(N value) {
    if constexpr (std::is_floating_point_v<N>) {
      if (!std::isfinite(value)) throw std::invalid_argument("a bound is a number");
    }
    return detail::NumberBound::of(value);
  }

  std::optional<std::string> aliasName;
  bool isDefaulted = false;
  bool isQuoted = false;
  std::optional<detail::NumberBound> lowest;
  std::optional<detail::NumberBound> highest;
  std::optional<std::size_t> shortest;
  std::optional<std::size_t> longest;
  std::optional<std::string> regexText;
  std::optional<std::size_t> fewestItems;
  std::optional<std::size_t> mostItems;
};

}  // namespace connector::json

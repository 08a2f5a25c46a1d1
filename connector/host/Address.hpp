// connector::Address: where a delivery goes, such as "shop/ReserveItem".
//
//   connector::Address to("shop/ReserveItem");
//   router.deliver(std::move(request), std::move(to));
//
// The JSON module never inspects an address; it moves it on. Hosts route by str().
//
// Thread-safety: a value type; distinct objects may be used from distinct threads.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>

#include "connector/Export.hpp"

namespace connector {

class CONNECTOR_API Address {
 public:
  Address() = default;
  explicit Address(std::string text) : text(std::move(text)) {}

  const std::string& str() const noexcept { return text; }

  friend bool operator==(const Address& a, const Address& b) noexcept { return a.text == b.text; }
  friend bool operator!=(const Address& a, const Address& b) noexcept { return !(a == b); }

 private:
  std::string text;
};

}  // namespace connector

template <>
struct std::hash<connector::Address> {
  std::size_t operator()(const connector::Address& a) const noexcept {
    return std::hash<std::string>()(a.str());
  }
};

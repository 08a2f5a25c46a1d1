// connector::json::detail::MemberIndex: the declared member names of one object type,
// and the single pass that finds each of them in a JSON object.
//
//   MemberIndex index;
//   index.add("sku");        // name 0
//   index.add("quantity");   // name 1 (a member's alias is a name of its own)
//   const Poco::Dynamic::Var* slots[2];
//   const std::string* unknown = index.locate(object, slots, nullptr);
//   // slots[1] == nullptr when "quantity" is absent; *unknown names a member not declared
//
// locate walks the object's members once, in their (sorted) order, beside the declared
// names kept in the same order: no look-up per member and no copy of any value. find
// serves the direct reader, which meets members in the order of the text: it tries the
// member a caller expects next (the one after the last found) before it searches.
//
// Thread-safety: add() while declaring, on one thread; locate() from any number of
// threads afterwards.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>

#include "connector/Export.hpp"

namespace connector::json::detail {

class CONNECTOR_API MemberIndex {
 public:
  // Declares the next name (a member's own, or its alias); returns its number, counted
  // from 0 in the order of declaration. Throws std::invalid_argument
  // "member \"<name>\" is declared twice" when name is already declared.
  std::size_t add(const std::string& name);

  std::size_t size() const noexcept { return sorted.size(); }

  static constexpr std::size_t kNotDeclared = static_cast<std::size_t>(-1);

  // The number of the name key, or kNotDeclared; `expected` is tried first.
  std::size_t find(std::string_view key, std::size_t expected) const noexcept;

  // Whether name is declared.
  bool has(std::string_view name) const noexcept {
    return find(name, kNotDeclared) != kNotDeclared;
  }

  // Sets slots[i] (size() of them) to the value of the i-th declared name, nullptr when
  // the object lacks it. Returns the first member of the object that is not declared
  // (skipping the member named *ignored, when given), or nullptr when there is none;
  // with unknown given, appends every such member to it, in the object's order.
  const std::string* locate(
      const Poco::JSON::Object& object, const Poco::Dynamic::Var** slots,
      const std::string* ignored,
      std::vector<const Poco::JSON::Object::ValueType*>* unknown = nullptr) const;

 private:
  std::vector<std::pair<std::string, std::size_t>> sorted;  // name, declaration index
  std::vector<std::string> declared;                        // names in declaration order
};

}  // namespace connector::json::detail

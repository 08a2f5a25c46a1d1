#include "connector/types/detail/MemberIndex.hpp"

#include <algorithm>
#include <stdexcept>

namespace connector::json::detail {

std::size_t MemberIndex::add(const std::string& name) {
  const auto at = std::lower_bound(sorted.begin(), sorted.end(), name,
                                   [](const std::pair<std::string, std::size_t>& entry,
                                      const std::string& key) { return entry.first < key; });
  if (at != sorted.end() && at->first == name) {
    throw std::invalid_argument("member \"" + name + "\" is declared twice");
  }
  sorted.emplace(at, name, sorted.size());
  declared.push_back(name);
  return declared.size() - 1;
}

std::size_t MemberIndex::find(std::string_view key, std::size_t expected) const noexcept {
  if (expected < declared.size() && declared[expected] == key) return expected;
  const auto at = std::lower_bound(
      sorted.begin(), sorted.end(), key,
      [](const std::pair<std::string, std::size_t>& entry, std::string_view wanted) {
        return std::string_view(entry.first) < wanted;
      });
  return at != sorted.end() && at->first == key ? at->second : kNotDeclared;
}

const std::string* MemberIndex::locate(
    const Poco::JSON::Object& object, const Poco::Dynamic::Var** slots, const std::string* ignored,
    std::vector<const Poco::JSON::Object::ValueType*>* unknown) const {
  std::fill(slots, slots + sorted.size(), nullptr);
  const std::string* firstUnknown = nullptr;
  auto declared = sorted.begin();
  // Poco keeps an object's members in a std::map, so both sides are in the same order.
  for (const auto& member : object) {
    const std::string& key = member.first;
    int order = 1;
    while (declared != sorted.end() && (order = declared->first.compare(key)) < 0) {
      ++declared;
    }
    if (declared != sorted.end() && order == 0) {
      slots[declared->second] = &member.second;
      ++declared;
    } else if (ignored == nullptr || key != *ignored) {
      if (firstUnknown == nullptr) firstUnknown = &key;
      if (unknown != nullptr) unknown->push_back(&member);
    }
  }
  return firstUnknown;
}

}  // namespace connector::json::detail

#include "connector/net/detail/ContentType.hpp"

#include <algorithm>
#include <cctype>

namespace connector::net::detail {

namespace {

constexpr std::string_view kBlanks = " \t";

// `a` equals `lower` (all lower case) when ASCII letters are compared in any case.
bool iequals(std::string_view a, std::string_view lower) {
  return a.size() == lower.size() &&
         std::equal(a.begin(), a.end(), lower.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == y;
         });
}

}  // namespace

bool isJsonContentType(std::string_view value) noexcept {
  // The media type: what comes before the parameters, without the blanks around it.
  std::string_view type = value.substr(0, value.find(';'));
  const std::size_t first = type.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return false;
  type = type.substr(first, type.find_last_not_of(kBlanks) - first + 1);

  constexpr std::string_view kApplication = "application/";
  if (type.size() <= kApplication.size() ||
      !iequals(type.substr(0, kApplication.size()), kApplication)) {
    return false;
  }
  const std::string_view subtype = type.substr(kApplication.size());
  if (subtype.find_first_of(" \t/") != std::string_view::npos) return false;
  constexpr std::string_view kSuffix = "+json";
  return iequals(subtype, "json") ||
         (subtype.size() > kSuffix.size() &&
          iequals(subtype.substr(subtype.size() - kSuffix.size()), kSuffix));
}

}  // namespace connector::net::detail

#include "connector/types/detail/MemberOptions.hpp"

namespace connector::json::detail {

RulesToApply rulesOf(const Field& options, const std::string& name) {
  RulesToApply out;
  if (options.limitsValues()) {
    auto rules = std::make_shared<ValueRules>();
    rules->quoted = options.isQuotedMember();
    rules->minimum = options.minimumBound();
    rules->maximum = options.maximumBound();
    rules->minLength = options.minLengthBound();
    rules->maxLength = options.maxLengthBound();
    if (options.patternText()) {
      rules->patternText = *options.patternText();
      try {
        rules->pattern.emplace(rules->patternText, std::regex::ECMAScript);
      } catch (const std::regex_error&) {
        throw std::invalid_argument("member \"" + name + "\": pattern \"" + rules->patternText +
                                    "\" is not a regular expression");
      }
    }
    out.rules = std::move(rules);
  }
  if (options.limitsItems()) {
    auto counts = std::make_shared<ItemCounts>();
    counts->minItems = options.minItemsBound();
    counts->maxItems = options.maxItemsBound();
    out.counts = std::move(counts);
  }
  return out;
}

void checkApplied(const Field& options, const AppliedOptions& applied, const std::string& name) {
  const char* option = nullptr;
  if (options.isQuotedMember() && !applied.quoted) {
    option = "quoted()";
  } else if (options.minimumBound() && !applied.bounds) {
    option = "minimum()";
  } else if (options.maximumBound() && !applied.bounds) {
    option = "maximum()";
  } else if (options.minLengthBound() && !applied.text) {
    option = "minLength()";
  } else if (options.maxLengthBound() && !applied.text) {
    option = "maxLength()";
  } else if (options.patternText() && !applied.text) {
    option = "pattern()";
  } else if (options.minItemsBound() && !applied.items) {
    option = "minItems()";
  } else if (options.maxItemsBound() && !applied.items) {
    option = "maxItems()";
  }
  if (option != nullptr) {
    throw std::invalid_argument("member \"" + name + "\": " + option +
                                " does not apply to its type");
  }
}

}  // namespace connector::json::detail

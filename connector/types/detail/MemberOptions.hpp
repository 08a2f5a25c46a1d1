// How a member's json::Field options reach its codec: the value rules go to the
// innermost integer, floating-point or string codec (through optionals, vectors, sets,
// arrays and maps), the item counts to the member's own vector or set; an option that
// reaches no codec that takes it is a declaration error.
//
//   auto codec = PlainCodec<std::vector<int>>{};
//   applyOptions(codec, json::Field().minimum(1).minItems(1), "quantities");
//   // codec.inner.rules->minimum, codec.counts->minItems
//
// Thread-safety: while declaring, on one thread.
#pragma once

#include <cstddef>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>

#include "connector/types/Field.hpp"
#include "connector/types/detail/Codecs.hpp"
#include "connector/types/detail/ContainerCodecs.hpp"
#include "connector/types/detail/ValueRules.hpp"

namespace connector::json::detail {

// Which options found a codec that takes them.
struct AppliedOptions {
  bool quoted = false;
  bool bounds = false;
  bool text = false;
  bool items = false;
};

struct RulesToApply {
  std::shared_ptr<const ValueRules> rules;
  std::shared_ptr<const ItemCounts> counts;
};

// Any other codec takes none of the options.
template <typename Codec>
void applyRules(Codec& /*codec*/, const RulesToApply& /*rules*/, bool /*outer*/,
                AppliedOptions& /*applied*/) {}

template <typename I>
void applyRules(IntegerCodec<I>& codec, const RulesToApply& rules, bool /*outer*/,
                AppliedOptions& applied) {
  codec.rules = rules.rules;
  applied.quoted = applied.bounds = true;
}
template <typename F>
void applyRules(FloatingCodec<F>& codec, const RulesToApply& rules, bool /*outer*/,
                AppliedOptions& applied) {
  codec.rules = rules.rules;
  applied.bounds = true;
}
inline void applyRules(StringCodec& codec, const RulesToApply& rules, bool /*outer*/,
                       AppliedOptions& applied) {
  codec.rules = rules.rules;
  applied.text = true;
}
template <typename Inner>
void applyRules(OptionalCodec<Inner>& codec, const RulesToApply& rules, bool outer,
                AppliedOptions& applied) {
  applyRules(codec.inner, rules, outer, applied);
}
template <typename Inner>
void applyRules(VectorCodec<Inner>& codec, const RulesToApply& rules, bool outer,
                AppliedOptions& applied) {
  if (outer) {
    codec.counts = rules.counts;
    applied.items = true;
  }
  applyRules(codec.inner, rules, false, applied);
}
template <typename Inner>
void applyRules(SetCodec<Inner>& codec, const RulesToApply& rules, bool outer,
                AppliedOptions& applied) {
  if (outer) {
    codec.counts = rules.counts;
    applied.items = true;
  }
  applyRules(codec.inner, rules, false, applied);
}
template <typename Inner, std::size_t N>
void applyRules(FixedArrayCodec<Inner, N>& codec, const RulesToApply& rules, bool /*outer*/,
                AppliedOptions& applied) {
  applyRules(codec.inner, rules, false, applied);
}
template <typename Inner>
void applyRules(MapCodec<Inner>& codec, const RulesToApply& rules, bool /*outer*/,
                AppliedOptions& applied) {
  applyRules(codec.inner, rules, false, applied);
}
template <typename Inner>
void applyRules(UnorderedMapCodec<Inner>& codec, const RulesToApply& rules, bool /*outer*/,
                AppliedOptions& applied) {
  applyRules(codec.inner, rules, false, applied);
}

// The rules of the options (nullptr where none are given). Throws std::invalid_argument
// `member "<name>": pattern "<regex>" is not a regular expression`.
CONNECTOR_API RulesToApply rulesOf(const Field& options, const std::string& name);

// Throws std::invalid_argument `member "<name>": <option> does not apply to its type`
// for the first option given that found no codec taking it.
CONNECTOR_API void checkApplied(const Field& options, const AppliedOptions& applied,
                                const std::string& name);

// Puts the options' rules into codec. Throws std::invalid_argument (see above).
template <typename Codec>
void applyOptions(Codec& codec, const Field& options, const std::string& name) {
  if (!options.limitsValues() && !options.limitsItems()) return;
  const RulesToApply rules = rulesOf(options, name);
  AppliedOptions applied;
  applyRules(codec, rules, true, applied);
  checkApplied(options, applied, name);
}

}  // namespace connector::json::detail

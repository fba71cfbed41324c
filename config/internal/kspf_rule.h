/* kspf_rule: makes a constraint ready for checking. */
#ifndef KSUTIL_CONFIG_INTERNAL_KSPF_RULE_H
#define KSUTIL_CONFIG_INTERNAL_KSPF_RULE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "config/kspf.h"
#include "platform/expr/shared/pattern.h"

namespace ksutil {

/* In the order of the words for the types. */
enum class PfRuleType {
  kAny,
  kString,
  kInteger,
  kReal,
  kBoolean,
  kTime,
  kTable,
  kArray
};

struct PfRule {
  const KSPf_Constraint *constraint = nullptr;  // must outlive the rule
  PfRuleType type = PfRuleType::kAny;
  std::optional<std::int64_t> integer_min, integer_max;
  std::optional<double> min, max;
  std::unordered_set<std::string> values;
  std::optional<expr::Pattern> pattern;
  std::vector<PfRule> words;
  std::unique_ptr<PfRule> items, others;
  std::vector<PfRule> keys;
  std::unordered_map<std::string, const PfRule *> by_name;  // into keys

  bool is_text() const { return type != PfRuleType::kAny && type < PfRuleType::kTable; }
};

/* Makes one constraint ready, without the constraints within it; false with the cause
 * when its members do not fit together. */
bool make_rule(const KSPf_Constraint &constraint, PfRule &rule, std::string &cause);

/* Makes a constraint and all constraints within it ready.  `place` is the name of the
 * constraint in messages; after a failure it is the name of the faulty one. */
bool make_rules(const KSPf_Constraint &constraint, PfRule &rule, std::string &place,
                std::string &cause);

}  // namespace ksutil
#endif

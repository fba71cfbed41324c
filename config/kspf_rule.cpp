#include "config/internal/kspf_rule.h"

#include <array>
#include <string_view>
#include <utility>

#include "config/internal/kspf_contents.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

constexpr std::array<std::string_view, 8> kTypes = {
    "any", "string", "integer", "real", "boolean", "time", "table", "array"};

bool find_type(std::string_view word, PfRuleType &type) {
  for (std::size_t i = 0; i < kTypes.size(); ++i) {
    if (kTypes[i] != word) continue;
    type = static_cast<PfRuleType>(i);
    return true;
  }
  return false;
}

/* The type that follows from the other members when no type is given. */
PfRuleType implied_type(const KSPf_Constraint &constraint) {
  if (constraint.keys.size() > 0 || constraint.others.size() > 0) {
    return PfRuleType::kArray;
  }
  if (constraint.items.size() > 0) return PfRuleType::kTable;
  if (constraint.values.size() > 0 || !constraint.pattern.empty() ||
      constraint.words.size() > 0) {
    return PfRuleType::kString;
  }
  return PfRuleType::kAny;
}

bool read_bound(const std::string &text, PfRule &rule,
                std::optional<std::int64_t> &integer, std::optional<double> &real) {
  if (text.empty()) return true;
  std::int64_t number = 0;
  double value = 0.0;
  switch (rule.type) {
    case PfRuleType::kInteger:
      if (!parse_integer(text, number)) return false;
      integer = number;
      return true;
    case PfRuleType::kReal:
      if (!parse_real(text, value)) return false;
      break;
    case PfRuleType::kTime:
      if (!parse_time(text, value)) return false;
      break;
    default:
      return false;
  }
  real = value;
  return true;
}

/* Anchors a pattern at both ends, because the whole text must match; the pattern is
 * first compiled by itself, so that its own faults are found. */
bool compile_pattern(const std::string &text, PfRule &rule, std::string &cause) {
  std::size_t position = 0;
  std::string message;
  if (rule.pattern.emplace().compile(text, position, message) &&
      rule.pattern.emplace().compile("^(" + text + ")$", position, message)) {
    return true;
  }
  cause = "the pattern is faulty at character " + std::to_string(position + 1) + ": " +
          message;
  return false;
}

/* The fault of a member that does not belong to the constraint's type. */
const char *misplaced(const KSPf_Constraint &constraint, const PfRule &rule) {
  const bool ordered = rule.type == PfRuleType::kInteger ||
                       rule.type == PfRuleType::kReal || rule.type == PfRuleType::kTime;
  if (!ordered && !(constraint.min.empty() && constraint.max.empty())) {
    return "min and max are for integer, real and time";
  }
  if (!rule.is_text() &&
      (constraint.values.size() > 0 || !constraint.pattern.empty())) {
    return "values and pattern are for texts";
  }
  if (!rule.is_text() && constraint.empty_ok) return "empty is for texts";
  if (rule.type != PfRuleType::kString && constraint.words.size() > 0) {
    return "words is for string";
  }
  if (rule.type != PfRuleType::kTable && constraint.items.size() > 0) {
    return "items is for table";
  }
  if (rule.type != PfRuleType::kArray &&
      (constraint.keys.size() > 0 || constraint.others.size() > 0)) {
    return "keys and others are for array";
  }
  if (rule.type != PfRuleType::kTable && rule.type != PfRuleType::kArray &&
      (constraint.min_count >= 0 || constraint.max_count >= 0)) {
    return "min_count and max_count are for table and array";
  }
  if (constraint.items.size() > 1 || constraint.others.size() > 1) {
    return "items and others hold one constraint";
  }
  return nullptr;
}

bool make_words(PfRule &rule, std::string &place, std::string &cause) {
  bool optional = false;
  for (const KSPf_Constraint &word : rule.constraint->words) {
    const std::string outer = place;
    place += " word " + std::to_string(rule.words.size() + 1);
    if (!make_rules(word, rule.words.emplace_back(), place, cause)) return false;
    if (!rule.words.back().is_text()) {
      cause = "a word must be a text";
      return false;
    }
    if (optional && word.required) {
      cause = "a required word must not follow one that is not";
      return false;
    }
    optional = !word.required;
    place = outer;
  }
  return true;
}

bool make_keys(PfRule &rule, std::string &place, std::string &cause) {
  rule.keys.reserve(static_cast<std::size_t>(rule.constraint->keys.size()));
  for (const KSPf_Constraint &key : rule.constraint->keys) {
    const std::string outer = place;
    place += (place.empty() ? "" : ".") + key.name;
    if (!make_rules(key, rule.keys.emplace_back(), place, cause)) return false;
    if (!rule.by_name.emplace(key.name, &rule.keys.back()).second) {
      cause = "the key is named twice";
      return false;
    }
    place = outer;
  }
  return true;
}

bool make_inner(const Table<KSPf_Constraint> &constraint, const char *step,
                std::unique_ptr<PfRule> &rule, std::string &place, std::string &cause) {
  if (constraint.size() == 0) return true;
  rule = std::make_unique<PfRule>();
  const std::string outer = place;
  place += step;
  if (!make_rules(*constraint.ptr(0), *rule, place, cause)) return false;
  place = outer;
  return true;
}

}  // namespace

bool make_rule(const KSPf_Constraint &constraint, PfRule &rule, std::string &cause) {
  rule.constraint = &constraint;
  if (!find_type(constraint.type, rule.type)) {
    cause = "there is no type '" + constraint.type + "'";
    return false;
  }
  if (rule.type == PfRuleType::kAny) rule.type = implied_type(constraint);
  if (const char *text = misplaced(constraint, rule)) {
    cause = text;
    return false;
  }
  if (!read_bound(constraint.min, rule, rule.integer_min, rule.min) ||
      !read_bound(constraint.max, rule, rule.integer_max, rule.max)) {
    cause = "min or max is not of the type";
    return false;
  }
  if (rule.integer_min > rule.integer_max && rule.integer_max.has_value()) {
    cause = "min is above max";
    return false;
  }
  if (rule.min > rule.max && rule.max.has_value()) {
    cause = "min is above max";
    return false;
  }
  if (constraint.max_count >= 0 && constraint.min_count > constraint.max_count) {
    cause = "min_count is above max_count";
    return false;
  }
  rule.values.insert(constraint.values.begin(), constraint.values.end());
  return constraint.pattern.empty() || compile_pattern(constraint.pattern, rule, cause);
}

bool make_rules(const KSPf_Constraint &constraint, PfRule &rule, std::string &place,
                std::string &cause) {
  return make_rule(constraint, rule, cause) && make_words(rule, place, cause) &&
         make_keys(rule, place, cause) &&
         make_inner(constraint.items, "[]", rule.items, place, cause) &&
         make_inner(constraint.others, ".*", rule.others, place, cause);
}

}  // namespace ksutil

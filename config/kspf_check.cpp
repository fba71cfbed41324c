/* kspf_check: checks parameter files against constraints. */
#include <algorithm>
#include <cstdint>

#include <string_view>
#include <utility>

#include "config/internal/kspf_contents.h"
#include "config/internal/kspf_rule.h"
#include "platform/elog/failure.h"
#include "platform/stock/nearest_name.h"
#include "platform/stock/text.h"

using ksutil::at_boundary;
using ksutil::fail;
using ksutil::kind_name;
using ksutil::PfNode;
using ksutil::PfRule;
using ksutil::PfRuleType;

namespace {

/* Longer texts match no pattern: the time of a match is proportional to the length of
 * the text times that of the pattern. */
constexpr std::size_t kMaxMatched = 65536;

/* A text as messages show it: on one line, and cut when it is long. */
std::string quoted(std::string_view text) {
  constexpr std::size_t kShown = 60;
  std::string out = "'";
  for (const char c : text.substr(0, kShown)) {
    if (c == '\n') {
      out += "\\n";
    } else if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') {
      out += ksutil::format_text("\\x%02x", static_cast<unsigned>(c));
    } else {
      out += c;
    }
  }
  return out + (text.size() > kShown ? "...'" : "'");
}

std::string counted(std::size_t number, const char *what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

/* The key that a misspelt name is closest to; empty when none is close. */
std::string nearest_key(const PfRule &rule, std::string_view name) {
  std::vector<std::string_view> keys;
  for (const auto &key : rule.keys) keys.push_back(key.constraint->name);
  return ksutil::nearest_name(name, keys);
}

/* Finds the faults of texts, whatever the file around them. */
class TextChecker {
 public:
  /* The fault of a text, empty when there is none. */
  std::string fault_of(const std::string &text, const PfRule &rule) {
    if (text.empty() && rule.constraint->empty_ok) return {};
    std::string fault = type_fault(text, rule);
    if (!fault.empty()) return fault;
    if (!rule.values.empty() && !rule.values.contains(text)) {
      return quoted(text) + " is none of " + values_text(*rule.constraint);
    }
    if (rule.pattern.has_value() && !matches(text, *rule.pattern)) {
      return quoted(text) + " does not match the pattern " + rule.constraint->pattern;
    }
    return rule.words.empty() ? std::string() : words_fault(text, rule);
  }

 private:
  static std::string type_fault(const std::string &text, const PfRule &rule) {
    double real = 0.0;
    switch (rule.type) {
      case PfRuleType::kInteger:
        return integer_fault(text, rule);
      case PfRuleType::kReal:
        if (!ksutil::parse_real(text, real)) return must_be("a real number", text);
        return bounds_fault(text, real, rule);
      case PfRuleType::kTime:
        if (!ksutil::parse_time(text, real)) return must_be("a time", text);
        return bounds_fault(text, real, rule);
      case PfRuleType::kBoolean: {
        bool word = false;
        return ksutil::parse_boolean(text, word) ? "" : must_be("yes or no", text);
      }
      default:
        return {};
    }
  }

  static std::string must_be(const char *what, const std::string &text) {
    return std::string("must be ") + what + ", not " +
           (text.empty() ? "empty" : quoted(text));
  }

  static std::string integer_fault(const std::string &text, const PfRule &rule) {
    std::int64_t number = 0;
    if (!ksutil::parse_integer(text, number)) return must_be("an integer", text);
    if (rule.integer_min.has_value() && number < *rule.integer_min) {
      return below(text, rule);
    }
    if (rule.integer_max.has_value() && number > *rule.integer_max) {
      return above(text, rule);
    }
    return {};
  }

  /* The comparisons are written so that NaN violates each bound. */
  static std::string bounds_fault(const std::string &text, double value,
                                  const PfRule &rule) {
    if (rule.min.has_value() && !(value >= *rule.min)) return below(text, rule);
    if (rule.max.has_value() && !(value <= *rule.max)) return above(text, rule);
    return {};
  }

  static std::string below(const std::string &text, const PfRule &rule) {
    return quoted(text) + " is below the minimum " + rule.constraint->min;
  }
  static std::string above(const std::string &text, const PfRule &rule) {
    return quoted(text) + " is above the maximum " + rule.constraint->max;
  }

  static std::string values_text(const KSPf_Constraint &constraint) {
    constexpr long kShown = 10;
    std::string text;
    for (long i = 0; i < std::min(constraint.values.size(), kShown); ++i) {
      text += (i == 0 ? "" : ", ") + constraint.values.get(i);
    }
    return constraint.values.size() > kShown ? text + ", ..." : text;
  }

  bool matches(const std::string &text, const ksutil::expr::Pattern &pattern) {
    return text.size() <= kMaxMatched && pattern.found_in(text, scratch_);
  }

  std::string words_fault(std::string_view text, const PfRule &rule) {
    constexpr std::string_view kBlanks = " \t\r\n";
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find_first_not_of(kBlanks, at)) != text.npos;
         ++count) {
      const std::size_t end = std::min(text.find_first_of(kBlanks, at), text.size());
      if (count == rule.words.size()) {
        return "has more than " + counted(count, "word");
      }
      const std::string word(text.substr(at, end - at));
      const std::string fault = fault_of(word, rule.words[count]);
      if (!fault.empty()) return "word " + std::to_string(count + 1) + " " + fault;
      at = end;
    }
    const auto needed = static_cast<std::size_t>(
        std::count_if(rule.words.begin(), rule.words.end(),
                      [](const PfRule &word) { return word.constraint->required; }));
    if (count >= needed) return {};
    return "has " + counted(count, "word") + ", fewer than " + std::to_string(needed);
  }

  ksutil::expr::PatternScratch scratch_;
};

class Checker {
 public:
  Checker(const ksutil::PfDocument &document, Table<KSPf_Violation> &violations)
      : document_(document), violations_(violations) {}

  void check(const PfNode &node, const PfRule &rule) {
    if (full()) return;
    switch (rule.type) {
      case PfRuleType::kAny:
        return;
      case PfRuleType::kTable:
      case PfRuleType::kArray: {
        const int kind = rule.type == PfRuleType::kTable ? PFTBL : PFARR;
        if (node.kind != kind) return report_kind(node, kind);
        check_count(node, rule);
        return kind == PFTBL ? check_items(node, rule) : check_keys(node, rule);
      }
      default:
        if (node.kind != PFSTRING) return report_kind(node, PFSTRING);
        if (std::string fault = texts_.fault_of(node.text(), rule); !fault.empty()) {
          report(node, std::move(fault));
        }
    }
  }

 private:
  bool full() const { return violations_.size() >= kKSPfMaxViolations; }

  void report(const PfNode &node, std::string text) {
    if (full()) return;
    violations_.push({document_.place_text({node.place.file, 0}),
                      static_cast<long>(node.place.line), ksutil::path_text(path_),
                      std::move(text)});
  }

  void report_kind(const PfNode &node, int expected) {
    report(node, std::string("must be ") + kind_name(expected) + ", not " +
                     kind_name(node.kind));
  }

  void check_count(const PfNode &node, const PfRule &rule) {
    const bool table = node.kind == PFTBL;
    const std::size_t count =
        table ? node.block->items.size() : node.block->by_name.size();
    const long min = rule.constraint->min_count, max = rule.constraint->max_count;
    const std::string holds = "holds " + counted(count, table ? "item" : "key");
    if (min >= 0 && count < static_cast<std::size_t>(min)) {
      report(node, holds + ", fewer than " + std::to_string(min));
    }
    if (max >= 0 && count > static_cast<std::size_t>(max)) {
      report(node, holds + ", more than " + std::to_string(max));
    }
  }

  void check_items(const PfNode &node, const PfRule &rule) {
    if (rule.items == nullptr) return;
    for (std::size_t i = 0; i < node.block->items.size() && !full(); ++i) {
      path_.push_back({{}, static_cast<long>(i)});
      check(*node.block->items[i], *rule.items);
      path_.pop_back();
    }
  }

  void check_keys(const PfNode &node, const PfRule &rule) {
    for (const PfRule &key : rule.keys) {
      const std::string &name = key.constraint->name;
      if (!key.constraint->required || node.block->by_name.contains(name)) continue;
      path_.push_back({name, -1});
      report(node, "is required but missing");
      path_.pop_back();
    }
    for (const auto &line : node.block->lines) {
      if (!line->is_value() || full()) continue;
      path_.push_back({line->name, -1});
      check_key(*line, rule);
      path_.pop_back();
    }
  }

  void check_key(const PfNode &node, const PfRule &rule) {
    const auto known = rule.by_name.find(node.name);
    if (known != rule.by_name.end()) {
      check(node, *known->second);
    } else if (rule.others != nullptr) {
      check(node, *rule.others);
    } else if (!rule.keys.empty()) {
      const std::string nearest = nearest_key(rule, node.name);
      report(node, nearest.empty() ? "is not a known key"
                                   : "is not a known key; is it " + nearest + "?");
    }
  }

  const ksutil::PfDocument &document_;
  Table<KSPf_Violation> &violations_;
  ksutil::PfPath path_;
  TextChecker texts_;
};

}  // namespace

int KSPf::check(const KSPf_Constraint &constraint,
                Table<KSPf_Violation> &violations) const {
  return at_boundary("KSPf::check", [&]() -> int {
    PfRule rule;
    std::string place, cause;
    if (!ksutil::make_rules(constraint, rule, place, cause)) {
      return fail("KSPf::check", "Faulty constraint: %s%s%s", place.c_str(),
                  place.empty() ? "" : ": ", cause.c_str());
    }
    Table<KSPf_Violation> found;
    Checker(contents().document, found).check(contents().document.root, rule);
    violations = std::move(found);
    return violations.size() > 0 ? 1 : 0;
  });
}

#include "events/reading/internal/magnitude_rules.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "core/params.h"
#include "platform/elog/failure.h"
#include "platform/pf/owners.h"
#include "platform/stock/owners.h"
#include "platform/stock/text.h"

namespace ksutil::events {

/* Each type is preferred inside the range in which it is trusted.  Outside its range a
 * listed type still beats one that is not listed. */
const char kDefaultMagnitudeRules[] =
    "preferred_magnitudes &Tbl{\n"
    "\tmww\t\t7.0\n"
    "\tmwp\t\t6.0\n"
    "\tmwc\t\t6.0\t\t8.0\n"
    "\tmwb\t\t4.0\t\t7.0\n"
    "\tmwr\t\t3.0\t\t7.0\n"
    "\tmw\t\t4.0\t\t7.0\n"
    "\tml\t\t-1.0\t5.0\n"
    "\tmb\t\t3.0\t\t6.0\n"
    "\tms\t\t5.0\t\t7.0\n"
    "\tmww\n"
    "\tmwp\n"
    "\tmwc\n"
    "\tmwb\n"
    "\tmwr\n"
    "\tmw\n"
    "\tml\n"
    "\tmb\n"
    "\tms\n"
    "}\n";

namespace {

constexpr std::size_t kEntryLength = 1020;
constexpr std::size_t kTypeLength = 7;

constexpr const char *kWho = "EVServer::readPreferredMagnitudes";

/* Reads "type [minimum [maximum]]"; false with a message. */
bool read_rule(const std::string &entry, EVPreferredMagnitude &rule) {
  char type[kEntryLength + 1];
  char rest[kEntryLength + 1];
  const ScopedCLocale c_locale;
  const int fields = std::sscanf(entry.c_str(), "%s %lf %lf %s", type, &rule.minmag,
                                 &rule.maxmag, rest);
  if (fields < 1) {
    return fail(kWho, "sscanf(%s) error", entry.c_str());
  }
  if (fields > 3) {
    return fail(kWho, "Too many fields in '%s'", entry.c_str());
  }
  rule.magtype.assign(type, strnlen(type, kTypeLength));
  return true;
}

/* A type of up to 7 characters as one number; 0, which is not a type's number, for a
 * longer text. */
uint64_t packed(std::string_view text, bool lower) {
  if (text.size() > kTypeLength) return 0;
  uint64_t result = 1;
  for (char c : text) {
    if (lower && c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    result = result << 8 | static_cast<unsigned char>(c);
  }
  return result;
}

}  // namespace

int read_magnitude_rules(Pf *pf, MagnitudeRules &rules) {
  rules.clear();
  Tbl *entries = nullptr;
  if (parse_param(pf, "preferred_magnitudes", P_TBLCOPY, 0, &entries) < 0) {
    return fail(kWho, "parse_param(preferred_magnitudes) error");
  }
  const TblPtr owner(entries);
  for (long i = 0; i < counttbl(entries); i++) {
    const auto *text = static_cast<const char *>(gettbl(entries, i));
    if (text == nullptr || *text == '\0') continue;
    std::string_view entry(text, strnlen(text, kEntryLength));
    entry = trimmed(entry.substr(0, entry.find('#')));
    if (entry.empty()) continue;
    EVPreferredMagnitude rule;
    if (!read_rule(std::string(entry), rule)) return -1;
    rules.push(std::move(rule));
  }
  return 0;
}

int read_magnitude_rules(const char *text, MagnitudeRules &rules) {
  Pf *pf = nullptr;
  if (pfcompile(text, &pf) < 0) {
    return fail(kWho, "pfcompile(%s) error", text == nullptr ? "" : text);
  }
  const PfOwner owner(pf);
  return read_magnitude_rules(pf, rules);
}

void read_default_magnitude_rules(MagnitudeRules &rules) {
  /* Only memory can be wanting: the text is one of the library. */
  if (read_magnitude_rules(kDefaultMagnitudeRules, rules) < 0) throw std::bad_alloc();
}

RuleBook::RuleBook(const MagnitudeRules &rules) {
  rules_.reserve(static_cast<std::size_t>(rules.size()));
  for (const EVPreferredMagnitude &rule : rules) {
    rules_.push_back(Rule{packed(rule.magtype, false), rule.minmag, rule.maxmag});
  }
}

/* The type of the magnitude is compared in lower case, the types of rules as
 * written. */
unsigned RuleBook::priority(const EVMagnitude &magnitude) const {
  const uint64_t type = packed(magnitude.magtype, true);
  if (type == 0) return 0;
  for (std::size_t i = 0; i < rules_.size(); i++) {
    const Rule &rule = rules_[i];
    if (rule.type == type && rule.minmag <= magnitude.magnitude &&
        magnitude.magnitude <= rule.maxmag) {
      return static_cast<unsigned>(rules_.size() - i);
    }
  }
  return 0;
}

unsigned magnitude_priority(const RuleBook &rules, const EVMagnitude &magnitude) {
  return rules.priority(magnitude);
}

int find_preferred_magnitude(const RuleBook &rules,
                             const Table<EVMagnitude> &magnitudes, int &priority) {
  priority = 0;
  if (rules.empty()) return static_cast<int>(magnitudes.size()) - 1;
  int best = -1;
  for (long i = 0; i < magnitudes.size(); i++) {
    const auto candidate = static_cast<int>(rules.priority(*magnitudes.ptr(i)));
    if (candidate >= priority) {
      best = static_cast<int>(i);
      priority = candidate;
    }
  }
  return best;
}

void set_preferred_magnitude(const RuleBook &rules, EVOrigin &origin) {
  int priority = 0;
  origin.pref_magnitude = find_preferred_magnitude(rules, origin.magnitudes, priority);
  const EVMagnitude *magnitude = origin.magnitudes.ptr(origin.pref_magnitude);
  origin.magnitude = magnitude == nullptr ? -999.0 : magnitude->magnitude;
  origin.magtype = magnitude == nullptr ? ShortText() : magnitude->magtype;
}

void set_preferred_magnitude(const RuleBook &rules, EVEvent &event) {
  event.pref_magnitude_origin = -1;
  event.magnitude = -999.0;
  event.magtype.clear();
  if (event.pref_origin < 0) return;
  int best_score = -1;
  for (long i = 0; i < event.origins.size(); i++) {
    const EVOrigin &origin = *event.origins.ptr(i);
    int priority = 0;
    const int index = find_preferred_magnitude(rules, origin.magnitudes, priority);
    if (index < 0) continue;
    const int score = priority * 10 + (i == event.pref_origin ? 1 : 0);
    if (score <= best_score) continue;
    best_score = score;
    const EVMagnitude &magnitude = *origin.magnitudes.ptr(index);
    event.magnitude = magnitude.magnitude;
    event.magtype = magnitude.magtype;
    event.pref_magnitude_origin = static_cast<int32_t>(i);
  }
}

}  // namespace ksutil::events

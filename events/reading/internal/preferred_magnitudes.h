/* The choice of an origin's and an event's preferred magnitude by a list of rules. */
#ifndef KSUTIL_EVENTS_READING_INTERNAL_PREFERRED_MAGNITUDES_H
#define KSUTIL_EVENTS_READING_INTERNAL_PREFERRED_MAGNITUDES_H

#include <cstdint>
#include <vector>

#include "core/Table.h"
#include "events/records.h"
#include "platform/pf/pf.h"

namespace ksutil::events {

using MagnitudeRules = Table<EVPreferredMagnitude>;

/* The rules of a server that is given none, as a parameter text. */
extern const char kDefaultMagnitudeRules[];

/* Read the list "preferred_magnitudes"; 0, or -1 with a message and the rules read before
 * the failing entry.  An absent list gives no rules. */
int read_magnitude_rules(Pf *pf, MagnitudeRules &rules);
int read_magnitude_rules(const char *text, MagnitudeRules &rules);
int read_default_magnitude_rules(MagnitudeRules &rules);

/* Rules made ready for many comparisons.  Types are packed into one number each: a rule's
 * has at most 7 characters, so that a longer type never matches. */
class RuleBook {
 public:
  RuleBook(const MagnitudeRules &rules);
  bool empty() const { return rules_.empty(); }
  unsigned priority(const EVMagnitude &magnitude) const;

 private:
  struct Rule {
    uint64_t type;
    double minmag, maxmag;
  };
  std::vector<Rule> rules_;
};

/* The number of rules for the first rule that matches, one less for each rule after it; 0
 * when none does. */
unsigned magnitude_priority(const RuleBook &rules, const EVMagnitude &magnitude);

/* The index of the magnitude of highest priority, the later one on a tie; the last one
 * without rules; -1 without magnitudes.  `priority` is the winner's, 0 when there is
 * none or no rule. */
int find_preferred_magnitude(const RuleBook &rules,
                             const Table<EVMagnitude> &magnitudes, int &priority);

void set_preferred_magnitude(const RuleBook &rules, EVOrigin &origin);
void set_preferred_magnitude(const RuleBook &rules, EVEvent &event);

}  // namespace ksutil::events
#endif

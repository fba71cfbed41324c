/* magnitude_rules: chooses the preferred magnitude of an origin or event by a list of
 * rules. */
#ifndef KSUTIL_EVENTS_READING_INTERNAL_MAGNITUDE_RULES_H
#define KSUTIL_EVENTS_READING_INTERNAL_MAGNITUDE_RULES_H

#include <cstdint>
#include <vector>

#include "core/Table.h"
#include "events/records.h"
#include "platform/pf/pf.h"

namespace ksutil::events {

using MagnitudeRules = Table<EVPreferredMagnitude>;

/* The rules of a server to which no others are given, as a parameter text. */
extern const char kDefaultMagnitudeRules[];

/* Read the list "preferred_magnitudes" into `rules`, which is emptied first.  0, also
 * without such a list; -1 with a message in the name of
 * EVServer::readPreferredMagnitudes, `rules` then holding those before the failing
 * entry (as they were, when the text cannot be compiled). */
int read_magnitude_rules(Pf *pf, MagnitudeRules &rules);
int read_magnitude_rules(const char *text, MagnitudeRules &rules);

/* Reads kDefaultMagnitudeRules; throws std::bad_alloc, because other rules would prefer
 * other magnitudes. */
void read_default_magnitude_rules(MagnitudeRules &rules);

/* RuleBook: rules prepared for many comparisons.  Each type is packed into one number:
 * the type of a rule has at most 7 characters, so that a longer type never matches. */
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

/* The priority of a magnitude: the number of rules when the first rule matches, one
 * less for each rule after the first; 0 when none matches. */
unsigned magnitude_priority(const RuleBook &rules, const EVMagnitude &magnitude);

/* The index of the magnitude of highest priority, the later one on a tie; without rules
 * the index of the last; -1 without magnitudes.  `priority` is set to that of the
 * chosen one, 0 without magnitudes or rules. */
int find_preferred_magnitude(const RuleBook &rules,
                             const Table<EVMagnitude> &magnitudes, int &priority);

/* Set the members that describe the preferred magnitude: of the origin, or of the event
 * whose origins have been read. */
void set_preferred_magnitude(const RuleBook &rules, EVOrigin &origin);
void set_preferred_magnitude(const RuleBook &rules, EVEvent &event);

}  // namespace ksutil::events
#endif

#include <utility>

#include "events/evserver.h"
#include "events/reading/internal/magnitude_rules.h"
#include "events/records/internal/compare.h"
#include "events/records/internal/print.h"
#include "events/records/internal/print_differences.h"
#include "events/server/internal/published.h"
#include "events/server/internal/server_state.h"

namespace ksutil::events {
namespace {

template <class Record>
int equal_pointers(const Record *a, const Record *b) {
  if (a == nullptr || b == nullptr) return a == b ? 1 : 0;
  return equal(*a, *b) ? 1 : 0;
}

template <class Record>
void print_pair(const Record *a, const Record *b, const std::string &prefix) {
  if (a != nullptr && b != nullptr) print_differences(*a, *b, prefix);
}
template <class Record>
void print_pair(const Table<Record> *a, const Table<Record> *b,
                const std::string &prefix) {
  if (a != nullptr && b != nullptr) print_list_differences(*a, *b, prefix);
}

const MagnitudeRules kNoRules;

const MagnitudeRules &rules_or_none(const MagnitudeRules *rules) {
  return rules == nullptr ? kNoRules : *rules;
}

/* Sets the server's rules: all of them, those before a failing entry, or none if the
 * source is not a parameter text. */
template <class Source>
int set_rules(ServerState &state, Source source) {
  MagnitudeRules rules;
  {
    const WatchedDatabase::Hold hold = state.database.hold();
    rules = state.database.vars().rules;
  }
  const int result = read_magnitude_rules(source, rules);
  const WatchedDatabase::Hold hold = state.database.hold();
  state.database.vars().rules = std::move(rules);
  /* The next list must be read in full: events that have not changed hold magnitudes
   * chosen by the old rules. */
  state.follower.forget();
  state.expansion.forget();
  return result;
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;

void EVServer::print(const EVEvent *event, std::string prefix) {
  if (event != nullptr) print_record(*event, prefix);
}
void EVServer::print(const EVOrigin *origin, std::string prefix) {
  if (origin != nullptr) print_record(*origin, prefix);
}
void EVServer::print(const EVMagnitude *magnitude, std::string prefix) {
  if (magnitude != nullptr) print_record(*magnitude, prefix);
}
void EVServer::print(const EVStamag *stamag, std::string prefix) {
  if (stamag != nullptr) print_record(*stamag, prefix);
}
void EVServer::print(const EVMoment *moment, std::string prefix) {
  if (moment != nullptr) print_record(*moment, prefix);
}
void EVServer::print(const EVAssociation *association, std::string prefix) {
  if (association != nullptr) print_record(*association, prefix);
}
void EVServer::print(const EVDetection *detection, std::string prefix) {
  if (detection != nullptr) print_record(*detection, prefix);
}
void EVServer::print(const EVTableRecord *record, std::string prefix) {
  if (record != nullptr) print_record(*record, prefix);
}
void EVServer::print(const EVStaChan *stachan, std::string prefix) {
  if (stachan != nullptr) print_record(*stachan, prefix);
}

void EVServer::print(const Table<EVEvent> *events, std::string prefix) {
  if (events != nullptr) print_list(*events, prefix);
}
void EVServer::print(const Table<EVOrigin> *origins, std::string prefix) {
  if (origins != nullptr) print_list(*origins, prefix);
}
void EVServer::print(const Table<EVMagnitude> *magnitudes, std::string prefix) {
  if (magnitudes != nullptr) print_list(*magnitudes, prefix);
}
void EVServer::print(const Table<EVStamag> *stamags, std::string prefix) {
  if (stamags != nullptr) print_list(*stamags, prefix);
}
void EVServer::print(const Table<EVMoment> *moments, std::string prefix) {
  if (moments != nullptr) print_list(*moments, prefix);
}
void EVServer::print(const Table<EVAssociation> *associations, std::string prefix) {
  if (associations != nullptr) print_list(*associations, prefix);
}
void EVServer::print(const Table<EVDetection> *detections, std::string prefix) {
  if (detections != nullptr) print_list(*detections, prefix);
}
void EVServer::print(const Table<EVTableRecord> *records, std::string prefix) {
  if (records != nullptr) print_list(*records, prefix);
}
void EVServer::print(const Table<EVStaChan> *stachans, std::string prefix) {
  if (stachans != nullptr) print_list(*stachans, prefix);
}

void EVServer::print(const EVEvent *event1, const EVEvent *event2, std::string prefix) {
  print_pair(event1, event2, prefix);
}
void EVServer::print(const EVOrigin *origin1, const EVOrigin *origin2,
                     std::string prefix) {
  print_pair(origin1, origin2, prefix);
}
void EVServer::print(const EVMagnitude *magnitude1, const EVMagnitude *magnitude2,
                     std::string prefix) {
  print_pair(magnitude1, magnitude2, prefix);
}
void EVServer::print(const EVMoment *moment1, const EVMoment *moment2,
                     std::string prefix) {
  print_pair(moment1, moment2, prefix);
}
void EVServer::print(const EVAssociation *association1,
                     const EVAssociation *association2, std::string prefix) {
  print_pair(association1, association2, prefix);
}
void EVServer::print(const EVDetection *detection1, const EVDetection *detection2,
                     std::string prefix) {
  print_pair(detection1, detection2, prefix);
}

void EVServer::print(const Table<EVEvent> *events1, const Table<EVEvent> *events2,
                     std::string prefix) {
  print_pair(events1, events2, prefix);
}
void EVServer::print(const Table<EVOrigin> *origins1, const Table<EVOrigin> *origins2,
                     std::string prefix) {
  print_pair(origins1, origins2, prefix);
}
void EVServer::print(const Table<EVMagnitude> *magnitudes1,
                     const Table<EVMagnitude> *magnitudes2, std::string prefix) {
  print_pair(magnitudes1, magnitudes2, prefix);
}
void EVServer::print(const Table<EVMoment> *moments1, const Table<EVMoment> *moments2,
                     std::string prefix) {
  print_pair(moments1, moments2, prefix);
}
void EVServer::print(const Table<EVAssociation> *associations1,
                     const Table<EVAssociation> *associations2, std::string prefix) {
  print_pair(associations1, associations2, prefix);
}
void EVServer::print(const Table<EVDetection> *detections1,
                     const Table<EVDetection> *detections2, std::string prefix) {
  print_pair(detections1, detections2, prefix);
}

void EVServer::printDifferences(const Table<EVEvent> *events) {
  if (events == nullptr) return;
  print_news(*events, *current_events(state_->published));
}

int EVServer::isEqual(const EVEvent *event1, const EVEvent *event2) {
  return equal_pointers(event1, event2);
}
int EVServer::isEqual(const EVOrigin *origin1, const EVOrigin *origin2) {
  return equal_pointers(origin1, origin2);
}
int EVServer::isEqual(const EVMagnitude *magnitude1, const EVMagnitude *magnitude2) {
  return equal_pointers(magnitude1, magnitude2);
}
int EVServer::isEqual(const EVMoment *moment1, const EVMoment *moment2) {
  return equal_pointers(moment1, moment2);
}
int EVServer::isEqual(const EVAssociation *association1,
                      const EVAssociation *association2) {
  return equal_pointers(association1, association2);
}
int EVServer::isEqual(const EVDetection *detection1, const EVDetection *detection2) {
  return equal_pointers(detection1, detection2);
}

int EVServer::isEqual(const Table<EVEvent> *events) {
  if (events == nullptr) return 0;
  return equal_lists(*events, *current_events(state_->published)) ? 1 : 0;
}
int EVServer::isEqual(const Table<EVDetection> *detections) {
  if (detections == nullptr) return 0;
  return equal(*detections, *current_detections(state_->published)) ? 1 : 0;
}

int EVServer::readPreferredMagnitudes(Pf *pf, Table<EVPreferredMagnitude> &rules) {
  return read_magnitude_rules(pf, rules);
}

int EVServer::readPreferredMagnitudes(char *text, Table<EVPreferredMagnitude> &rules) {
  return read_magnitude_rules(text, rules);
}

int EVServer::setPreferredMagnitudes(Pf *pf) { return set_rules(*state_, pf); }

int EVServer::setPreferredMagnitudes(char *text) {
  return set_rules(*state_, static_cast<const char *>(text));
}

unsigned EVServer::getPreferredMagnitudePriority(Table<EVPreferredMagnitude> *rules,
                                                 EVMagnitude *magnitude) {
  return magnitude == nullptr ? 0
                              : magnitude_priority(rules_or_none(rules), *magnitude);
}

int EVServer::findPreferredMagnitude(Table<EVPreferredMagnitude> *rules,
                                     Table<EVMagnitude> *magnitudes, int *priority) {
  int found = 0;
  const int index =
      magnitudes == nullptr
          ? -1
          : find_preferred_magnitude(rules_or_none(rules), *magnitudes, found);
  if (priority != nullptr) *priority = found;
  return index;
}

void EVServer::setPreferredMagnitude(Table<EVPreferredMagnitude> *rules,
                                     EVOrigin *origin) {
  if (origin != nullptr) set_preferred_magnitude(rules_or_none(rules), *origin);
}

void EVServer::setPreferredMagnitude(Table<EVPreferredMagnitude> *rules,
                                     EVEvent *event) {
  if (event != nullptr) set_preferred_magnitude(rules_or_none(rules), *event);
}

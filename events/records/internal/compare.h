/* compare: tests records for exact equality; NaN is never equal. */
#ifndef KSUTIL_EVENTS_RECORDS_INTERNAL_COMPARE_H
#define KSUTIL_EVENTS_RECORDS_INTERNAL_COMPARE_H

#include <unordered_map>
#include <vector>

#include "core/Table.h"
#include "events/records.h"

namespace ksutil::events {

bool equal(const EVEvent &event1, const EVEvent &event2);
bool equal(const EVOrigin &origin1, const EVOrigin &origin2);
bool equal(const EVMagnitude &magnitude1, const EVMagnitude &magnitude2);
bool equal(const EVStamag &stamag1, const EVStamag &stamag2);
bool equal(const EVMoment &moment1, const EVMoment &moment2);
bool equal(const EVAssociation &association1, const EVAssociation &association2);
bool equal(const EVDetection &detection1, const EVDetection &detection2);

/* Lists are equal if they have the same size and equal records at each index. */
template <class Record>
bool equal(const Table<Record> &records1, const Table<Record> &records2) {
  if (records1.size() != records2.size()) return false;
  for (long i = 0; i < records1.size(); i++) {
    if (!equal(*records1.ptr(i), *records2.ptr(i))) return false;
  }
  return true;
}

/* As equal, and also compares the station magnitudes, which only expanded events
 * have. */
bool equal_expanded(const EVEvent &event1, const EVEvent &event2);

/* EventIndex: finds the events of a list by evid.  Refers to the list, which must not
 * change. */
class EventIndex {
 public:
  explicit EventIndex(const Table<EVEvent> &events);
  bool contains(int64_t evid) const { return by_evid_.contains(evid); }
  /* The first event of the list with the evid; null without one. */
  const EVEvent *first(int64_t evid) const;
  /* Whether an event of the list is equal to the given one. */
  bool contains_equal(const EVEvent &event) const;

 private:
  const Table<EVEvent> &events_;
  std::unordered_multimap<int64_t, long> by_evid_;
};

/* Whether both lists have the same size and each event of `events` equals one of
 * `current`, at any index. */
bool equal_lists(const Table<EVEvent> &events, const Table<EVEvent> &current);

}  // namespace ksutil::events
#endif

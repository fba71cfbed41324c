/* ExpansionFollower: remembers the rows that the expanded events of the cache were made
 * from, so that a refresh reads only those events again whose rows have changed. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_EXPANSION_FOLLOWER_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_EXPANSION_FOLLOWER_H

#include <cstdint>
#include <optional>
#include <unordered_set>

#include "events/reading/internal/tree_reader.h"

namespace ksutil::events {

/* The keys of rows that have changed. */
struct ExpansionChanges {
  std::unordered_set<int64_t> orids, arids, magids;

  /* Whether an event that was read by these keys may have changed. */
  bool concern(const ExpansionKeys &keys) const;
};

/* Guarded by the lock of the server's database. */
class ExpansionFollower {
 public:
  /* Makes the next refresh read all expanded events. */
  void forget() { *this = ExpansionFollower(); }

  /* The number of the last refresh that brought the cache up to date: an event of this
   * reading is as the remembered snapshots show it.  0: none. */
  int64_t reading() const { return reading_; }

  /* The changes from the remembered snapshots to those of the reader, in tables that only
   * expanded events need; nothing when any event may have changed. */
  std::optional<ExpansionChanges> changes(const TreeReader &reader) const;

  /* Remembers the snapshots that a refresh has read expanded events from. */
  void finish(const ExpansionSnapshots &snapshots, int64_t reading) {
    snapshots_ = snapshots;
    reading_ = reading;
  }

 private:
  ExpansionSnapshots snapshots_;
  int64_t reading_ = 0;
};

}  // namespace ksutil::events
#endif

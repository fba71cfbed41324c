/* changed_keys: finds the values that the field of an index has and had in rows that have
 * changed. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_CHANGED_KEYS_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_CHANGED_KEYS_H

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "platform/db/key_index.h"
#include "platform/db/snapshot.h"

namespace ksutil::events {

/* Calls fn(key) for each value that the field of an index has or had in the rows in which
 * `before` and the snapshot of the index differ, perhaps for others as well; false if
 * some values cannot be known.  `rows`, if given, gets the rows of both snapshots that
 * differ. */
template <class Fn>
bool for_each_changed_key(const std::shared_ptr<const db::Snapshot> &before,
                          const db::KeyIndex &index, Fn fn,
                          std::vector<long> *rows = nullptr) {
  if (before == index.snapshot()) return true;
  db::Changes changes = db::changes_between(*before, *index.snapshot());
  std::vector<int64_t> keys;
  if (!changes.known || !index.lost_keys(before, keys)) return false;
  int64_t key;
  /* A row without a key belongs to no event. */
  for (const long row : changes.changed) {
    if (index.key_of(row, key)) keys.push_back(key);
  }
  for (long row = changes.old_count; row < changes.new_count; row++) {
    if (index.key_of(row, key)) keys.push_back(key);
  }
  for (const int64_t each : keys) fn(each);
  if (rows != nullptr) *rows = std::move(changes.changed);
  return true;
}

}  // namespace ksutil::events
#endif

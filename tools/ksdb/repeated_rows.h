/* repeated_rows: finds rows that a table holds more than once. */
#ifndef KSUTIL_TOOLS_KSDB_REPEATED_ROWS_H
#define KSUTIL_TOOLS_KSDB_REPEATED_ROWS_H

#include <vector>

#include "platform/db/snapshot.h"

namespace ksutil::tools {

/* A row that repeats another one, which is kept. */
struct Repetition {
  long record, kept;
};

/* The repetitions, by ascending record: rows that are equal but for lddate, or with
 * `by_key` rows with the same primary key, in which some value is not null.  Of equal
 * rows the one with the latest lddate is kept, and of equal load dates the first one.
 * `unreadable` counts the rows that cannot be read, which do not count as
 * repetitions. */
std::vector<Repetition> find_repetitions(const db::Snapshot &rows, bool by_key,
                                         long &unreadable);

}  // namespace ksutil::tools
#endif

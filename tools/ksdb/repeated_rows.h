/* repeated_rows: finds rows that stand more than once in a table. */
#ifndef KSUTIL_TOOLS_KSDB_REPEATED_ROWS_H
#define KSUTIL_TOOLS_KSDB_REPEATED_ROWS_H

#include <vector>

#include "platform/db/snapshot.h"

namespace ksutil::tools {

/* A row that repeats another one, which stays. */
struct Repetition {
  long record, kept;
};

/* The repetitions, by ascending record: of rows that are equal but for lddate, or with
 * `by_key` of rows with the same primary key, in which some value is not null.  Of equal
 * rows the one with the latest lddate stays, and of equal load dates the first one.
 * `unreadable` counts the rows that cannot be read, which repeat none. */
std::vector<Repetition> find_repetitions(const db::Snapshot &rows, bool by_key,
                                         long &unreadable);

}  // namespace ksutil::tools
#endif

/* table_change: finds out how a table has changed since an earlier look. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_TABLE_CHANGE_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_TABLE_CHANGE_H

#include <cstdint>

#include "platform/db/db.h"

namespace ksutil::events {

/* The state of a table at a look: its number of rows (-1: no look yet), and the time of
 * its last change, epoch seconds (0.0 without rows). */
struct TableMemory {
  int64_t count = -1;
  double filetime = 0.0;
};

/* Looks at a table and stores its state in `seen`.  3: fewer rows than in `seen`
 * before, 2: more rows, 1: as many rows and a later change, 0: otherwise; -1 with a
 * message, `seen` untouched, when the table cannot be looked at. */
int table_change(Dbptr table, TableMemory &seen);

}  // namespace ksutil::events
#endif

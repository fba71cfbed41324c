/* Telling how a table has changed since it was last looked at. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_TABLE_CHANGE_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_TABLE_CHANGE_H

#include <cstdint>

#include "platform/db/db.h"

namespace ksutil::events {

/* What was seen of a table: its rows (-1: not looked at yet), and when it was last
 * changed, 0.0 without rows. */
struct TableMemory {
  int64_t count = -1;
  double filetime = 0.0;
};

/* Looks at a table and remembers what it sees: 3 when it has fewer rows than remembered, 2
 * when it has more, 1 when it has as many and was changed later, 0 otherwise; -1, with a
 * message and nothing remembered, when it cannot be looked at. */
int table_change(Dbptr table, TableMemory &seen);

}  // namespace ksutil::events
#endif

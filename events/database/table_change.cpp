#include "events/database/internal/table_change.h"

#include "platform/db/access.h"

namespace ksutil::events {
namespace {

constexpr double kNullFileTime = -9999999999.999;

}  // namespace

int table_change(Dbptr table, TableMemory &seen) {
  /* One look gives both, so that the time is never older than the count. */
  db::Stamp stamp;
  if (!db::table_stamp(table, stamp)) return -1;
  const TableMemory before = seen;
  seen.count = stamp.count;
  seen.filetime = stamp.count > 0 && stamp.time != kNullFileTime ? stamp.time : 0.0;
  if (seen.count < before.count) return 3;
  if (seen.count > before.count) return 2;
  return seen.filetime > before.filetime ? 1 : 0;
}

}  // namespace ksutil::events

/* verify_rows: checks the rows of each table for ksdb verify. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_ROWS_H
#define KSUTIL_TOOLS_KSDB_VERIFY_ROWS_H

#include "platform/db/snapshot.h"
#include "tools/ksdb/verify_problems.h"
#include "tools/ksdb/verify_tables.h"

namespace ksutil::tools {

/* Every record whole, every field readable. */
void verify_readable(const db::Snapshot &rows, const Report &report);

/* Load dates readable, present, after 1970 and not in the future. */
void verify_load_dates(const db::Snapshot &rows, double now, const Report &report);

}  // namespace ksutil::tools
#endif

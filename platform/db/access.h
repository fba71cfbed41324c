/* access: gives C++ code the objects behind a Dbptr, to read many rows. */
#ifndef KSUTIL_PLATFORM_DB_ACCESS_H
#define KSUTIL_PLATFORM_DB_ACCESS_H

#include <memory>
#include <string_view>
#include <vector>

#include "platform/db/db.h"
#include "platform/db/key_index.h"
#include "platform/db/row_text.h"
#include "platform/db/snapshot.h"
#include "platform/db/store.h"
#include "platform/stock/export.h"

namespace ksutil::db {

/* The store behind a table; null, with a message, for no table. */
KSUTIL_API TableStore *table_store(Dbptr table);
KSUTIL_API DatabaseStore *database_store(Dbptr db);

/* One look at a table: its count and its time of change; false with a message. */
KSUTIL_API bool table_stamp(Dbptr table, Stamp &stamp);

/* The table's rows as they are now; what the handle's functions read from then on.  Null
 * with a message. */
KSUTIL_API std::shared_ptr<const Snapshot> table_snapshot(Dbptr table);

/* The same with every row read anew.  Finds rows that another program has rewritten in
 * place while size and times of the table stayed as they were; table_snapshot cannot see
 * these.  Reads the whole table, block by block as rows are asked for. */
KSUTIL_API std::shared_ptr<const Snapshot> table_snapshot_anew(Dbptr table);

/* The text of the record: of a real, null or scratch record.  Empty with a message. */
KSUTIL_API RowText record_text(Dbptr record);

/* The records of stored tables that a record of a view is made of, in the order of the
 * view's tables; for a table the record itself.  False with a message. */
KSUTIL_API bool view_parts(Dbptr record, std::vector<Dbptr> &parts);

/* Puts a row text into the table's scratch record; false when its length is wrong. */
KSUTIL_API bool set_scratch(Dbptr table, std::string_view text);

/* The index behind a match whose patterns are one integer field each, followed to the
 * given snapshot of the table: the same hook as dbmatches keeps, without its lists.  It
 * belongs to the hook and does not look at the store; one hook follows one table.  Null,
 * with a message, when the patterns are something else. */
KSUTIL_API const KeyIndex *match_index(const std::shared_ptr<const Snapshot> &snapshot,
                                       Tbl *kpattern, Tbl *tpattern, Hook **hook);

/* dbnextid for `count` ids at once: the first of them, the others follow; -1 with a
 * message. */
KSUTIL_API long reserve_ids(Dbptr db, const char *key, long count);

}  // namespace ksutil::db
#endif

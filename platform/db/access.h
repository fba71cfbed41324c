/* access: gives C++ code the objects behind a Dbptr, to read many rows. */
#ifndef KSUTIL_PLATFORM_DB_ACCESS_H
#define KSUTIL_PLATFORM_DB_ACCESS_H

#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "platform/db/db.h"
#include "platform/db/key_index.h"
#include "platform/db/row_text.h"
#include "platform/db/snapshot.h"
#include "platform/db/store.h"
#include "platform/stock/export.h"

namespace ksutil::db {

/* The store behind a table; null, with a message, if there is no table. */
KSUTIL_API TableStore *table_store(Dbptr table);
KSUTIL_API DatabaseStore *database_store(Dbptr db);

/* Whether the schema of a database has a table.  Asks the schema alone: unlike a look-up of
 * the table, this is not false when memory is short or a file cannot be read. */
KSUTIL_API bool has_table(Dbptr db, std::string_view name);

/* One look at a table: its count and its time of change; false with a message. */
KSUTIL_API bool table_stamp(Dbptr table, Stamp &stamp);

/* The table's rows as they are now; the functions of the handle read from them
 * afterwards.  Null with a message. */
KSUTIL_API std::shared_ptr<const Snapshot> table_snapshot(Dbptr table);

/* The same with every row read anew.  Finds rows that another program has rewritten in
 * place while size and times of the table stayed as they were; table_snapshot cannot
 * see these.  Reads the whole table, block by block as rows are asked for. */
KSUTIL_API std::shared_ptr<const Snapshot> table_snapshot_anew(Dbptr table);

/* The text of the record: of a real, null or scratch record.  Empty with a message. */
KSUTIL_API RowText record_text(Dbptr record);

/* The records of stored tables behind a record of a view, in the order of the view's
 * tables; for a record of a table, the record itself.  False with a message. */
KSUTIL_API bool view_parts(Dbptr record, std::vector<Dbptr> &parts);

/* Copies a row text to the table's scratch record; false when its length is wrong. */
KSUTIL_API bool set_scratch(Dbptr table, std::string_view text);

/* The rows of the table among which the last dbmatches with this hook has found its
 * records; null when there was none.  To be asked before the hook is used again. */
KSUTIL_API std::shared_ptr<const Snapshot> matched_rows(const Hook *hook);

/* The index of a match whose patterns are one integer field each, followed to the given
 * snapshot of the table: the hook of dbmatches, without its lists.  The index belongs
 * to the hook, and following it does not look at the store; one hook follows one table.
 * Null, with a message, for other patterns. */
KSUTIL_API const KeyIndex *match_index(const std::shared_ptr<const Snapshot> &snapshot,
                                       Tbl *kpattern, Tbl *tpattern, Hook **hook);

/* The same for several indexes; tables that must be read for them are read once.  False,
 * with a message, when one of them cannot be had. */
struct IndexRequest {
  std::shared_ptr<const Snapshot> snapshot;
  Tbl *kpattern, *tpattern;
  Hook **hook;
  const KeyIndex *index = nullptr;  // out
};
KSUTIL_API bool match_indexes(std::span<IndexRequest> requests);

/* dbnextid for `count` ids at once: the first of `count` consecutive ids; -1 with a
 * message. */
KSUTIL_API long reserve_ids(Dbptr db, const char *key, long count);

}  // namespace ksutil::db
#endif

/* pg_create: makes the SQL tables of a database.
 *
 * Each table of the schema is a table of that name with the columns of its fields, and
 * behind them
 *
 *   ks_record    the row's key, which rises from row to row in the order of the commits
 *   ks_version   0, or the version of the table that its last UPDATE has made
 *
 * A record's number is the place of its row in the order of ks_record.  Beside them are
 *
 *   ks_database  the name of the schema and the version of these tables
 *   ks_tables    a row for each table: how often a statement has changed it (version), its
 *                count of rows, when it changed (changed, epoch seconds, always later than
 *                before), a number drawn with each change (mark), and the version before
 *                which removals are no longer listed (floor)
 *   ks_removed   the keys of rows that were removed, with the version of the removal
 *   ks_commits   tokens of the library's last transactions, by which a writer that lost
 *                its connection finds out whether its change was made
 *
 * Triggers keep these current, whichever client writes.  A statement that writes a table
 * locks the row of ks_tables first and holds it to the end of its transaction.
 * Transactions that write one table follow each other therefore, and its versions and keys
 * rise in the order of the commits. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_CREATE_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_CREATE_H

#include "platform/db/store_plugin.h"

namespace ksutil::db {

/* Makes the tables that are missing, in the first schema of the connection's search path;
 * false, with a message and nothing made, on failure. */
bool pg_create(const StoreDescriptor &descriptor);

}  // namespace ksutil::db
#endif

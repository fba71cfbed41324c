/* edit_tables: opens tables for the commands that change rows, chooses rows of them, and
 * checks their keys. */
#ifndef KSUTIL_TOOLS_KSDB_EDIT_TABLES_H
#define KSUTIL_TOOLS_KSDB_EDIT_TABLES_H

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/store.h"
#include "tools/ksdb/references.h"

namespace ksutil::tools {

/* The options that all commands which change rows have. */
struct EditOptions {
  std::string database, table;
  bool dry_run = false, force = false, quiet = false;
};
void add_edit_options(CLI::App &command, EditOptions &options,
                      const std::string &forced);

/* The database for writing, with the table in its schema; null with a message. */
std::unique_ptr<db::DatabaseStore> open_for_edit(const std::string &database,
                                                 const std::string &table);

/* --where, --record and --all: the rows that a command works on. */
struct RowChoice {
  std::string where;
  long record = -1;
  bool all = false;
};
void add_row_choice(CLI::App &command, RowChoice &choice);
/* Whether exactly one of the three was given; complains. */
bool is_one_choice(const RowChoice &choice);
/* Whether the condition, if one was given, compiles over the fields of a table;
 * complains. */
bool condition_compiles(const RowChoice &choice, const db::Relation &layout);
/* The records, ascending, without those that cannot be read, which are counted.  False with
 * a message, for a condition that does not compile or has no value for a row, too. */
bool choose_rows(const RowChoice &choice, const db::Snapshot &rows,
                 std::vector<long> &records, long &unreadable);

/* The tables that are locked while the work runs, by name. */
using LockedTables = std::map<std::string, db::TableStore::Exclusive *>;
/* Runs the work with the table and those of the referrers that exist locked; false as
 * TableStore::exclusively. */
bool with_locked(db::DatabaseStore &store, const std::string &table,
                 const std::vector<Referrer> &referrers,
                 const std::function<bool(LockedTables &)> &work);

/* The names of the tables of the referrers that have rows or cannot be looked at, other than
 * the table itself. */
std::vector<std::string> referring_tables(db::DatabaseStore &store,
                                          const std::string &table,
                                          const std::vector<Referrer> &referrers);

/* Describes a row whose primary key or id is that of another row: compares the rows of
 * `changed` whose keys are new (a record of the count or above is a new row) with each
 * other and with the rest of the table.  "" when all are different; rows that cannot be read
 * now may be equal. */
struct ChangedRow {
  long record;
  std::string text;
};
std::string repeated_key(const db::Snapshot &rows, const db::Relation &layout,
                         const std::vector<ChangedRow> &changed);

/* The references that changes of rows would leave without their rows, as lines of
 * told_references.  `referrers` are those to fields that are changed. */
std::vector<std::string> lost_references(const db::Snapshot &rows,
                                         const std::vector<ChangedRow> &changed,
                                         const std::vector<Referrer> &referrers,
                                         const SnapshotOf &snapshot);

/* "3 rows", "1 row". */
std::string counted_rows(std::size_t count);

/* Complains that rows refer to values that would disappear, and suggests what to do. */
void complain_of_references(const std::vector<std::string> &lines, bool forced);

}  // namespace ksutil::tools
#endif

/* row_removal: takes rows out of tables that the program has locked. */
#ifndef KSUTIL_PLATFORM_DB_ROW_REMOVAL_H
#define KSUTIL_PLATFORM_DB_ROW_REMOVAL_H

#include <cstddef>
#include <vector>

#include "platform/db/store.h"
#include "platform/stock/export.h"

namespace ksutil::db {

/* The interface that the locked tables of a store have, besides TableStore::Exclusive,
 * when the store can remove rows. */
class RowRemoval {
 public:
  virtual ~RowRemoval() = default;
  /* As remove_rows; the records are ascending and distinct, and there is at least
   * one. */
  virtual bool remove(const std::vector<long> &records) = 0;
};

/* The interface that the transactions of a store have, besides Transaction, when they can
 * remove rows. */
class TableClearing {
 public:
  virtual ~TableClearing() = default;
  /* As remove_all_rows. */
  virtual bool clear(std::size_t table) = 0;
};

/* Removes rows of a locked table in one step; those behind them move up and get lower
 * record numbers.  False, with a message and no row removed, for a record that the table
 * does not have, when the store cannot remove rows, or when the change cannot be made.
 * An empty list removes nothing.
 *
 * Readers keep the rows of the snapshots that they hold; a later look sees a table with
 * fewer rows.  A table in a file is written anew beside the file and put in its place, so
 * that a process that dies has removed all of the rows or none.  A program that writes
 * rows without locks during the removal may lose them. */
KSUTIL_API bool remove_rows(TableStore::Exclusive &locked, std::vector<long> records);

/* Removes all rows that a table has, as part of a transaction.  It is the first change of
 * that table, and made once; rows that are appended afterwards have the numbers from 0 and
 * the layout that Transaction::layout then gives.  False with a message, and nothing
 * changed, also when the store cannot remove rows in transactions.
 *
 * In files the rows that are appended go into a new file, which takes the place of the
 * table's, as for remove_rows. */
KSUTIL_API bool remove_all_rows(Transaction &step, std::size_t table);

}  // namespace ksutil::db
#endif

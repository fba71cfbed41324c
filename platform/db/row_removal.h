/* row_removal: takes rows out of a table that the program has locked. */
#ifndef KSUTIL_PLATFORM_DB_ROW_REMOVAL_H
#define KSUTIL_PLATFORM_DB_ROW_REMOVAL_H

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

}  // namespace ksutil::db
#endif

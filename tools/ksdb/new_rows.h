/* new_rows: adds rows to a table, with new ids where none are given and checks of their
 * keys. */
#ifndef KSUTIL_TOOLS_KSDB_NEW_ROWS_H
#define KSUTIL_TOOLS_KSDB_NEW_ROWS_H

#include <cstddef>
#include <string>
#include <vector>

#include "platform/db/store.h"

namespace ksutil::tools {

/* Rows as they will be written, except for ids still to be assigned. */
struct NewRows {
  db::Relation layout;
  std::vector<std::string> rows;        // each with its newline
  std::vector<std::size_t> without_id;  // of rows, ascending
};

/* Why rows are refused that `force` would have added; both texts empty: they are not. */
struct Refusal {
  std::string without_key;  // "a row without orid, which is the key of origin"
  std::string repeated;     // "origin: orid 7 is that of record 3"
};

/* Adds the rows in one transaction, or none of them: assigns ids to the rows without one,
 * and raises the counters of the table to the ids that were given.
 *
 * force     adds rows, too, whose key is null or that of another row
 * dry_run   does everything but writing
 * first     out: the number of the first of them, untouched on failure
 * False, with the refusal set or a message registered. */
bool add_new_rows(db::DatabaseStore &store, NewRows &added, bool force, bool dry_run,
                  long &first, Refusal &refusal);

}  // namespace ksutil::tools
#endif

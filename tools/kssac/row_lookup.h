/* RowLookup: finds the rows of a table that agree with a record in some fields. */
#ifndef KSUTIL_TOOLS_KSSAC_ROW_LOOKUP_H
#define KSUTIL_TOOLS_KSSAC_ROW_LOOKUP_H

#include <string>
#include <vector>

#include "platform/db/db.h"

namespace ksutil::tools {

/* Keeps the index of one table between look-ups. */
class RowLookup {
 public:
  /* Fields or expressions of the key record, and those of the table, as dbmatches takes
   * them. */
  RowLookup(std::vector<std::string> key, std::vector<std::string> table);
  ~RowLookup();
  RowLookup(const RowLookup &) = delete;
  RowLookup &operator=(const RowLookup &) = delete;

  /* How many rows match; table.record becomes the first of them.  -1 with messages. */
  long find(Dbptr key, Dbptr &table);

 private:
  std::vector<std::string> key_texts_, table_texts_;
  Tbl *key_, *table_;
  Hook *hook_ = nullptr;
};

}  // namespace ksutil::tools
#endif

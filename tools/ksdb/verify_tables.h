/* verify_tables: takes snapshots of the tables of a database that ksdb verify looks at. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_TABLES_H
#define KSUTIL_TOOLS_KSDB_VERIFY_TABLES_H

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/db/snapshot.h"
#include "platform/elog/elog.h"
#include "tools/common/open_database.h"

namespace ksutil::tools {

using SnapshotPtr = std::shared_ptr<const db::Snapshot>;

/* The tables of a database that hold rows, by name. */
using Tables = std::map<std::string, SnapshotPtr>;

/* Takes the tables with rows; false, with messages registered, when one cannot be read,
 * and is left out. */
bool read_tables(const OpenDatabase &database, Tables &tables);

/* Calls visit(record, row) for each whole row. */
template <class Visit>
void each_row(const db::Snapshot &rows, Visit visit) {
  const ElogScope quiet;
  for (long i = 0; i < rows.count(); i++) {
    const std::string_view row = rows.row(i);
    if (!row.empty()) visit(i, row);
  }
}

}  // namespace ksutil::tools
#endif

/* verify_tables: takes snapshots of the tables of a database that ksdb verify looks at. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_TABLES_H
#define KSUTIL_TOOLS_KSDB_VERIFY_TABLES_H

#include <map>
#include <memory>
#include <string>

#include "platform/db/snapshot.h"
#include "tools/common/open_database.h"

namespace ksutil::tools {

using SnapshotPtr = std::shared_ptr<const db::Snapshot>;

/* The tables of a database that hold rows, by name. */
using Tables = std::map<std::string, SnapshotPtr>;

/* Takes the tables with rows; false, with messages registered, when one cannot be read,
 * and is left out. */
bool read_tables(const OpenDatabase &database, Tables &tables);

}  // namespace ksutil::tools
#endif

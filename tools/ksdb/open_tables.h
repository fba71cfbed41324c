/* The tables that a command works on, as users name them. */
#ifndef KSUTIL_TOOLS_KSDB_OPEN_TABLES_H
#define KSUTIL_TOOLS_KSDB_OPEN_TABLES_H

#include <string>

#include "tools/ksdb/commands.h"

namespace ksutil::tools {

/* "origin+assoc": the tables, each joined with those before it by natural keys. */
Dbptr open_tables(const OpenDatabase &database, const std::string &tables);

/* The same with only the records for which `where` is true (empty: all). */
Dbptr open_view(const OpenDatabase &database, const std::string &tables,
                const std::string &where);

}  // namespace ksutil::tools
#endif

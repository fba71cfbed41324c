/* open_tables: opens the tables of a database as users name them. */
#ifndef KSUTIL_TOOLS_KSDB_OPEN_TABLES_H
#define KSUTIL_TOOLS_KSDB_OPEN_TABLES_H

#include <string>

#include "tools/common/open_database.h"
#include "tools/ksdb/commands.h"

namespace ksutil::tools {

/* Adds the operand TABLES. */
void add_tables(CLI::App &command, std::string &tables);

/* Adds --where. */
void add_where(CLI::App &command, std::string &where);

/* "origin+assoc": each table joined with those before it by natural keys.  Invalid,
 * with a message, for an unknown table. */
Dbptr open_tables(const OpenDatabase &database, const std::string &tables);

/* The records that cannot be read and were left out when a view was made; 0 of a table.
 * Takes the messages about them out of the register. */
long left_out_of(Dbptr view);

}  // namespace ksutil::tools
#endif

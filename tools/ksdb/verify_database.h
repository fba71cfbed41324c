/* verify_database: finds the problems of a whole database for ksdb verify. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_DATABASE_H
#define KSUTIL_TOOLS_KSDB_VERIFY_DATABASE_H

#include "tools/common/open_database.h"
#include "tools/ksdb/verify_problems.h"
#include "tools/ksdb/verify_tables.h"

namespace ksutil::tools {

/* Verifies all tables with rows.  Other programs may write meanwhile.
 *
 * quiet       shows no progress
 * problems    out: what was found; what it had before is dropped
 * tables      out: the number of tables with rows; may be null
 * False, with a message, when a table cannot be read; the others have been verified. */
bool verify_database(const OpenDatabase &database, bool quiet, Problems &problems,
                     std::size_t *tables = nullptr);

}  // namespace ksutil::tools
#endif

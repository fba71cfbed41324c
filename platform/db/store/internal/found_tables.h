/* found_tables: finds the table files of a flat-file database before it is opened. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FOUND_TABLES_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FOUND_TABLES_H

#include <string>

#include "platform/db/store/internal/flat_descriptor.h"

namespace ksutil::db {

bool is_file(const std::string &path);

/* The name of the schema that the table files follow: the first built-in one, unless a
 * file has the layout of another.  "" when there are no table files. */
std::string schema_of_files(const Prefixes &prefixes);

/* For "cat.origin", where origin is a table of a built-in schema: "cat"; else "". */
std::string database_of_table_file(const std::string &path);

/* A file beside the database whose name differs from that of a table only by upper-case
 * letters: "cat.ORIGIN" when there is no "cat.origin"; "" when there is none. */
std::string misspelled_table_file(const std::string &name);

}  // namespace ksutil::db
#endif

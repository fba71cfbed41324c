/* found_tables: looks which table files a flat-file database has before it is opened. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FOUND_TABLES_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FOUND_TABLES_H

#include <string>

#include "platform/db/store/internal/flat_descriptor.h"

namespace ksutil::db {

bool is_file(const std::string &path);

/* The name of a schema that the table files follow: the first built-in one, unless a file
 * has the layout of another.  "" when there are no table files. */
std::string schema_of_files(const Prefixes &prefixes);

/* For "cat.origin", where origin is a table of a built-in schema: "cat"; else "". */
std::string database_of_table_file(const std::string &path);

/* A file beside the database whose name is that of a table but for upper-case letters,
 * "cat.ORIGIN" where there is no "cat.origin"; "" when there is none. */
std::string misspelled_table_file(const std::string &name);

}  // namespace ksutil::db
#endif

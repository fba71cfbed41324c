/* has_table: tells whether the schema of a database has a table. */
#ifndef KSUTIL_TOOLS_COMMON_HAS_TABLE_H
#define KSUTIL_TOOLS_COMMON_HAS_TABLE_H

#include <string_view>

#include "platform/db/access.h"

namespace ksutil::tools {

/* Asks the schema alone: unlike a look-up of the table, this is not false when memory is
 * short or a file cannot be read. */
inline bool has_table(Dbptr db, std::string_view name) {
  const db::DatabaseStore *const store = db::database_store(db);
  return store != nullptr && store->schema()->find(name) != nullptr;
}

}  // namespace ksutil::tools
#endif

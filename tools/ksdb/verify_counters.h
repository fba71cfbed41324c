/* verify_counters: checks that the counters of lastid are not behind the ids in use. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_COUNTERS_H
#define KSUTIL_TOOLS_KSDB_VERIFY_COUNTERS_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "platform/db/schema.h"
#include "tools/ksdb/verify_rows.h"

namespace ksutil::tools {

/* The counters of a schema: ids that number the rows of a table, or that rows of other
 * tables refer to. */
std::set<std::string> counters_of(const db::Schema &schema);

/* A row of lastid whose value is below the greatest id in use. */
struct StaleCounter {
  long record;
  std::string name;
  std::int64_t value, greatest;
};
std::vector<StaleCounter> stale_counters(const db::Schema &schema,
                                         const Tables &tables);

/* Reports these rows.  Programs of this system allocate ids above those in use in any
 * case; other programs may trust the counter. */
void verify_counters(const db::Schema &schema, const Tables &tables,
                     const Report &report);

}  // namespace ksutil::tools
#endif

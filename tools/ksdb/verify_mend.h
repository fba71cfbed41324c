/* verify_mend: repairs those faults found by ksdb verify that can be repaired without
 * losing a row. */
#ifndef KSUTIL_TOOLS_KSDB_VERIFY_MEND_H
#define KSUTIL_TOOLS_KSDB_VERIFY_MEND_H

#include <string>
#include <vector>

#include "tools/common/open_database.h"

namespace ksutil::tools {

/* Gives an event row to the origins whose event has none: its preferred origin is the one
 * with the latest load date.  The event table is locked meanwhile, as an import locks it, so
 * that the origins of an import in progress are not taken for orphans.
 * False with a message; `mended` gets a line when rows were added. */
bool mend_orphans(const OpenDatabase &database, std::vector<std::string> &mended);

/* Sets the counters that are behind the ids in use; a line for each.  False with a message. */
bool mend_counters(const OpenDatabase &database, std::vector<std::string> &mended);

}  // namespace ksutil::tools
#endif

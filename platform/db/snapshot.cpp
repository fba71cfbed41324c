#include "platform/db/snapshot.h"

namespace ksutil::db {

std::vector<RowRange> Snapshot::scan(RowTaker &) const { return {{0, count()}}; }

Changes changes_between(const Snapshot &before, const Snapshot &after) {
  return before.changes_to(after);
}

}  // namespace ksutil::db

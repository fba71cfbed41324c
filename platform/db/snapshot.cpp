#include "platform/db/snapshot.h"

namespace ksutil::db {

std::vector<RowRange> Snapshot::scan(RowTaker &, RowRange range) const {
  return {range};
}

Changes changes_between(const Snapshot &before, const Snapshot &after) {
  return before.changes_to(after);
}

}  // namespace ksutil::db

#include "platform/db/snapshot.h"

namespace ksutil::db {

Changes changes_between(const Snapshot &before, const Snapshot &after) {
  return before.changes_to(after);
}

}  // namespace ksutil::db

#include "platform/db/internal/greatest_ids.h"

#include <algorithm>

#include "platform/db/columns.h"

namespace ksutil::db {

std::int64_t GreatestIds::follow(const std::string &table, const std::string &field,
                                 const std::shared_ptr<const Snapshot> &snapshot) {
  Seen &seen = seen_[{table, field}];
  if (seen.snapshot == snapshot) return seen.greatest;
  const IntegerColumn column(snapshot->layout(), field);
  const auto raise = [&](long row) {
    std::int64_t id;
    if (column.read(snapshot->row(row), id) && id != column.null()) {
      seen.greatest = std::max(seen.greatest, id);
    }
  };
  Changes changes;
  if (seen.snapshot != nullptr) changes = changes_between(*seen.snapshot, *snapshot);
  if (!changes.known || seen.snapshot == nullptr) {
    changes.changed.clear();
    changes.old_count = 0;
  }
  for (const long row : changes.changed) raise(row);
  for (long row = changes.old_count; row < snapshot->count(); ++row) raise(row);
  seen.snapshot = snapshot->complete() ? snapshot : nullptr;
  return seen.greatest;
}

}  // namespace ksutil::db

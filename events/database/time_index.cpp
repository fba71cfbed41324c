#include "events/database/internal/time_index.h"

#include <algorithm>

#include "events/database/internal/row_columns.h"
#include "events/database/internal/row_result.h"
#include "platform/db/columns.h"

namespace ksutil::events {

bool TimeIndex::follow(const std::shared_ptr<const db::Snapshot> &rows) {
  if (rows_ == rows) return true;
  db::Changes changes;
  changes.known = false;
  if (rows_ != nullptr && rows != nullptr) {
    changes = db::changes_between(*rows_, *rows);
  }
  rows_ = nullptr;  // until the index is complete
  const bool grown = changes.known && changes.changed.empty();
  if (!grown) entries_.clear();
  if (rows == nullptr) return true;
  MessagesOfFailure messages;
  add(*rows, grown ? changes.old_count : 0);
  if (!rows->complete()) return messages.note(kFailed) == 0;
  rows_ = rows;
  return true;
}

void TimeIndex::add(const db::Snapshot &rows, long from) {
  const db::RealColumn time(rows.layout(), "time");
  const auto old_size = static_cast<std::ptrdiff_t>(entries_.size());
  for (long record = from; record < rows.count(); record++) {
    const std::string_view row = rows.row(record);
    Entry entry{0.0, record};
    if (row.empty() || !time.read(row, entry.time) || !(entry.time > kNoTimeBelow)) {
      continue;
    }
    entries_.push_back(entry);
  }
  /* Rows are mostly in the order of their times; both steps are then cheap. */
  const auto middle = entries_.begin() + old_size;
  if (!std::is_sorted(middle, entries_.end())) std::sort(middle, entries_.end());
  if (old_size > 0 && middle != entries_.end() && *middle < *(middle - 1)) {
    std::inplace_merge(entries_.begin(), middle, entries_.end());
  }
}

std::vector<long> TimeIndex::find(double tstart, double tend) const {
  std::vector<long> records;
  /* Nothing lies in a window whose start or end is NaN. */
  const auto before = [](const Entry &entry, double time) {
    return !(entry.time >= time);
  };
  for (auto entry = std::lower_bound(entries_.begin(), entries_.end(), tstart, before);
       entry != entries_.end() && entry->time <= tend; ++entry) {
    records.push_back(entry->record);
  }
  std::sort(records.begin(), records.end());
  return records;
}

}  // namespace ksutil::events

#include "events/database/internal/site_index.h"

#include <limits>

#include "events/database/internal/row_columns.h"
#include "events/database/internal/row_result.h"
#include "platform/clock/clock.h"

namespace ksutil::events {

bool SiteIndex::follow(const std::shared_ptr<const db::Snapshot> &sites) {
  if (sites_ == sites) return true;
  epochs_.clear();
  sites_ = nullptr;  // until the index is complete
  if (sites == nullptr) return true;
  MessagesOfFailure messages;
  const SiteColumns columns(sites->layout());
  for (long record = 0; record < sites->count(); record++) {
    const std::string_view row = sites->row(record);
    std::string_view sta;
    Epoch epoch{0, 0, record};
    if (!sites->complete()) return messages.note(kFailed) == 0;
    if (row.empty() || !columns.sta.read(row, sta) ||
        !columns.ondate.read(row, epoch.ondate) ||
        !columns.offdate.read(row, epoch.offdate) || columns.sta.is_null(sta)) {
      continue;
    }
    if (epoch.ondate == columns.ondate.null()) {
      epoch.ondate = std::numeric_limits<int64_t>::min();
    }
    if (epoch.offdate == columns.offdate.null()) {
      epoch.offdate = std::numeric_limits<int64_t>::max();
    }
    epochs_[std::string(sta)].push_back(epoch);
  }
  sites_ = sites;
  return true;
}

long SiteIndex::find(std::string_view sta, double time) const {
  if (!(time > kNoTimeBelow)) return -1;
  const auto station = epochs_.find(sta);
  if (station == epochs_.end()) return -1;
  const int64_t day = yearday(time);
  const Epoch *latest = nullptr;
  for (const Epoch &epoch : station->second) {
    if (epoch.ondate > day || epoch.offdate < day) continue;
    if (latest == nullptr || epoch.ondate > latest->ondate) latest = &epoch;
  }
  return latest == nullptr ? -1 : latest->record;
}

}  // namespace ksutil::events

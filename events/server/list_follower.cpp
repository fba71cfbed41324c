#include "events/server/internal/list_follower.h"

#include <algorithm>
#include <utility>

#include "events/server/internal/changed_keys.h"

namespace ksutil::events {
namespace {

/* A full reading is cheaper if more than 1/kFullReadingPart of the list must be
 * read. */
constexpr std::size_t kFullReadingPart = 4;

}  // namespace

void ListFollower::forget() {
  epoch_++;
  known_ = false;
  list_.reset();
  snapshots_ = ListSnapshots();
  entries_ = {};
}

std::optional<AffectedEvents> ListFollower::affected(const TreeReader &reader,
                                                     RowWindow window) const {
  if (!known_ || window.first != window_.first || window.count < window_.count) {
    return std::nullopt;
  }
  const ListIndexes &now = reader.list_indexes();
  AffectedEvents found;
  const auto add_evid = [&](int64_t evid) { found.evids.insert(evid); };
  if (!for_each_changed_key(snapshots_.event, *now.event_evid, add_evid, &found.rows) ||
      !for_each_changed_key(snapshots_.origin, *now.origin_evid, add_evid)) {
    return std::nullopt;
  }
  /* An origin whose orid has changed was found above, under its old evid as well. */
  const auto add_orid = [&](int64_t orid) {
    for (const long row : now.origin_orid->find(orid)) {
      int64_t evid;
      if (now.origin_evid->key_of(row, evid)) add_evid(evid);
    }
  };
  if (!for_each_changed_key(snapshots_.origerr, *now.origerr_orid, add_orid) ||
      !for_each_changed_key(snapshots_.netmag, *now.netmag_orid, add_orid) ||
      !for_each_changed_key(snapshots_.mt, *now.mt_orid, add_orid)) {
    return std::nullopt;
  }

  if (found.evids.size() > entries_.size() / kFullReadingPart + 1) return std::nullopt;
  for (const int64_t value : found.evids) {
    for (const long row : now.event_evid->find(value)) found.rows.push_back(row);
  }
  std::sort(found.rows.begin(), found.rows.end());
  found.rows.erase(std::unique(found.rows.begin(), found.rows.end()), found.rows.end());
  std::erase_if(found.rows, [this](long row) {
    return row < window_.first || row >= window_.count;
  });
  return found;
}

long ListFollower::place(long row) const {
  const auto found =
      std::lower_bound(entries_.begin(), entries_.end(), row,
                       [](const Entry &e, long value) { return e.row < value; });
  if (found == entries_.end() || found->row != row) return -1;
  return static_cast<long>(found - entries_.begin());
}

bool ListFollower::lists(int64_t evid) const {
  return std::any_of(entries_.begin(), entries_.end(),
                     [evid](const Entry &entry) { return entry.evid == evid; });
}

ListFollower::Entry ListFollower::entry_of(const EVEvent &event) {
  return Entry{event.recno_event, event.evid,
               std::max(event.lddate_event, event.lddate_view), event.time,
               event.pref_origin >= 0};
}

void ListFollower::start(const Table<EVEvent> &events, long next_order) {
  known_ = false;
  entries_.clear();
  entries_.reserve(static_cast<std::size_t>(events.size()));
  for (const EVEvent &event : events) entries_.push_back(entry_of(event));
  next_order_ = next_order;
}

void ListFollower::replace(long place, const EVEvent &event) {
  entries_[static_cast<std::size_t>(place)] = entry_of(event);
}

void ListFollower::append(const EVEvent &event) { entries_.push_back(entry_of(event)); }

ListSummary ListFollower::summary() const {
  ListSummary summary;
  const Entry *latest = nullptr, *modified = nullptr, *recent = nullptr;
  for (const Entry &entry : entries_) {
    if (entry.located && (latest == nullptr || entry.time > latest->time)) {
      latest = &entry;
    }
    if (modified == nullptr || entry.modified >= modified->modified) modified = &entry;
    if (recent == nullptr || entry.time > recent->time) recent = &entry;
  }
  if (latest != nullptr) summary.latest_time = latest->time;
  if (modified != nullptr) summary.lastmodified_evid = modified->evid;
  if (recent != nullptr) summary.mostrecent_evid = recent->evid;
  return summary;
}

void ListFollower::finish(const ListSnapshots &snapshots, RowWindow window, long epoch,
                          const std::shared_ptr<const Table<EVEvent>> &list) {
  if (epoch != epoch_) return;
  snapshots_ = snapshots;
  window_ = window;
  list_ = list;
  known_ = true;
}

}  // namespace ksutil::events

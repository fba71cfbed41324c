#include "events/server/internal/list_follower.h"

#include <algorithm>

#include "platform/db/columns.h"

namespace ksutil::events {
namespace {

/* A full reading is cheaper if more than 1/kFullReadingPart of the list must be
 * read. */
constexpr std::size_t kFullReadingPart = 4;

/* ChangedKeys: gives the old and new values of an integer field in the rows in which
 * two snapshots differ. */
class ChangedKeys {
 public:
  ChangedKeys(const db::Snapshot &before, const db::Snapshot &after, const char *field)
      : before_(before),
        after_(after),
        old_key_(before.layout(), field),
        new_key_(after.layout(), field),
        changes_(db::changes_between(before, after)) {}

  const std::vector<long> &changed_rows() const { return changes_.changed; }

  /* Calls fn(key) for each value; false if some values cannot be known. */
  template <class Fn>
  bool for_each(Fn fn) const {
    if (!changes_.known) return false;
    for (const long row : changes_.changed) {
      if (!call(before_, old_key_, row, fn)) return false;
      call(after_, new_key_, row, fn);
    }
    for (long row = changes_.old_count; row < changes_.new_count; row++) {
      call(after_, new_key_, row, fn);
    }
    return true;
  }

 private:
  /* A row whose key cannot be read belongs to no event.  An old row that is no longer
   * in memory may have belonged to any event: give up. */
  template <class Fn>
  static bool call(const db::Snapshot &rows, const db::IntegerColumn &column, long row,
                   Fn &fn) {
    const std::string_view text = rows.row(row);
    int64_t key;
    if (text.empty()) return false;
    if (column.read(text, key) && key != column.null()) fn(key);
    return true;
  }

  const db::Snapshot &before_, &after_;
  db::IntegerColumn old_key_, new_key_;
  db::Changes changes_;
};

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
  const ListSnapshots now = reader.list_snapshots();
  AffectedEvents found;
  const auto add_evid = [&](int64_t evid) { found.evids.insert(evid); };

  if (snapshots_.event != now.event) {
    const ChangedKeys events(*snapshots_.event, *now.event, "evid");
    if (!events.for_each(add_evid)) return std::nullopt;
    found.rows = events.changed_rows();
  }
  if (snapshots_.origin != now.origin) {
    const ChangedKeys origins(*snapshots_.origin, *now.origin, "evid");
    if (!origins.for_each(add_evid)) return std::nullopt;
  }
  /* An origin whose orid has changed was found above, under its old evid as well. */
  const db::IntegerColumn evid(now.origin->layout(), "evid");
  const auto add_orid = [&](int64_t orid) {
    for (const long row : reader.origins_with(orid)) {
      int64_t value;
      if (evid.read(now.origin->row(row), value)) add_evid(value);
    }
  };
  const std::pair<const db::Snapshot *, const db::Snapshot *> below[] = {
      {snapshots_.origerr.get(), now.origerr.get()},
      {snapshots_.netmag.get(), now.netmag.get()},
      {snapshots_.mt.get(), now.mt.get()}};
  for (const auto &[before, after] : below) {
    if (before == after) continue;
    if (!ChangedKeys(*before, *after, "orid").for_each(add_orid)) return std::nullopt;
  }

  if (found.evids.size() > entries_.size() / kFullReadingPart + 1) return std::nullopt;
  for (const int64_t value : found.evids) {
    for (const long row : reader.events_with(value)) found.rows.push_back(row);
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

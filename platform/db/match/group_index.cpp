#include "platform/db/match/internal/group_index.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/stock/fingerprint.h"

namespace ksutil::db {
namespace {

bool overlap(const MatchKey::Range &a, const MatchKey::Range &b) {
  return a.low <= b.high && b.low <= a.high;
}

}  // namespace

/* The row's key, if it has a value to match with; else null. */
bool GroupIndex::read(const MatchPlan &plan, std::string_view row,
                      MatchKey &key) const {
  return !row.empty() && plan.read_table(RowRecord(*layout_, row), key) && !key.null;
}

void GroupIndex::follow(const MatchPlan &plan,
                        const std::shared_ptr<const Snapshot> &snapshot) {
  if (snapshot == snapshot_) return;
  Changes changes;
  changes.known = snapshot_ != nullptr;
  if (changes.known) changes = changes_between(*snapshot_, *snapshot);
  if (layout_ == nullptr || !same_layout(layout_->relation(), snapshot->layout())) {
    layout_ = std::make_unique<const BoundLayout>(snapshot->layout());
    changes.known = false;
  }
  if (!changes.known || moved(plan, *snapshot, changes.changed)) {
    groups_.clear();
    prints_.clear();
    changes.old_count = 0;
  }
  snapshot_ = nullptr;  // until the index is complete: memory may run short half way
  prints_.resize(static_cast<std::size_t>(snapshot->count()));
  for (long row = changes.old_count; row < snapshot->count(); ++row) {
    if (!read(plan, snapshot->row(row), now_)) continue;
    prints_[static_cast<std::size_t>(row)] = print();
    const bool ranged = plan.has_ranges();
    groups_[now_.equal].entries.push_back({ranged ? now_.ranges.front().low : 0.0,
                                           ranged ? now_.ranges.front().high : 0.0, 0.0,
                                           row});
  }
  if (snapshot->complete()) snapshot_ = snapshot;
}

/* The fingerprint of now_, which has a value to match with; never 0. */
std::uint64_t GroupIndex::print() const {
  const Fingerprint fingerprint;
  const std::uint64_t parts[] = {
      fingerprint(now_.equal),
      fingerprint({reinterpret_cast<const char *>(now_.ranges.data()),
                   now_.ranges.size() * sizeof(MatchKey::Range)})};
  const std::uint64_t whole =
      fingerprint({reinterpret_cast<const char *>(parts), sizeof parts});
  return whole == 0 ? 1 : whole;
}

/* Whether any of the changed rows has another key now. */
bool GroupIndex::moved(const MatchPlan &plan, const Snapshot &snapshot,
                       const std::vector<long> &changed) {
  return std::any_of(changed.begin(), changed.end(), [&](long row) {
    const std::uint64_t now = read(plan, snapshot.row(row), now_) ? print() : 0;
    return now != prints_[static_cast<std::size_t>(row)];
  });
}

/* Sorts the ranges that were added, and continues `reach` over them. */
void GroupIndex::settle(Group &group) {
  if (group.settled == group.entries.size()) return;
  const auto by_low = [](const Entry &a, const Entry &b) {
    return std::pair(a.low, a.row) < std::pair(b.low, b.row);
  };
  const auto begin = group.entries.begin();
  const auto added = begin + static_cast<std::ptrdiff_t>(group.settled);
  std::sort(added, group.entries.end(), by_low);
  const auto first_after = std::upper_bound(
      begin, added, *added, by_low);  // entries before it keep their place
  std::inplace_merge(first_after, added, group.entries.end(), by_low);
  double reach = first_after == begin ? -std::numeric_limits<double>::infinity()
                                      : (first_after - 1)->reach;
  for (auto entry = first_after; entry != group.entries.end(); ++entry) {
    reach = std::max(reach, entry->high);
    entry->reach = reach;
  }
  group.settled = group.entries.size();
}

/* The ranges of a row after its first.  A match with several ranges is rare enough to
 * read the row again. */
bool GroupIndex::others_overlap(const MatchPlan &plan, const MatchKey &key, long row) {
  if (key.ranges.size() < 2) return true;
  if (!read(plan, snapshot_->row(row), now_)) return false;
  for (std::size_t i = 1; i < key.ranges.size(); ++i) {
    if (!overlap(key.ranges[i], now_.ranges[i])) return false;
  }
  return true;
}

void GroupIndex::find(const MatchPlan &plan, const MatchKey &key,
                      std::vector<long> &rows) {
  const auto found = groups_.find(std::string_view(key.equal));
  if (found == groups_.end()) return;
  Group &group = found->second;
  if (!plan.has_ranges()) {
    for (const Entry &entry : group.entries) rows.push_back(entry.row);
    return;
  }
  settle(group);
  const MatchKey::Range &wanted = key.ranges.front();
  auto entry =
      std::upper_bound(group.entries.begin(), group.entries.end(), wanted.high,
                       [](double high, const Entry &e) { return high < e.low; });
  while (entry != group.entries.begin() && (--entry)->reach >= wanted.low) {
    if (entry->high >= wanted.low && others_overlap(plan, key, entry->row)) {
      rows.push_back(entry->row);
    }
  }
  std::sort(rows.begin(), rows.end());
}

}  // namespace ksutil::db

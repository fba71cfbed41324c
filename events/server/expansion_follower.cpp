#include "events/server/internal/expansion_follower.h"

#include <algorithm>

#include "events/server/internal/changed_keys.h"

namespace ksutil::events {

bool ExpansionChanges::concern(const ExpansionKeys &keys) const {
  const auto any = [](const std::vector<int64_t> &of_event,
                      const std::unordered_set<int64_t> &changed) {
    return !changed.empty() &&
           std::any_of(of_event.begin(), of_event.end(),
                       [&changed](int64_t key) { return changed.contains(key); });
  };
  return any(keys.orids, orids) || any(keys.arids, arids) || any(keys.magids, magids);
}

std::optional<ExpansionChanges> ExpansionFollower::changes(
    const TreeReader &reader) const {
  const ExpansionSnapshots now = reader.expansion_snapshots();
  /* A site or a detection may belong to any event. */
  if (reading_ == 0 || now.site != snapshots_.site ||
      now.detection != snapshots_.detection) {
    return std::nullopt;
  }
  const ExpansionIndexes &by = reader.expansion_indexes();
  ExpansionChanges changes;
  const auto add_to = [](std::unordered_set<int64_t> &keys) {
    return [&keys](int64_t key) { keys.insert(key); };
  };
  if (!for_each_changed_key(snapshots_.assoc, *by.assoc_orid, add_to(changes.orids)) ||
      !for_each_changed_key(snapshots_.arrival, *by.arrival_arid,
                            add_to(changes.arids)) ||
      !for_each_changed_key(snapshots_.stamag, *by.stamag_magid,
                            add_to(changes.magids))) {
    return std::nullopt;
  }
  return changes;
}

}  // namespace ksutil::events

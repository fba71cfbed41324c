/* GroupIndex: finds the rows of a table for every match except that by a single id.  It
 * keeps groups of rows with equal items, and in each group the ranges in order of their
 * lower ends. */
#ifndef KSUTIL_PLATFORM_DB_MATCH_INTERNAL_GROUP_INDEX_H
#define KSUTIL_PLATFORM_DB_MATCH_INTERNAL_GROUP_INDEX_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/db/internal/bound_layout.h"
#include "platform/db/match/internal/match_plan.h"
#include "platform/db/snapshot.h"

namespace ksutil::db {

class GroupIndex {
 public:
  /* Brings the index up to date: adds new rows; builds itself anew when the keys of
   * older rows have changed.  Rows with a null or unreadable key are left out. */
  void follow(const MatchPlan &plan, const std::shared_ptr<const Snapshot> &snapshot);

  /* The snapshot that the index describes; null before the first follow(). */
  const std::shared_ptr<const Snapshot> &snapshot() const { return snapshot_; }

  /* Appends the rows that match, ascending. */
  void find(const MatchPlan &plan, const MatchKey &key, std::vector<long> &rows);

 private:
  struct Entry {
    double low, high;  // the first range of the row; 0 without ranges
    double reach;      // the greatest high of the group up to this entry
    long row;
  };
  struct Group {
    std::vector<Entry> entries;  // the first `settled` sorted by low, with their reach
    std::size_t settled = 0;
  };
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>()(text);
    }
  };

  bool read(const MatchPlan &plan, std::string_view row, MatchKey &key) const;
  std::uint64_t print() const;
  bool moved(const MatchPlan &plan, const Snapshot &snapshot,
             const std::vector<long> &changed);
  bool others_overlap(const MatchPlan &plan, const MatchKey &key, long row);
  static void settle(Group &group);

  std::shared_ptr<const Snapshot> snapshot_;
  std::unique_ptr<const BoundLayout> layout_;
  std::unordered_map<std::string, Group, TextHash, std::equal_to<>> groups_;
  /* The fingerprint of each row's key, 0 without one, by which a changed row is
   * compared with its old key. */
  std::vector<std::uint64_t> prints_;
  MatchKey now_;  // kept for its memory
};

}  // namespace ksutil::db
#endif

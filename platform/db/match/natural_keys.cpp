#include "platform/db/match/internal/natural_keys.h"

#include <algorithm>

#include "platform/db/match/internal/match_plan.h"

namespace ksutil::db {
namespace {

/* The pattern over a table's row that corresponds to one item of another table's key; ""
 * when there is none. */
std::string counterpart(const Relation &row, const std::string &item) {
  const MatchPattern pattern = split_pattern(item);
  if (!pattern.range) return row.find(pattern.low) != nullptr ? pattern.low : "";
  if (row.find(pattern.low) != nullptr) {
    return row.find(pattern.high) != nullptr ? item : pattern.low;
  }
  /* Station epochs are given in days: match a row with a time by its time's day. */
  const bool days = pattern.low == "ondate";
  if (row.find("time") == nullptr || !days) return "";
  return row.find("endtime") != nullptr ? "yearday(time)::yearday(endtime)"
                                        : "yearday(time)";
}

/* Whether a row of `row` has a counterpart for every item of a key; `items` gets them. */
bool tells(const Relation &row, const Key &key, std::vector<std::string> &items) {
  items.clear();
  for (const std::string &item : key) {
    if (item == "lddate") return false;
    items.push_back(counterpart(row, item));
    if (items.back().empty()) return false;
  }
  return !items.empty();
}

/* The first key of `owner`, primary first, for which a row of `row` has counterparts. */
bool first_told(const Relation &row, const Relation &owner,
                std::vector<std::string> &of_row, std::vector<std::string> &of_owner) {
  std::vector<Key> keys{owner.primary};
  keys.insert(keys.end(), owner.alternate.begin(), owner.alternate.end());
  for (const Key &key : keys) {
    if (!tells(row, key, of_row)) continue;
    of_owner = key;
    return true;
  }
  return false;
}

/* The first field of `from` whose ids identify rows of `to`. */
bool first_foreign(const Relation &from, const Relation &to,
                   std::vector<std::string> &of_from, std::vector<std::string> &of_to) {
  const auto found = std::find_if(
      from.foreign.begin(), from.foreign.end(), [&](const ForeignKey &foreign) {
        return foreign.table == to.name && to.find(foreign.table_field) != nullptr;
      });
  if (found == from.foreign.end()) return false;
  of_from = {found->field};
  of_to = {found->table_field};
  return true;
}

}  // namespace

bool natural_keys(const Relation &key, const Relation &table,
                  std::vector<std::string> &kpattern,
                  std::vector<std::string> &tpattern) {
  return first_told(key, table, kpattern, tpattern) ||
         first_told(table, key, tpattern, kpattern) ||
         first_foreign(key, table, kpattern, tpattern) ||
         first_foreign(table, key, tpattern, kpattern);
}

}  // namespace ksutil::db

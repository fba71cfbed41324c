/* dbjoin: makes the view of the records of two lists that match. */
#include <algorithm>
#include <limits>
#include <unordered_map>

#include "platform/db/match/internal/match_plan.h"
#include "platform/db/match/internal/natural_keys.h"
#include "platform/db/view_rows.h"
#include "platform/db/views/internal/tuple_rows.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

/* One side of a join: the list, and the source whose fields the patterns name. */
struct Side {
  Tuples tuples;
  RecordSource *source = nullptr;
  std::size_t part = 0;  // with natural keys: the table whose fields they name
  bool by_part = false;
};

bool overlap(const MatchKey::Range &a, const MatchKey::Range &b) {
  return a.low <= b.high && b.low <= a.high;
}

/* Finds the records of the right side by their keys. */
class JoinIndex {
 public:
  explicit JoinIndex(const MatchPlan &plan)
      : has_ranges_(plan.has_ranges()), by_id_(!plan.id_field().empty()) {}

  void add(const MatchKey &key, long number) {
    if (by_id_) {
      ids_.push_back({key.integer, number});
    } else if (has_ranges_) {
      ranged_[key.equal].push_back({key.ranges, number, 0.0});
    } else {
      plain_[key.equal].push_back(number);
    }
  }

  /* After the last record: sorts the ids, and the ranges of each group by their lower
   * ends. */
  void settle() {
    const auto before = [](const Id &a, const Id &b) {
      return a.id != b.id ? a.id < b.id : a.number < b.number;
    };
    if (!std::is_sorted(ids_.begin(), ids_.end(), before)) {
      std::sort(ids_.begin(), ids_.end(), before);
    }
    for (auto &[equal, entries] : ranged_) {
      std::stable_sort(entries.begin(), entries.end(),
                       [](const Entry &a, const Entry &b) {
                         return a.ranges.front().low < b.ranges.front().low;
                       });
      double reach = -std::numeric_limits<double>::infinity();
      for (Entry &entry : entries) {
        reach = std::max(reach, entry.ranges.front().high);
        entry.reach = reach;
      }
    }
  }

  /* The numbers that match, ascending. */
  void find(const MatchKey &key, std::vector<long> &numbers) const {
    numbers.clear();
    if (by_id_) {
      auto id = std::partition_point(ids_.begin(), ids_.end(),
                                     [&](const Id &i) { return i.id < key.integer; });
      for (; id != ids_.end() && id->id == key.integer; ++id) {
        numbers.push_back(id->number);
      }
    } else if (has_ranges_) {
      find_overlapping(key, numbers);
    } else if (const auto found = plain_.find(key.equal); found != plain_.end()) {
      numbers = found->second;
    }
  }

 private:
  struct Id {
    std::int64_t id;
    long number;
  };
  struct Entry {
    std::vector<MatchKey::Range> ranges;
    long number;
    double reach;  // the greatest high of the first ranges up to this one
  };

  void find_overlapping(const MatchKey &key, std::vector<long> &numbers) const {
    const auto found = ranged_.find(key.equal);
    if (found == ranged_.end()) return;
    const std::vector<Entry> &entries = found->second;
    const MatchKey::Range &wanted = key.ranges.front();
    auto entry =
        std::partition_point(entries.begin(), entries.end(),
                             [&](const Entry &e) { return e.reach < wanted.low; });
    for (; entry != entries.end(); ++entry) {
      if (entry->ranges.front().low > wanted.high) break;
      if (std::equal(entry->ranges.begin(), entry->ranges.end(), key.ranges.begin(),
                     overlap)) {
        numbers.push_back(entry->number);
      }
    }
    std::sort(numbers.begin(), numbers.end());
  }

  const bool has_ranges_, by_id_;
  std::vector<Id> ids_;
  std::unordered_map<std::string, std::vector<long>> plain_;
  std::unordered_map<std::string, std::vector<Entry>> ranged_;
};

/* Chooses the table of each side: the pair whose natural keys have the most fields in
 * common. */
bool natural_patterns(Side &left, Side &right, std::vector<std::string> &lpattern,
                      std::vector<std::string> &rpattern) {
  for (std::size_t l = 0; l < left.tuples.parts.size(); ++l) {
    for (std::size_t r = 0; r < right.tuples.parts.size(); ++r) {
      TableSource *const of_left = left.tuples.parts[l].source;
      TableSource *const of_right = right.tuples.parts[r].source;
      std::vector<std::string> of_l, of_r;
      if (!natural_keys(of_left->relation(), of_right->relation(), of_l, of_r) ||
          of_l.size() <= lpattern.size()) {
        continue;
      }
      lpattern = std::move(of_l);
      rpattern = std::move(of_r);
      left.part = l;
      left.source = of_left;
      right.part = r;
      right.source = of_right;
    }
  }
  left.by_part = right.by_part = true;
  return !lpattern.empty();
}

bool share_a_table(const Tuples &a, const Tuples &b) {
  return std::any_of(a.parts.begin(), a.parts.end(), [&](const Tuples::Part &left) {
    return std::any_of(b.parts.begin(), b.parts.end(), [&](const Tuples::Part &right) {
      return left.source == right.source;
    });
  });
}

std::unique_ptr<const MatchPlan> plan_of(Side &left, Side &right, Tbl *lkeys,
                                         Tbl *rkeys) {
  std::vector<std::string> lpattern, rpattern;
  if (lkeys == nullptr && rkeys == nullptr) {
    const std::string of_left = left.source->name(), of_right = right.source->name();
    if (!natural_patterns(left, right, lpattern, rpattern)) {
      return fail("dbjoin", "%s and %s share no key", of_left.c_str(),
                  of_right.c_str());
    }
  } else if (!key_texts("dbjoin", lkeys == nullptr ? rkeys : lkeys, lpattern) ||
             !key_texts("dbjoin", rkeys == nullptr ? lkeys : rkeys, rpattern)) {
    return nullptr;
  }
  return MatchPlan::compile("dbjoin", *left.source, *right.source, lpattern, rpattern);
}

/* Calls visit(number, key) for each record of a side that has a key, and counts the
 * records that cannot be read.  False, with a message, when a table cannot be read at
 * all. */
template <class Read, class Visit>
bool each_key(const Side &side, Read read, Visit visit, long &left_out) {
  /* With natural keys one table has all that is needed. */
  Tuples of_part;
  if (side.by_part) {
    of_part.parts = {side.tuples.parts[side.part]};
    if (side.tuples.parts.size() > 1) {
      of_part.records.reserve(static_cast<std::size_t>(side.tuples.count()));
      for (long i = 0; i < side.tuples.count(); ++i) {
        of_part.records.push_back(side.tuples.tuple(i)[side.part]);
      }
    }
  }
  const Tuples &tuples = of_part.records.empty() ? side.tuples : of_part;
  TupleRows rows(tuples);
  if (!rows.look("dbjoin")) return false;
  TupleRecord record =
      side.by_part ? TupleRecord(rows, 0) : TupleRecord(*side.source, rows);
  const ElogScope quiet;
  MatchKey key;
  for (long i = 0; i < tuples.count(); ++i) {
    const std::string_view *const found = rows.read(i);
    record.show(found);
    if (found == nullptr || !read(record, key)) {
      ++left_out;
    } else if (!key.null) {
      visit(i, key);
    }
  }
  return true;
}

/* Null, with a message, when the two sides have a table in common or their fields do not
 * fit the keys; neither depends on the records. */
std::unique_ptr<const MatchPlan> plan_of_join(Side &left, Side &right, Tbl *lkeys,
                                              Tbl *rkeys) {
  if (share_a_table(left.tuples, right.tuples)) {
    return fail("dbjoin", "%s and %s have a table in common",
                left.source->name().c_str(), right.source->name().c_str());
  }
  return plan_of(left, right, lkeys, rkeys);
}

/* The side of a list without its records. */
Side parts_of(RecordSource &source, Dbptr db) {
  Side side;
  side.source = &source;
  if (TableSource *const table = source.table()) {
    side.tuples.parts = {{db.table, table}};
  } else {
    side.tuples.parts = static_cast<ViewSource &>(source).tuples().parts;
  }
  return side;
}

Dbptr join(const Opened &opened, Dbptr left_db, Dbptr right_db, Tbl *lkeys,
           Tbl *rkeys) {
  Side left, right;
  left.source = opened.source("dbjoin", left_db);
  right.source = opened.source("dbjoin", right_db);
  if (left.source == nullptr || right.source == nullptr ||
      !list_tuples("dbjoin", left_db, *left.source, left.tuples) ||
      !list_tuples("dbjoin", right_db, *right.source, right.tuples)) {
    return dbinvalid();
  }
  const std::unique_ptr<const MatchPlan> plan = plan_of_join(left, right, lkeys, rkeys);
  if (plan == nullptr) return dbinvalid();

  JoinIndex index(*plan);
  long left_out = 0;
  const bool indexed = each_key(
      right,
      [&](const expr::Record &record, MatchKey &key) {
        return plan->read_table(record, key);
      },
      [&](long i, const MatchKey &key) { index.add(key, i); }, left_out);
  if (!indexed) return dbinvalid();
  index.settle();
  Tuples joined;
  joined.parts = left.tuples.parts;
  joined.parts.insert(joined.parts.end(), right.tuples.parts.begin(),
                      right.tuples.parts.end());
  std::vector<long> found;
  const bool matched = each_key(
      left,
      [&](const expr::Record &record, MatchKey &key) {
        return plan->read_key(record, key);
      },
      [&](long i, const MatchKey &key) {
        index.find(key, found);
        for (const long number : found) {
          const long *const l = left.tuples.tuple(i);
          const long *const r = right.tuples.tuple(number);
          joined.records.insert(joined.records.end(), l, l + left.tuples.parts.size());
          joined.records.insert(joined.records.end(), r, r + right.tuples.parts.size());
        }
      },
      left_out);
  if (!matched) return dbinvalid();
  if (left_out > 0) {
    elog_log(0, "dbjoin: %ld records cannot be read and are left out.\n", left_out);
  }
  joined.left_out = left.tuples.left_out + right.tuples.left_out + left_out;
  return add_view(*opened, left_db, std::move(joined));
}

}  // namespace

bool refuses_join(Dbptr left_db, Dbptr right_db, Tbl *lkeys, Tbl *rkeys) {
  return at_boundary("refuses_join", false, [&] {
    const ElogScope quiet;
    const Opened opened("refuses_join", left_db);
    if (!opened) return false;
    if (left_db.database != right_db.database) return true;
    RecordSource *const of_left = opened.source("refuses_join", left_db);
    RecordSource *const of_right = opened.source("refuses_join", right_db);
    if (of_left == nullptr || of_right == nullptr) return false;
    Side left = parts_of(*of_left, left_db), right = parts_of(*of_right, right_db);
    return plan_of_join(left, right, lkeys, rkeys) == nullptr;
  });
}

}  // namespace ksutil::db

using namespace ksutil::db;
using ksutil::at_boundary;
using ksutil::fail;

Dbptr dbjoin(Dbptr left, Dbptr right, Tbl *lkeys, Tbl *rkeys) {
  return at_boundary("dbjoin", dbinvalid(), [&] {
    if (left.database != right.database) {
      fail("dbjoin", "the tables belong to different databases");
      return dbinvalid();
    }
    const Opened opened("dbjoin", left);
    return opened ? join(opened, left, right, lkeys, rkeys) : dbinvalid();
  });
}

/* dbmatches: finds the rows of a table that match a record. */
#include <optional>

#include "platform/db/internal/registry.h"
#include "platform/db/match/internal/match_state.h"
#include "platform/db/match/internal/natural_keys.h"
#include "platform/elog/failure.h"
#include "platform/stock/owners.h"

namespace ksutil::db {
namespace {

/* Fills in the lists that are null. */
bool complete_patterns(RecordSource &key, const TableSource &table, Tbl *&kpattern,
                       Tbl *&tpattern) {
  std::vector<std::string> of_key, of_table;
  if (kpattern == nullptr && tpattern == nullptr) {
    if (key.table() == nullptr ||
        !natural_keys(key.table()->relation(), table.relation(), of_key, of_table)) {
      return fail("dbmatches", "%s and %s share no key", key.name().c_str(),
                  table.name().c_str());
    }
  } else {
    Tbl *const other = kpattern == nullptr ? tpattern : kpattern;
    if (!pattern_texts("dbmatches", other, of_key)) return false;
    of_table = of_key;
  }
  TblOfTexts filled_key, filled_table;
  if (kpattern == nullptr) filled_key = from_texts(of_key);
  if (tpattern == nullptr) filled_table = from_texts(of_table);
  if (kpattern == nullptr) kpattern = filled_key.release();
  if (tpattern == nullptr) tpattern = filled_table.release();
  return true;
}

/* Both databases of a match, locked in the order of their numbers, so that two threads
 * cannot wait for each other. */
class OpenedPair {
 public:
  OpenedPair(const char *who, Dbptr key, Dbptr table)
      : first_(who, key.database < table.database ? key : table),
        key_first_(key.database < table.database) {
    if (key.database != table.database && first_) {
      second_.emplace(who, key_first_ ? table : key);
    }
  }
  explicit operator bool() const { return first_ && (!second_ || *second_); }
  const Opened &key() const { return key_first_ || !second_ ? first_ : *second_; }
  const Opened &table() const { return key_first_ && second_ ? *second_ : first_; }

 private:
  Opened first_;
  bool key_first_;
  std::optional<Opened> second_;
};

long match(Dbptr key, Dbptr table, Tbl **kpattern, Tbl **tpattern, Hook **hook,
           Tbl **records) {
  const OpenedPair opened("dbmatches", key, table);
  if (!opened) return -1;
  RecordSource *const of_key = opened.key().source("dbmatches", key);
  TableSource *const of_table = opened.table().table("dbmatches", table);
  if (of_key == nullptr || of_table == nullptr ||
      ((*kpattern == nullptr || *tpattern == nullptr) &&
       !complete_patterns(*of_key, *of_table, *kpattern, *tpattern))) {
    return -1;
  }
  MatchState *const state = MatchState::in("dbmatches", hook);
  if (state == nullptr || !state->prepare(*of_key, *of_table, *kpattern, *tpattern)) {
    return -1;
  }
  const expr::Record *const record = of_key->record("dbmatches", key.record);
  if (record == nullptr || !state->find(*record, *of_table)) {
    return fail("dbmatches", "cannot match %s with %s", of_key->name().c_str(),
                of_table->name().c_str());
  }
  if (records != nullptr) *records = from_numbers(state->rows()).release();
  return static_cast<long>(state->rows().size());
}

}  // namespace
}  // namespace ksutil::db

using namespace ksutil::db;
using ksutil::at_boundary;
using ksutil::fail;

long dbmatches(Dbptr key, Dbptr table, Tbl **kpattern, Tbl **tpattern, Hook **hook,
               Tbl **records) {
  return at_boundary("dbmatches", -1L, [&] {
    if (kpattern == nullptr || tpattern == nullptr || hook == nullptr) {
      fail("dbmatches", "no place for patterns or hook");
      return -1L;
    }
    return match(key, table, kpattern, tpattern, hook, records);
  });
}

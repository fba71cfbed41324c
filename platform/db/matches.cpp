#include <cstdlib>
#include <new>
#include <optional>

#include "platform/db/access.h"
#include "platform/db/internal/boundary.h"
#include "platform/db/internal/group_index.h"
#include "platform/db/internal/registry.h"
#include "platform/elog/elog.h"
#include "platform/stock/memory.h"

namespace ksutil::db {
namespace {

/* What a hook keeps between matches.  No database handle is in it, so that it may
 * outlive the database. */
struct MatchState {
  std::unique_ptr<const MatchPlan> plan;  // null until dbmatches has compiled it
  std::vector<std::string> id_kpattern, id_tpattern;  // last seen by match_index
  std::unique_ptr<KeyIndex> ids;                      // of a match by id
  std::unique_ptr<GroupIndex> groups;                 // of any other
  long table = 0;  // the table source that the index is of
  MatchKey key;
  std::vector<long> rows;
};

void release_state(void *state) { delete static_cast<MatchState *>(state); }

/* The state in the hook, made when there is none; null with a message. */
MatchState *state_in(const char *who, Hook **hook) {
  if (*hook == nullptr) {
    auto state = std::make_unique<MatchState>();
    *hook = new_hook(state.get(), release_state);
    if (*hook == nullptr) throw std::bad_alloc();
    return state.release();
  }
  if ((*hook)->release == release_state)
    return static_cast<MatchState *>((*hook)->data);
  elog_log(0, "%s: the hook belongs to another function.\n", who);
  return nullptr;
}

/* A list of texts on its way to the caller. */
struct TextsDeleter {
  void operator()(Tbl *list) const { freetbl(list, std::free); }
};
using Texts = std::unique_ptr<Tbl, TextsDeleter>;

Texts new_texts(const std::vector<std::string> &texts) {
  Texts list(newtbl(static_cast<long>(texts.size())));
  if (list == nullptr) throw std::bad_alloc();
  for (const std::string &text : texts) {
    MallocPtr<char> copy(ks_strdup(text.c_str()));
    if (copy == nullptr || pushtbl(list.get(), copy.get()) < 0) throw std::bad_alloc();
    copy.release();
  }
  return list;
}

/* Fills in the lists that are null. */
bool complete_patterns(RecordSource &key, const TableSource &table, Tbl *&kpattern,
                       Tbl *&tpattern) {
  std::vector<std::string> of_key, of_table;
  if (kpattern == nullptr && tpattern == nullptr) {
    if (key.table() == nullptr ||
        !natural_keys(key.table()->relation(), table.relation(), of_key, of_table)) {
      elog_log(0, "dbmatches: %s and %s share no key.\n", key.name().c_str(),
               table.name().c_str());
      return false;
    }
  } else {
    Tbl *const other = kpattern == nullptr ? tpattern : kpattern;
    if (!pattern_texts("dbmatches", other, of_key)) return false;
    of_table = of_key;
  }
  Texts filled_key = kpattern == nullptr ? new_texts(of_key) : nullptr;
  Texts filled_table = tpattern == nullptr ? new_texts(of_table) : nullptr;
  if (kpattern == nullptr) kpattern = filled_key.release();
  if (tpattern == nullptr) tpattern = filled_table.release();
  return true;
}

/* Compiles the patterns unless the state has them compiled already. */
bool prepare(MatchState &state, const RecordSource &key, const RecordSource &table,
             Tbl *kpattern, Tbl *tpattern) {
  if (state.plan != nullptr && state.plan->is_for(key, table, kpattern, tpattern)) {
    return true;
  }
  std::vector<std::string> of_key, of_table;
  if (!pattern_texts("dbmatches", kpattern, of_key) ||
      !pattern_texts("dbmatches", tpattern, of_table)) {
    return false;
  }
  std::unique_ptr<const MatchPlan> plan = MatchPlan::compile(
      "dbmatches", key, table, std::move(of_key), std::move(of_table));
  if (plan == nullptr) return false;
  state.groups = nullptr;
  if (state.ids != nullptr && state.ids->field() != plan->id_field()) {
    state.ids = nullptr;
  }
  state.plan = std::move(plan);
  return true;
}

/* Finds the rows of the state's key in the table as it is now; false with a message. */
bool find_rows(MatchState &state, TableSource &table) {
  const std::shared_ptr<const Snapshot> snapshot = table.look("dbmatches");
  if (snapshot == nullptr) return false;
  if (state.table != table.number()) {
    state.ids = nullptr;
    state.groups = nullptr;
    state.table = table.number();
  }
  if (state.plan->id_field().empty()) {
    if (state.groups == nullptr) state.groups = std::make_unique<GroupIndex>();
    state.groups->follow(*state.plan, snapshot);
    if (!snapshot->complete()) return false;
    if (!state.key.null) state.groups->find(*state.plan, state.key, state.rows);
    return true;
  }
  if (state.ids == nullptr) {
    state.ids = std::make_unique<KeyIndex>(state.plan->id_field());
  }
  state.ids->follow(snapshot);
  if (state.ids->snapshot() != snapshot) return false;
  if (state.key.null) return true;
  for (const long row : state.ids->find(state.key.integer)) state.rows.push_back(row);
  return true;
}

Tbl *new_records(const std::vector<long> &rows) {
  std::unique_ptr<Tbl, void (*)(Tbl *)> list(newtbl(static_cast<long>(rows.size())),
                                             [](Tbl *t) { freetbl(t, nullptr); });
  if (list == nullptr) throw std::bad_alloc();
  for (const long row : rows) {
    if (pushtbl(list.get(), reinterpret_cast<void *>(row)) < 0) throw std::bad_alloc();
  }
  return list.release();
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
  MatchState *const state = state_in("dbmatches", hook);
  if (state == nullptr || !prepare(*state, *of_key, *of_table, *kpattern, *tpattern)) {
    return -1;
  }
  const expr::Record *const record = of_key->record("dbmatches", key.record);
  state->rows.clear();
  if (record == nullptr || !state->plan->read_key(*record, state->key) ||
      !find_rows(*state, *of_table)) {
    elog_log(0, "dbmatches: cannot match %s with %s.\n", of_key->name().c_str(),
             of_table->name().c_str());
    return -1;
  }
  if (records != nullptr) *records = new_records(state->rows);
  return static_cast<long>(state->rows.size());
}

/* The name of the integer field that a pattern of one item is; "" with a message. */
std::string id_field_of(const Relation &layout, Tbl *tpattern) {
  std::vector<std::string> texts;
  if (!pattern_texts("match_index", tpattern, texts)) return "";
  std::string_view name = texts.front();
  if (name.starts_with(layout.name + ".")) name.remove_prefix(layout.name.size() + 1);
  const Field *const field = layout.find(name);
  if (texts.size() == 1 && field != nullptr &&
      (field->type == FieldType::kInteger || field->type == FieldType::kYearday)) {
    return field->name;
  }
  elog_log(0, "match_index: '%s' is not the one integer field of %s to match by.\n",
           texts.front().c_str(), layout.name.c_str());
  return "";
}

const KeyIndex *follow_index(const std::shared_ptr<const Snapshot> &snapshot,
                             Tbl *kpattern, Tbl *tpattern, Hook **hook) {
  if (snapshot == nullptr || hook == nullptr) {
    elog_log(0, "match_index: no table or no hook.\n");
    return nullptr;
  }
  MatchState *const state = state_in("match_index", hook);
  if (state == nullptr) return nullptr;
  if (state->ids == nullptr || !same_texts(kpattern, state->id_kpattern) ||
      !same_texts(tpattern, state->id_tpattern)) {
    std::vector<std::string> of_key, of_table;
    const std::string field = id_field_of(snapshot->layout(), tpattern);
    if (field.empty() || !pattern_texts("match_index", tpattern, of_table) ||
        !pattern_texts("match_index", kpattern, of_key)) {
      return nullptr;
    }
    if (of_key.size() != 1) {
      elog_log(0, "match_index: the key's pattern has %zu items.\n", of_key.size());
      return nullptr;
    }
    if (state->ids == nullptr || state->ids->field() != field) {
      state->ids = std::make_unique<KeyIndex>(field);
    }
    state->id_kpattern = std::move(of_key);
    state->id_tpattern = std::move(of_table);
  }
  state->ids->follow(snapshot);
  return state->ids->snapshot() == snapshot ? state->ids.get() : nullptr;
}

}  // namespace

const KeyIndex *match_index(const std::shared_ptr<const Snapshot> &snapshot,
                            Tbl *kpattern, Tbl *tpattern, Hook **hook) {
  return guarded("match_index", static_cast<const KeyIndex *>(nullptr),
                 [&] { return follow_index(snapshot, kpattern, tpattern, hook); });
}

}  // namespace ksutil::db

using namespace ksutil::db;

long dbmatches(Dbptr key, Dbptr table, Tbl **kpattern, Tbl **tpattern, Hook **hook,
               Tbl **records) {
  return guarded("dbmatches", -1L, [&] {
    if (kpattern == nullptr || tpattern == nullptr || hook == nullptr) {
      elog_log(0, "dbmatches: no place for patterns or hook.\n");
      return -1L;
    }
    return match(key, table, kpattern, tpattern, hook, records);
  });
}

#include "platform/db/match/internal/match_state.h"

#include <new>

#include "platform/db/settled_reading.h"
#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

void release_state(void *state) { delete static_cast<MatchState *>(state); }

/* The integer field that a one-item pattern consists of; "" with a message. */
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
  fail("match_index", "'%s' is not the one integer field of %s to match by",
       texts.front().c_str(), layout.name.c_str());
  return "";
}

}  // namespace

MatchState *MatchState::in(const char *who, Hook **hook) {
  if (*hook == nullptr) {
    auto state = std::make_unique<MatchState>();
    *hook = new_hook(state.get(), release_state);
    if (*hook == nullptr) throw std::bad_alloc();
    return state.release();
  }
  if ((*hook)->release == release_state)
    return static_cast<MatchState *>((*hook)->data);
  return fail(who, "the hook belongs to another function");
}

const MatchState *MatchState::of(const Hook *hook) {
  return hook != nullptr && hook->release == release_state
             ? static_cast<const MatchState *>(hook->data)
             : nullptr;
}

std::shared_ptr<const Snapshot> MatchState::table_rows() const {
  if (plan_ == nullptr) return nullptr;
  if (!plan_->id_field().empty()) return ids_ == nullptr ? nullptr : ids_->snapshot();
  return groups_ == nullptr ? nullptr : groups_->snapshot();
}

bool MatchState::prepare(const RecordSource &key, const RecordSource &table,
                         Tbl *kpattern, Tbl *tpattern) {
  if (plan_ != nullptr && plan_->is_for(key, table, kpattern, tpattern)) return true;
  std::vector<std::string> of_key, of_table;
  if (!pattern_texts("dbmatches", kpattern, of_key) ||
      !pattern_texts("dbmatches", tpattern, of_table)) {
    return false;
  }
  std::unique_ptr<const MatchPlan> plan = MatchPlan::compile(
      "dbmatches", key, table, std::move(of_key), std::move(of_table));
  if (plan == nullptr) return false;
  groups_ = nullptr;
  if (ids_ != nullptr && ids_->field() != plan->id_field()) ids_ = nullptr;
  plan_ = std::move(plan);
  return true;
}

bool MatchState::find(const expr::Record &record, TableSource &table) {
  rows_.clear();
  return plan_->read_key(record, key_) && find_rows(table);
}

bool MatchState::find_rows(TableSource &table) {
  if (table_ != table.number()) {
    ids_ = nullptr;
    groups_ = nullptr;
    table_ = table.number();
  }
  const bool by_id = !plan_->id_field().empty();
  if (by_id && ids_ == nullptr) ids_ = std::make_unique<KeyIndex>(plan_->id_field());
  if (!by_id && groups_ == nullptr) groups_ = std::make_unique<GroupIndex>();
  std::shared_ptr<const Snapshot> snapshot;
  const bool followed = read_settled([&] { return snapshot = table.look("dbmatches"); },
                                     [&](const std::shared_ptr<const Snapshot> &rows) {
                                       if (by_id) {
                                         ids_->follow(rows);
                                       } else {
                                         groups_->follow(*plan_, rows);
                                       }
                                     });
  if (!followed || (by_id && ids_->snapshot() != snapshot)) return false;
  if (key_.null) return true;
  if (!by_id) {
    groups_->find(*plan_, key_, rows_);
  } else {
    for (const long row : ids_->find(key_.integer)) rows_.push_back(row);
  }
  return true;
}

KeyIndex *MatchState::ids(const Relation &layout, Tbl *kpattern, Tbl *tpattern) {
  if (ids_ == nullptr || !same_texts(kpattern, id_kpattern_) ||
      !same_texts(tpattern, id_tpattern_)) {
    std::vector<std::string> of_key, of_table;
    const std::string field = id_field_of(layout, tpattern);
    if (field.empty() || !pattern_texts("match_index", tpattern, of_table) ||
        !pattern_texts("match_index", kpattern, of_key)) {
      return nullptr;
    }
    if (of_key.size() != 1) {
      return fail("match_index", "the key's pattern has %zu items", of_key.size());
    }
    if (ids_ == nullptr || ids_->field() != field) {
      ids_ = std::make_unique<KeyIndex>(field);
    }
    id_kpattern_ = std::move(of_key);
    id_tpattern_ = std::move(of_table);
  }
  return ids_.get();
}

}  // namespace ksutil::db

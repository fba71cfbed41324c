#include "platform/db/postgresql/internal/pg_snapshot.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/elog/failure.h"
#include "platform/stock/fingerprint.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

constexpr std::size_t kMostLogged = 2'000'000;

std::shared_ptr<const Relation> shared_layout(const PgPlace &place) {
  return {place.rows, &place.rows->relation()};
}

Stamp stamp_of(const PgState &state, const PgKeys &keys) {
  Stamp stamp = state.stamp();
  stamp.count = keys.count();
  return stamp;
}

}  // namespace

PgSnapshot::PgSnapshot(PgPlace place, const PgState &state,
                       std::shared_ptr<const PgKeys> keys, std::shared_ptr<PgLog> log)
    : BlockSnapshot(shared_layout(place), stamp_of(state, *keys), place.budget,
                    place.file),
      place_(std::move(place)),
      state_(state),
      keys_(std::move(keys)),
      log_(std::move(log)),
      logged_(log_->records.size()) {}

const char *PgSnapshot::broken() const {
  return "is no longer in the table, or holds a value that its field cannot show";
}

bool PgSnapshot::fetch(std::size_t first, std::size_t rows, char *to) const {
  const auto from = static_cast<long>(first), end = static_cast<long>(first + rows);
  const std::string statement = format_text(
      "COPY (SELECT ks_record,%s FROM %s WHERE ks_record >= %lld AND "
      "ks_record <= %lld ORDER BY ks_record) TO STDOUT",
      place_.rows->columns().c_str(), place_.sql_name.c_str(),
      static_cast<long long>(keys_->key_of(from)),
      static_cast<long long>(keys_->key_of(end - 1)));
  bool told = false;
  const PgAnswers answers{
      {}, [&](int, std::string_view line) {
        const std::size_t tab = line.find('\t');
        std::int64_t key = 0;
        if (tab == line.npos || !read_key(line.substr(0, tab), key)) return false;
        const long record = keys_->record_of(key);
        if (record < from || record >= end) return true;  // newer than this snapshot
        std::string cause;
        const bool good = place_.rows->render(
            line.substr(tab + 1),
            to + static_cast<std::size_t>(record - from) * length_, cause);
        if (!good && !told) {
          fail("dbget", "%s: Record %ld: %s", file_.c_str(), record, cause.c_str());
          told = true;
        }
        return true;
      }};
  return place_.reader->ask("dbget", statement, answers,
                            [&] { std::memset(to, ' ', rows * length_); });
}

std::shared_ptr<const RowPrints> PgSnapshot::prints_of(const BlockPtr &block) const {
  auto prints = std::make_shared<RowPrints>(block.size() / length_);
  const Fingerprint fingerprint;
  for (std::size_t row = 0; row < prints->size(); ++row) {
    (*prints)[row] = fingerprint({block.data() + row * length_, length_});
  }
  return prints;
}

bool PgSnapshot::ends_well(const BlockPtr &block) const {
  bool whole = true;
  for (std::size_t end = length_ - 1; end < block.size(); end += length_) {
    whole = whole && block.data()[end] == '\n';
  }
  return whole;
}

/* Gives a block its rows. */
void PgSnapshot::fill(std::size_t index, BlockPtr block) {
  BlockSlot &slot = slots_[index];
  slot = BlockSlot();
  slot.prints = prints_of(block);
  slot.whole = ends_well(block);
  slot.current = true;
  hold(slot, std::move(block), expected_rows(index));
}

bool PgSnapshot::load_row(std::size_t number, char *to) const {
  const ElogScope quiet;
  return fetch(number, 1, to);
}

void PgSnapshot::load(std::size_t index, BlockSlot &slot, bool) const {
  const std::size_t rows = expected_rows(index);
  try {
    BlockPtr fresh = BlockPtr::make(rows * length_);
    if (!fetch(index << shift_, rows, fresh.fill())) return;
    std::shared_ptr<const RowPrints> prints = prints_of(fresh);
    const bool same = slot.prints != nullptr && *slot.prints == *prints;
    /* Rows that were read before may have changed meanwhile; they are not shown then. */
    slot.altered = slot.current && !same;
    if (!slot.current || same) slot.whole = ends_well(fresh);
    if (!slot.current) {
      slot.current = true;
      if (!same) {
        slot.prints = std::move(prints);
        slot.packed = slot.block = BlockPtr();
      }
    }
    if (!slot.block || slot.altered) {
      hold(slot, std::move(fresh), rows);
    } else {
      slot.ready = slot.whole;
    }
  } catch (const std::bad_alloc &) {
    fail("dbget", "%s: No memory for a block of records", file_.c_str());
  }
}

/* Takes the blocks that both snapshots have. */
void PgSnapshot::take_slots(const PgSnapshot &before) {
  const std::size_t common = std::min(blocks(), before.blocks());
  for (std::size_t index = 0; index < common; ++index) {
    slots_[index] = before.slots_[index];
    slots_[index].singles.clear();
    if (slots_[index].altered) slots_[index].drop_block();
  }
}

/* Fills the block that was not full before, and those behind it, as far as the rows of
 * the difference go. */
void PgSnapshot::take_appended(const PgSnapshot &before, const PgDelta &delta) {
  const auto old_count = static_cast<std::size_t>(before.count());
  const std::size_t given = delta.new_rows.size() / length_;
  for (std::size_t index = old_count >> shift_; index < blocks(); ++index) {
    const std::size_t first = index << shift_, rows = expected_rows(index);
    const std::size_t old_rows = first < old_count ? old_count - first : 0;
    const std::size_t from = first + old_rows - old_count;
    const bool held = old_rows > 0 && slots_[index].current;
    const BlockPtr old = held ? slots_[index].block : BlockPtr();
    slots_[index] = BlockSlot();
    if (from + rows - old_rows > given || (old_rows > 0 && !old)) continue;
    BlockPtr block = BlockPtr::make(rows * length_);
    if (old_rows > 0) std::memcpy(block.fill(), old.data(), old_rows * length_);
    std::memcpy(block.fill() + old_rows * length_,
                delta.new_rows.data() + from * length_, (rows - old_rows) * length_);
    fill(index, std::move(block));
  }
}

void PgSnapshot::take_changed(const PgDelta &delta) {
  for (std::size_t i = 0; i < delta.changed_keys.size();) {
    const long first = keys_->record_of(delta.changed_keys[i]);
    if (first < 0) {
      ++i;
      continue;
    }
    const std::size_t index = static_cast<std::size_t>(first) >> shift_;
    BlockSlot &slot = slots_[index];
    BlockPtr block;
    std::shared_ptr<RowPrints> prints;
    if (slot.current) prints = std::make_shared<RowPrints>(*slot.prints);
    if (slot.current && slot.block) {
      block = BlockPtr::make(slot.block.size());
      std::memcpy(block.fill(), slot.block.data(), slot.block.size());
    }
    for (; i < delta.changed_keys.size(); ++i) {
      const long record = keys_->record_of(delta.changed_keys[i]);
      if (record < 0) continue;
      if (static_cast<std::size_t>(record) >> shift_ != index) break;
      log_->records.push_back(record);
      const std::size_t place = static_cast<std::size_t>(record) & mask_;
      const std::string_view row(delta.changed_rows.data() + i * length_, length_);
      if (prints != nullptr) (*prints)[place] = Fingerprint()(row);
      if (block) row.copy(block.fill() + place * length_, length_);
    }
    if (prints == nullptr) continue;
    if (block) {
      fill(index, std::move(block));
    } else {
      /* Whether its rows are whole is seen when they are read again. */
      slot = BlockSlot();
      slot.current = true;
    }
    slot.prints = std::move(prints);
  }
  logged_ = log_->records.size();
}

/* Gathers the rows that the snapshot before has, where it has all of a block. */
void PgSnapshot::take_kept(const PgSnapshot &before) {
  for (std::size_t index = 0; index < blocks(); ++index) {
    const auto first = static_cast<long>(index << shift_);
    const std::size_t rows = expected_rows(index);
    const auto source = [&](std::size_t row) {
      return before.keys_->record_of(keys_->key_of(first + static_cast<long>(row)));
    };
    const auto slot_of = [&](long record) -> const BlockSlot & {
      return before.slots_[static_cast<std::size_t>(record) >> shift_];
    };
    const bool in_place = source(0) == first &&
                          source(rows - 1) == first + static_cast<long>(rows) - 1 &&
                          before.expected_rows(index) == rows;
    if (in_place) {
      slots_[index] = before.slots_[index];
      slots_[index].singles.clear();
      if (slots_[index].altered) slots_[index].drop_block();
      continue;
    }
    BlockPtr block = BlockPtr::make(rows * length_);
    bool known = true;
    for (std::size_t row = 0; known && row < rows; ++row) {
      const long old = source(row);
      known = old >= 0 && slot_of(old).current && slot_of(old).block &&
              !slot_of(old).altered;
      if (!known) break;
      std::memcpy(
          block.fill() + row * length_,
          slot_of(old).block.data() + (static_cast<std::size_t>(old) & mask_) * length_,
          length_);
    }
    if (known) fill(index, std::move(block));
  }
}

std::shared_ptr<const PgSnapshot> PgSnapshot::followed_by(const PgState &state,
                                                          const PgDelta &delta) const {
  const bool shrunk =
      std::any_of(delta.removed.begin(), delta.removed.end(),
                  [&](std::int64_t key) { return keys_->record_of(key) >= 0; });
  auto keys = std::make_shared<PgKeys>(shrunk ? keys_->without(delta.removed) : *keys_);
  const bool new_log = shrunk || log_->records.size() > kMostLogged;
  std::shared_ptr<const PgSnapshot> base;
  if (new_log) {
    auto kept = std::make_shared<PgSnapshot>(place_, state_,
                                             std::make_shared<const PgKeys>(*keys),
                                             std::make_shared<PgLog>());
    kept->take_kept(*this);
    base = kept;
  }
  const PgSnapshot &before = new_log ? *base : *this;
  for (const std::int64_t key : delta.new_keys) {
    if (!keys->append(key)) return nullptr;
  }
  auto next = std::make_shared<PgSnapshot>(place_, state, std::move(keys), before.log_);
  next->take_slots(before);
  if (!delta.new_keys.empty()) next->take_appended(before, delta);
  next->take_changed(delta);
  return next;
}

void PgSnapshot::compare_with(const PgSnapshot &before) {
  take_slots(before);
  for (BlockSlot &slot : slots_) slot.current = slot.ready = slot.whole = false;
}

std::shared_ptr<const PgSnapshot> PgSnapshot::once_more() const {
  auto again = std::make_shared<PgSnapshot>(place_, state_, keys_, log_);
  again->take_slots(*this);
  again->logged_ = logged_;
  return again;
}

Changes PgSnapshot::changes_to(const Snapshot &later) const {
  const auto *const now = dynamic_cast<const PgSnapshot *>(&later);
  if (now == nullptr || now->log_ != log_ || now->logged_ < logged_ ||
      now->count() < count()) {
    return BlockSnapshot::changes_to(later);
  }
  Changes changes;
  changes.old_count = count();
  changes.new_count = later.count();
  std::vector<long> touched(
      log_->records.begin() + static_cast<std::ptrdiff_t>(logged_),
      log_->records.begin() + static_cast<std::ptrdiff_t>(now->logged_));
  std::sort(touched.begin(), touched.end());
  touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
  auto next = touched.begin();
  for (std::size_t index = 0; index < blocks(); ++index) {
    const auto end = static_cast<long>((index << shift_) + expected_rows(index));
    const BlockSlot &then = slots_[index];
    if (next == touched.end() || *next >= end) {
      /* Nothing in the block has changed: the later snapshot may go on with it. */
      BlockSlot &there = now->slots_[index];
      if (!there.current && then.current && !then.altered &&
          expected_rows(index) == now->expected_rows(index)) {
        there = then;
        there.singles.clear();
      }
      continue;
    }
    if (!then.current || !now->examined_block(index).current) {
      changes.known = false;
      changes.changed.clear();
      return changes;
    }
    const std::shared_ptr<const RowPrints> is = now->held_block(index).prints;
    for (; next != touched.end() && *next < end; ++next) {
      const std::size_t place = static_cast<std::size_t>(*next) & mask_;
      if ((*then.prints)[place] != (*is)[place]) changes.changed.push_back(*next);
    }
  }
  return changes;
}

}  // namespace ksutil::db

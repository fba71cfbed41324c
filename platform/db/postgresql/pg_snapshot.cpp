#include "platform/db/postgresql/internal/pg_snapshot.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/elog/failure.h"
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

bool PgSnapshot::fetch(std::size_t index, char *to) const {
  const auto first = static_cast<long>(index << shift_);
  const auto rows = static_cast<long>(expected_rows(index));
  const std::string statement = format_text(
      "COPY (SELECT ks_record,%s FROM %s WHERE ks_record >= %lld AND "
      "ks_record <= %lld ORDER BY ks_record) TO STDOUT",
      place_.rows->columns().c_str(), place_.sql_name.c_str(),
      static_cast<long long>(keys_->key_of(first)),
      static_cast<long long>(keys_->key_of(first + rows - 1)));
  bool told = false;
  const PgAnswers answers{
      {}, [&](int, std::string_view line) {
        const std::size_t tab = line.find('\t');
        std::int64_t key = 0;
        if (tab == line.npos || !read_key(line.substr(0, tab), key)) return false;
        const long record = keys_->record_of(key);
        if (record < first || record >= first + rows) return true;  // not of this one
        std::string cause;
        const bool good = place_.rows->render(
            line.substr(tab + 1),
            to + static_cast<std::size_t>(record - first) * length_, cause);
        if (!good && !told) {
          fail("dbget", "%s: Record %ld: %s", file_.c_str(), record, cause.c_str());
          told = true;
        }
        return true;
      }};
  return place_.reader->ask("dbget", statement, answers, [&] {
    std::memset(to, ' ', static_cast<std::size_t>(rows) * length_);
  });
}

void PgSnapshot::fill(std::size_t index, BlockPtr block) {
  BlockSlot &slot = slots_[index];
  slot.block = std::move(block);
  slot.rows = static_cast<std::uint32_t>(expected_rows(index));
  slot.turn = budget_->next_turn();
  slot.dropped = false;
  settle(index, slot);
  budget_->add(slot.block.size());
}

void PgSnapshot::load(std::size_t index, BlockSlot &slot, bool) const {
  const std::size_t wanted = expected_rows(index) * length_;
  try {
    BlockPtr fresh = BlockPtr::make(wanted);
    if (!fetch(index, fresh.fill())) return;
    const bool same = slot.block && slot.block.size() == wanted &&
                      std::memcmp(slot.block.data(), fresh.data(), wanted) == 0;
    slot.rows = static_cast<std::uint32_t>(expected_rows(index));
    if (!same) {
      slot.block = std::move(fresh);
      slot.turn = budget_->next_turn();
    }
    settle(index, slot);
    if (!same) budget_->add(wanted);
  } catch (const std::bad_alloc &) {
    fail("dbget", "%s: No memory for a block of records", file_.c_str());
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
    slots_[index] = BlockSlot();
    if (from + rows - old_rows > given) continue;
    if (old_rows > 0 && !before.slots_[index].current) {
      slots_[index].dropped = before.slots_[index].dropped;
      continue;
    }
    BlockPtr block = BlockPtr::make(rows * length_);
    if (old_rows > 0) {
      std::memcpy(block.fill(), before.slots_[index].block.data(), old_rows * length_);
    }
    std::memcpy(block.fill() + old_rows * length_,
                delta.new_rows.data() + from * length_, (rows - old_rows) * length_);
    fill(index, std::move(block));
  }
}

void PgSnapshot::take_changed(const PgDelta &delta) {
  std::size_t own = blocks();  // the block that is this snapshot's alone
  for (std::size_t i = 0; i < delta.changed_keys.size(); ++i) {
    const long record = keys_->record_of(delta.changed_keys[i]);
    if (record < 0) continue;
    log_->records.push_back(record);
    const std::size_t index = static_cast<std::size_t>(record) >> shift_;
    if (!slots_[index].current) continue;
    if (index != own) {
      const BlockPtr &old = slots_[index].block;
      BlockPtr copy = BlockPtr::make(old.size());
      std::memcpy(copy.fill(), old.data(), old.size());
      fill(index, std::move(copy));
      own = index;
    }
    std::memcpy(slots_[index].block.fill() +
                    (static_cast<std::size_t>(record) & mask_) * length_,
                delta.changed_rows.data() + i * length_, length_);
    settle(index, slots_[index]);
  }
  logged_ = log_->records.size();
}

/* Gathers the rows that the snapshot before has, where it has all of a block. */
void PgSnapshot::take_kept(const PgSnapshot &before) {
  for (std::size_t index = 0; index < blocks(); ++index) {
    const auto first = static_cast<long>(index << shift_);
    const auto rows = static_cast<long>(expected_rows(index));
    const auto slot_of = [&](long record) -> const BlockSlot & {
      return before.slots_[static_cast<std::size_t>(record) >> shift_];
    };
    std::vector<long> from(static_cast<std::size_t>(rows));
    bool known = true, moved = false;
    for (long row = 0; known && row < rows; ++row) {
      const long old = before.keys_->record_of(keys_->key_of(first + row));
      known = old >= 0 && slot_of(old).current;
      moved = moved || old != first + row;
      from[static_cast<std::size_t>(row)] = old;
    }
    if (!known) continue;
    if (!moved && before.expected_rows(index) == static_cast<std::size_t>(rows)) {
      slots_[index] = before.slots_[index];
      continue;
    }
    BlockPtr block = BlockPtr::make(static_cast<std::size_t>(rows) * length_);
    for (std::size_t row = 0; row < from.size(); ++row) {
      const auto old = static_cast<std::size_t>(from[row]);
      std::memcpy(block.fill() + row * length_,
                  slot_of(from[row]).block.data() + (old & mask_) * length_, length_);
    }
    fill(index, std::move(block));
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
  const std::size_t common = std::min(next->blocks(), before.blocks());
  std::copy_n(before.slots_.begin(), common, next->slots_.begin());
  if (!delta.new_keys.empty()) next->take_appended(before, delta);
  next->take_changed(delta);
  return next;
}

void PgSnapshot::compare_with(const PgSnapshot &before) {
  const std::size_t common = std::min(blocks(), before.blocks());
  for (std::size_t index = 0; index < common; ++index) {
    slots_[index] = before.slots_[index];
    slots_[index].current = slots_[index].ready = slots_[index].dropped = false;
  }
}

std::shared_ptr<const PgSnapshot> PgSnapshot::once_more() const {
  auto again = std::make_shared<PgSnapshot>(place_, state_, keys_, log_);
  std::copy(slots_.begin(), slots_.end(), again->slots_.begin());
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
  const auto unknown = [&] {
    changes.known = false;
    changes.changed.clear();
    return changes;
  };
  auto next = touched.begin();
  for (std::size_t index = 0; index < blocks(); ++index) {
    const auto first = static_cast<long>(index << shift_);
    const auto end = first + static_cast<long>(expected_rows(index));
    if (next == touched.end() || *next >= end) {
      /* Nothing in the block has changed: the later snapshot may go on with it. */
      BlockSlot &there = now->slots_[index];
      const BlockSlot &here = slots_[index];
      if (!there.current && expected_rows(index) == now->expected_rows(index)) {
        there = here;
      }
      continue;
    }
    const BlockSlot &then = slots_[index];
    if (!then.current || then.dropped) return unknown();
    const BlockPtr held = then.block;  // reading the other may drop it
    if (!now->block(index).current) return unknown();
    const BlockSlot &there = now->held_block(index);
    for (; next != touched.end() && *next < end; ++next) {
      const std::size_t at = (static_cast<std::size_t>(*next) & mask_) * length_;
      if (std::memcmp(held.data() + at, there.block.data() + at, length_) != 0) {
        changes.changed.push_back(*next);
      }
    }
  }
  return changes;
}

}  // namespace ksutil::db

#include "platform/db/key_index.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>

#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

constexpr std::size_t kFewestSlots = 64;

}  // namespace

void KeyIndex::follow(const std::shared_ptr<const Snapshot> &snapshot) {
  if (snapshot == snapshot_) return;
  if (snapshot->count() > std::numeric_limits<std::int32_t>::max()) {
    fail("KeyIndex", "table %s has %ld records, too many to index",
         snapshot->layout().name.c_str(), snapshot->count());
    slots_.clear();
    next_.clear();
    used_ = 0;
    snapshot_ = nullptr;
    return;
  }
  /* No snapshot until the index is complete: memory may run short half way. */
  const std::shared_ptr<const Snapshot> before = std::exchange(snapshot_, nullptr);
  if (before == nullptr || !apply(*before, *snapshot)) rebuild(*snapshot);
  if (snapshot->complete()) snapshot_ = snapshot;
}

bool KeyIndex::read(const Snapshot &snapshot, long row, std::int64_t &key) const {
  return column_.read(snapshot.row(row), key) && key != column_.null();
}

void KeyIndex::rebuild(const Snapshot &snapshot) {
  column_ = IntegerColumn(snapshot.layout(), field_);
  slots_.clear();
  used_ = 0;
  next_.assign(static_cast<std::size_t>(snapshot.count()), -1);
  std::int64_t key;
  for (long row = 0; row < snapshot.count(); ++row) {
    if (read(snapshot, row, key)) append(key, static_cast<std::int32_t>(row));
  }
}

/* Moves the rows that changed since the index's snapshot; false when the changes are
 * not known, or when following them takes more steps along the rows of a key than
 * building a new index would. */
bool KeyIndex::apply(const Snapshot &earlier, const Snapshot &snapshot) {
  const Changes changes = changes_between(earlier, snapshot);
  if (!changes.known) return false;
  std::size_t steps = next_.size() + changes.changed.size();
  next_.resize(static_cast<std::size_t>(snapshot.count()), -1);
  for (const long number : changes.changed) {
    const auto row = static_cast<std::int32_t>(number);
    std::int64_t before, after;
    bool was;
    {
      const ElogScope told_already;  // reported when the row was entered
      was = read(earlier, number, before);
    }
    const bool is = read(snapshot, number, after);
    if (was && is && before == after) continue;
    if (was && !remove(before, row, steps)) return false;
    if (is && !insert(after, row, steps)) return false;
  }
  std::int64_t key;
  for (long row = changes.old_count; row < snapshot.count(); ++row) {
    if (read(snapshot, row, key)) append(key, static_cast<std::int32_t>(row));
  }
  return true;
}

/* The slot of a key, made when there is none. */
KeyIndex::Slot &KeyIndex::claim(std::int64_t key) {
  if (3 * (used_ + 1) > 2 * slots_.size()) grow();
  Slot &slot = slots_[slot_of(key)];
  if (slot.first == kFree) {
    slot = {key, kEmpty, kEmpty};
    ++used_;
  }
  return slot;
}

void KeyIndex::append(std::int64_t key, std::int32_t row) {
  Slot &slot = claim(key);
  if (slot.first == kEmpty) {
    slot.first = row;
  } else {
    next_[static_cast<std::size_t>(slot.last)] = row;
  }
  slot.last = row;
}

/* Puts a row between the rows of its key; false when the steps are used up. */
bool KeyIndex::insert(std::int64_t key, std::int32_t row, std::size_t &steps) {
  Slot &slot = claim(key);
  if (slot.first == kEmpty || slot.last < row) {
    append(key, row);
    return true;
  }
  std::int32_t *link = &slot.first;
  while (*link < row) {
    if (steps-- == 0) return false;
    link = &next_[static_cast<std::size_t>(*link)];
  }
  next_[static_cast<std::size_t>(row)] = *link;
  *link = row;
  return true;
}

bool KeyIndex::remove(std::int64_t key, std::int32_t row, std::size_t &steps) {
  if (slots_.empty()) return false;
  Slot &slot = slots_[slot_of(key)];
  std::int32_t before = -1;
  for (std::int32_t at = slot.first; at >= 0;
       at = next_[static_cast<std::size_t>(at)]) {
    if (steps-- == 0) return false;
    if (at != row) {
      before = at;
      continue;
    }
    const std::int32_t after = std::exchange(next_[static_cast<std::size_t>(row)], -1);
    if (before >= 0) {
      next_[static_cast<std::size_t>(before)] = after;
    } else {
      slot.first = after < 0 ? kEmpty : after;
    }
    if (after < 0) slot.last = before;
    return true;
  }
  return false;  // the index had read another old row: build anew
}

/* Makes room for more keys, and drops the keys that have no rows left. */
void KeyIndex::grow() {
  std::vector<Slot> old = std::move(slots_);
  const auto live = static_cast<std::size_t>(std::count_if(
      old.begin(), old.end(), [](const Slot &slot) { return slot.first >= 0; }));
  const std::size_t size = std::max(kFewestSlots, std::bit_ceil(2 * live));
  slots_.assign(size, Slot{0, kFree, kFree});
  shift_ = 64U - static_cast<unsigned>(std::countr_zero(size)) + 2U;
  used_ = 0;
  for (const Slot &slot : old) {
    if (slot.first < 0) continue;
    slots_[slot_of(slot.key)] = slot;
    ++used_;
  }
}

std::int64_t KeyIndex::greatest() const {
  std::int64_t greatest = 0;
  for (const Slot &slot : slots_) {
    if (slot.first >= 0) greatest = std::max(greatest, slot.key);
  }
  return greatest;
}

}  // namespace ksutil::db

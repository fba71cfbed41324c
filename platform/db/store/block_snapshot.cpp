#include "platform/db/store/internal/block_snapshot.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "platform/elog/failure.h"
#include "platform/stock/fingerprint.h"

namespace ksutil::db {
namespace {

/* Large enough for the speed of large reads, small enough to stay in the cache between
 * reading a block and taking its fingerprints. */
constexpr std::size_t kBlockBytes = std::size_t{1} << 19;

/* Single rows of one block, and consecutive ones, that are read before the whole block
 * is: a quarter of the cost of one block. */
constexpr std::size_t kMostSingles = 24, kLongestRun = 12;

}  // namespace

unsigned block_shift(std::size_t record_length) {
  unsigned shift = 0;
  while ((record_length << (shift + 1)) <= kBlockBytes) ++shift;
  return shift;
}

BlockSnapshot::BlockSnapshot(std::shared_ptr<const Relation> layout, const Stamp &stamp,
                             std::shared_ptr<BlockBudget> budget, std::string file)
    : Snapshot(std::move(layout), stamp),
      length_(static_cast<std::size_t>(layout_->width) + 1),
      shift_(block_shift(length_)),
      mask_((std::size_t{1} << shift_) - 1),
      file_(std::move(file)),
      budget_(std::move(budget)),
      slots_((static_cast<std::size_t>(count()) + mask_) >> shift_) {
  budget_->enter(this);
}

BlockSnapshot::~BlockSnapshot() { budget_->leave(this); }

std::size_t BlockSnapshot::expected_rows(std::size_t index) const {
  const std::size_t before = index << shift_;
  return std::min(mask_ + 1, static_cast<std::size_t>(count()) - before);
}

const BlockSlot &BlockSnapshot::loaded(std::size_t index, bool bytes) const {
  BlockSlot &slot = slots_[index];
  if (slot.current && slot.packed) {
    unpack(slot);
  } else {
    load(index, slot, bytes);
  }
  if (!slot.current || (bytes && !slot.block)) failed_ = true;
  return slot;
}

bool BlockSnapshot::load_row(std::size_t, char *) const { return false; }

void BlockSnapshot::settle(std::size_t index, BlockSlot &slot) const {
  bool whole = slot.rows >= expected_rows(index);
  const char *newline = slot.block.data() + length_ - 1;
  for (std::size_t row = 0; whole && row < slot.rows; ++row, newline += length_) {
    whole = *newline == '\n';
  }
  slot.current = true;
  slot.whole = slot.ready = whole;
}

/* Makes the bytes of texts that are in use readable for this snapshot again. */
void BlockSnapshot::unpack(BlockSlot &slot) const {
  try {
    slot.packed.restore_raw();
    hold(slot, std::exchange(slot.packed, BlockPtr()), slot.prints->size());
  } catch (const std::bad_alloc &) {
    fail("dbget", "%s: No memory for a block of records", file_.c_str());
  }
}

void BlockSnapshot::hold(BlockSlot &slot, BlockPtr block, std::size_t rows) const {
  const std::size_t bytes = block.size();
  slot.block = std::move(block);
  slot.fresh = false;
  slot.rows = static_cast<std::uint32_t>(rows);
  slot.turn = budget_->next_turn();
  slot.ready = slot.whole && !slot.altered;
  budget_->add(bytes);
}

/* Registers why a row cannot be shown.  `other`: the file has other bytes than those that
 * were read before, so that a new snapshot is needed. */
std::string_view BlockSnapshot::refused(bool other, long record,
                                        const char *why) const {
  if (other) failed_ = overtaken_ = true;
  fail("dbget", "%s: Record %ld %s", file_.c_str(), record, why);
  return {};
}

std::string_view BlockSnapshot::examined_row(long record) const {
  if (record < 0 || record >= count()) {
    fail("dbget", "%s: No record %ld among %ld", file_.c_str(), record, count());
    return {};
  }
  const auto number = static_cast<std::size_t>(record);
  const std::size_t place = number & mask_;
  if (row_by_row(number)) {
    if (const SingleRow *const single = single_row(number)) {
      return {single->bytes.data(), length_};
    }
  }
  const BlockSlot &slot = block(number >> shift_);
  if (!slot.current || !slot.block) return {};
  if (place >= slot.rows) {
    const bool was_there = slot.prints != nullptr && place < slot.prints->size();
    return refused(was_there, record, "is no longer in the file");
  }
  const std::string_view row(slot.block.data() + place * length_, length_);
  if (slot.altered &&
      (place >= slot.prints->size() || Fingerprint()(row) != (*slot.prints)[place])) {
    return refused(true, record, "has changed since it was read first");
  }
  if (row.back() != '\n') {
    return refused(false, record, broken());
  }
  return row;
}

/* Whether a row is to be read alone: its block is not held, and few rows of the block
 * have been asked for. */
bool BlockSnapshot::row_by_row(std::size_t number) const {
  const BlockSlot &slot = slots_[number >> shift_];
  if (!slot.current || !slot.whole || slot.block || slot.prints == nullptr ||
      slot.singles.size() >= kMostSingles) {
    return false;
  }
  if (number != last_single_) {
    single_run_ = number == last_single_ + 1 ? single_run_ + 1 : 0;
    last_single_ = number;
  }
  return single_run_ < kLongestRun;
}

/* Null when the row cannot be read or has changed; reading its block then tells. */
const SingleRow *BlockSnapshot::single_row(std::size_t number) const {
  BlockSlot &slot = slots_[number >> shift_];
  const std::size_t place = number & mask_;
  const auto known =
      std::find_if(slot.singles.begin(), slot.singles.end(),
                   [place](const SingleRow &s) { return s.place == place; });
  if (known != slot.singles.end()) return &*known;
  try {
    SingleRow single{place, BlockPtr::make_of_texts(length_ + 1)};
    char *const to = single.bytes.fill();
    if (slot.packed) {
      const BlockPtr::PieceReading piece(slot.packed,
                                         static_cast<std::uint32_t>(place * length_),
                                         static_cast<std::uint32_t>(length_));
      piece.text().copy(to, length_);
    } else if (!load_row(number, to) ||
               Fingerprint()({to, length_}) != (*slot.prints)[place]) {
      return nullptr;
    }
    to[length_] = '\0';
    slot.singles.push_back(std::move(single));
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
  slot.turn = budget_->next_turn();
  budget_->add(length_);
  return &slot.singles.back();
}

RowText BlockSnapshot::text(long record) const {
  if (record >= 0 && record < count()) {
    const auto number = static_cast<std::size_t>(record);
    const BlockSlot &slot = slots_[number >> shift_];
    /* Texts that are in use hold these rows already. */
    if (slot.current && slot.whole && slot.packed) {
      return {slot.packed, (number & mask_) * length_, length_};
    }
  }
  const std::string_view found = row(record);
  if (found.empty()) return {};
  const auto number = static_cast<std::size_t>(record);
  const BlockSlot &slot = slots_[number >> shift_];
  if (slot.block) return {slot.block, (number & mask_) * length_, found.size()};
  for (const SingleRow &single : slot.singles) {
    if (single.place == (number & mask_)) return {single.bytes, 0, found.size()};
  }
  return RowText(found);
}

Changes BlockSnapshot::changes_to(const Snapshot &later) const {
  Changes changes;
  changes.old_count = count();
  changes.new_count = later.count();
  const auto *now_rows = dynamic_cast<const BlockSnapshot *>(&later);
  changes.known = now_rows != nullptr && count() <= later.count() &&
                  same_layout(layout(), later.layout());
  if (!changes.known || now_rows == this) return changes;

  now_rows->look_ahead(*this);
  for (std::size_t index = 0; changes.known && index < blocks(); ++index) {
    const BlockSlot &then = held_block(index);
    const BlockSlot &now =
        then.current ? now_rows->examined_block(index) : now_rows->held_block(index);
    changes.known =
        then.current && now.current && add_changes(index, then, now, changes.changed);
  }
  if (!changes.known) changes.changed.clear();
  return changes;
}

/* Adds the rows of a block that differ; false when that cannot be known. */
bool BlockSnapshot::add_changes(std::size_t index, const BlockSlot &then,
                                const BlockSlot &now,
                                std::vector<long> &changed) const {
  const std::size_t first = index << shift_, rows = expected_rows(index);
  const auto add = [&](auto differ) {
    for (std::size_t row = 0; row < rows; ++row) {
      if (differ(row)) changed.push_back(static_cast<long>(first + row));
    }
    return true;
  };
  if (then.prints != nullptr && now.prints != nullptr) {
    if (then.prints->size() < rows || now.prints->size() < rows) return false;
    if (then.prints == now.prints) return true;
    return add([was = then.prints->data(), is = now.prints->data()](std::size_t row) {
      return was[row] != is[row];
    });
  }
  if (then.dropped || !then.block || !now.block || then.rows < rows ||
      now.rows < rows) {
    return false;
  }
  if (then.block == now.block) return true;
  return add([was = then.block.data(), is = now.block.data(),
              length = length_](std::size_t row) {
    return std::memcmp(was + row * length, is + row * length, length) != 0;
  });
}

}  // namespace ksutil::db

#include "platform/db/store/internal/block_snapshot.h"

#include <algorithm>
#include <cstring>

#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

/* Large enough for the speed of large reads, small enough to stay in the cache between
 * reading a block and comparing it with the block before. */
constexpr std::size_t kBlockBytes = std::size_t{1} << 19;

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

void BlockSnapshot::settle(std::size_t index, BlockSlot &slot) const {
  slot.current = true;
  bool whole = slot.rows >= expected_rows(index);
  const char *newline = slot.block.data() + length_ - 1;
  for (std::size_t row = 0; whole && row < slot.rows; ++row, newline += length_) {
    whole = *newline == '\n';
  }
  slot.ready = whole;
}

std::string_view BlockSnapshot::examined_row(long record) const {
  if (record < 0 || record >= count()) {
    fail("dbget", "%s: No record %ld among %ld", file_.c_str(), record, count());
    return {};
  }
  const auto number = static_cast<std::size_t>(record);
  const BlockSlot &slot = block(number >> shift_);
  if (!slot.current) return {};
  const std::size_t place = number & mask_;
  if (place >= slot.rows) {
    fail("dbget", "%s: Record %ld is no longer in the file", file_.c_str(), record);
    return {};
  }
  const std::string_view row(slot.block.data() + place * length_, length_);
  if (row.back() != '\n') {
    fail("dbget", "%s: Record %ld %s", file_.c_str(), record, broken());
    return {};
  }
  return row;
}

RowText BlockSnapshot::text(long record) const {
  const std::string_view found = row(record);
  if (found.empty()) return {};
  const BlockPtr &holder = slots_[static_cast<std::size_t>(record) >> shift_].block;
  return {holder, static_cast<std::size_t>(found.data() - holder.data()), found.size()};
}

Changes BlockSnapshot::changes_to(const Snapshot &later) const {
  Changes changes;
  changes.old_count = count();
  changes.new_count = later.count();
  const auto *now_rows = dynamic_cast<const BlockSnapshot *>(&later);
  changes.known = now_rows != nullptr && count() <= later.count() &&
                  same_layout(layout(), later.layout());
  if (!changes.known || now_rows == this) return changes;

  for (std::size_t index = 0; index < blocks(); ++index) {
    const BlockSlot &now = now_rows->block(index);
    /* Only now, because reading the other block may have dropped this one. */
    const BlockSlot &then = held_block(index);
    const std::size_t first = index * rows_per_block();
    const std::size_t rows =
        std::min(rows_per_block(), static_cast<std::size_t>(count()) - first);
    if (!then.current || then.dropped || !now.current || now.rows < rows ||
        then.rows < rows) {
      changes.known = false;
      changes.changed.clear();
      return changes;
    }
    if (now.block == then.block) continue;
    for (std::size_t row = 0; row < rows; ++row) {
      const std::size_t at = row * length_;
      if (std::memcmp(now.block.data() + at, then.block.data() + at, length_) != 0) {
        changes.changed.push_back(static_cast<long>(first + row));
      }
    }
  }
  return changes;
}

}  // namespace ksutil::db

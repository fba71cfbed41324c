#include "platform/db/store/internal/flat_snapshot.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/elog/failure.h"

namespace ksutil::db {

FlatSnapshot::FlatSnapshot(const FlatFile &file, std::shared_ptr<FlatShared> shared)
    : BlockSnapshot(file.layout, file.stamp, shared->budget, file.path),
      handle_(file.handle),
      missing_end_(file.missing_end),
      shared_(std::move(shared)) {}

void FlatSnapshot::follow(const FlatSnapshot &before, long changed_from,
                          long changed_to) {
  const std::size_t common = std::min(blocks(), before.blocks());
  for (std::size_t index = 0; index < common; ++index) {
    const long first = static_cast<long>(index << shift_);
    const long end = first + static_cast<long>(expected_rows(index));
    BlockSlot &slot = slots_[index];
    slot = before.slots_[index];
    slot.dropped = false;
    if (changed_from >= end || changed_to <= first) continue;
    slot.current = slot.ready = false;
  }
}

ssize_t FlatSnapshot::fetch(std::size_t index, char *to) const {
  const std::size_t rows = expected_rows(index);
  const std::size_t wanted = rows * length_;
  const auto at = static_cast<off_t>((index << shift_) * length_);
  const ssize_t got = read_at(handle_->get(), to, wanted, at);
  if (got < 0) {
    return fail_errno("dbget", "%s: Cannot read records %zu to %zu", file_.c_str(),
                      index << shift_, (index << shift_) + rows - 1);
  }
  const bool last = index + 1 == blocks();
  if (last && static_cast<std::size_t>(got) + missing_end_.size() == wanted) {
    std::memcpy(to + got, missing_end_.data(), missing_end_.size());
    return static_cast<ssize_t>(wanted);
  }
  return got;
}

void FlatSnapshot::load(std::size_t index, BlockSlot &slot) const {
  const std::size_t wanted = expected_rows(index) * length_;
  try {
    BlockPtr fresh;
    ssize_t got;
    if (slot.block && slot.block.size() == wanted) {
      std::vector<char> &scratch = shared_->scratch;
      if (scratch.size() < wanted) scratch.resize(wanted);
      got = fetch(index, scratch.data());
      if (got < 0) return;
      const auto bytes = static_cast<std::size_t>(got);
      if (bytes < wanted ||
          std::memcmp(scratch.data(), slot.block.data(), wanted) != 0) {
        fresh = BlockPtr::make(wanted);
        std::memcpy(fresh.fill(), scratch.data(), bytes);
      }
    } else {
      fresh = BlockPtr::make(wanted);
      got = fetch(index, fresh.fill());
      if (got < 0) return;
    }
    if (fresh) {
      slot.block = std::move(fresh);
      slot.rows = static_cast<std::uint32_t>(static_cast<std::size_t>(got) / length_);
      slot.turn = budget_->next_turn();
      settle(index, slot);
      budget_->add(wanted);
    } else {
      settle(index, slot);
    }
  } catch (const std::bad_alloc &) {
    fail("dbget", "%s: No memory for a block of records", file_.c_str());
  }
}

}  // namespace ksutil::db

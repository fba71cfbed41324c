#include "platform/db/store/internal/block_budget.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "platform/db/store/internal/block_snapshot.h"
#include "platform/stock/shared_work.h"

namespace ksutil::db {

void BlockBudget::enter(const BlockSnapshot *snapshot) {
  const std::lock_guard lock(mutex_);
  snapshots_.push_back(snapshot);
}

void BlockBudget::leave(const BlockSnapshot *snapshot) {
  const std::lock_guard lock(mutex_);
  std::erase(snapshots_, snapshot);
}

void BlockBudget::add(std::size_t bytes) {
  bytes_ += bytes;
  if (bytes_ > drop_at_) drop_oldest();
}

BlockPtr BlockBudget::new_block(std::size_t size) {
  if (!spare_.empty() && spare_.back().size() == size) {
    BlockPtr block = std::move(spare_.back());
    spare_.pop_back();
    return block;
  }
  spare_.clear();
  return BlockPtr::make(size);
}

void BlockBudget::drop_oldest() {
  const std::lock_guard lock(mutex_);
  spare_.clear();
  std::vector<Held> held = all_held();
  spare_.reserve(held.size());
  std::sort(held.begin(), held.end(),
            [](const Held &a, const Held &b) { return a.turn < b.turn; });
  bytes_ = 0;
  for (const Held &each : held) bytes_ += each.bytes;
  std::size_t dropped = 0;
  while (dropped < held.size() && bytes_ > limit_ / 2 &&
         /* The reading that has called shows the rows that were read last. */
         held[dropped].turn != turn_) {
    bytes_ -= held[dropped++].bytes;
  }
  const std::span<const Held> oldest(held.data(), dropped);
  pack_blocks(oldest);
  for (const Held &each : oldest) {
    if (each.singles) {
      each.slots.front()->singles = {};
    } else {
      drop_block(each.slots);
    }
  }
  /* The bytes that stay may be more than the limit: do not look at all of them again for
   * each row that is added. */
  drop_at_ = std::max(limit_, bytes_ + limit_ / 2);
}

/* The bytes that the slots hold; several snapshots hold the same blocks. */
std::vector<BlockBudget::Held> BlockBudget::all_held() const {
  std::vector<Held> held;
  std::vector<std::pair<BlockSlot *, bool>> slots;
  for (const BlockSnapshot *snapshot : snapshots_) {
    for (BlockSlot &slot : snapshot->slots_) {
      if (slot.packed && !slot.packed.shared()) slot.packed = BlockPtr();
      if (slot.block) slots.emplace_back(&slot, snapshot->keep_);
      if (slot.singles.empty()) continue;
      const std::size_t bytes = slot.singles.size() * snapshot->length_;
      held.push_back({slot.turn, bytes, true, snapshot->keep_, {&slot}});
    }
  }
  std::sort(slots.begin(), slots.end(), [](const auto &a, const auto &b) {
    return std::less<>()(a.first->block.data(), b.first->block.data());
  });
  for (const auto &[slot, kept] : slots) {
    if (held.empty() || held.back().singles ||
        !(held.back().slots.front()->block == slot->block)) {
      held.push_back({slot->turn, slot->block.size(), false, kept, {}});
    }
    Held &block = held.back();
    block.slots.push_back(slot);
    block.turn = std::max(block.turn, slot->turn);
    block.kept = block.kept || kept;
  }
  std::erase_if(held, [](const Held &each) { return each.kept; });
  return held;
}

/* Packs the blocks that texts hold, on two threads where that pays. */
void BlockBudget::pack_blocks(std::span<const Held> dropped) {
  std::vector<BlockPtr> blocks;
  std::size_t bytes = 0;
  for (const Held &each : dropped) {
    if (each.singles) continue;
    const BlockPtr &block = each.slots.front()->block;
    if (!block.shared_beyond(static_cast<std::uint32_t>(each.slots.size()))) continue;
    blocks.push_back(block);
    bytes += block.size();
  }
  if (!worth_sharing(bytes)) return;
  share_work(blocks.size(),
             [&blocks](std::size_t place, unsigned) noexcept { blocks[place].pack(); });
}

/* Drops a block, or only its raw bytes while RowTexts hold it.  One whose raw bytes are
 * in use stays in the slots, where it costs no more memory. */
void BlockBudget::drop_block(const std::vector<BlockSlot *> &slots) {
  const BlockPtr block = slots.front()->block;
  bool altered = false, fresh = true;
  for (BlockSlot *slot : slots) {
    altered = altered || slot->altered;
    fresh = fresh && slot->fresh;
    slot->block = BlockPtr();
  }
  const bool in_use = block.shared();
  const bool packed = in_use && block.release_raw();
  if (!in_use && fresh && (spare_.empty() || spare_.back().size() == block.size())) {
    spare_.push_back(block);
  }
  for (BlockSlot *slot : slots) {
    if (in_use && !packed) {
      slot->block = block;
      slot->fresh = false;
      continue;
    }
    slot->drop_block();
    if (packed && !altered && slot->prints != nullptr) slot->packed = block;
  }
}

}  // namespace ksutil::db

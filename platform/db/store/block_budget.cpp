#include "platform/db/store/internal/block_budget.h"

#include <algorithm>

#include "platform/db/store/internal/block_snapshot.h"

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
  if (bytes_ > limit_) drop_oldest();
}

void BlockBudget::drop_oldest() {
  struct Held {
    std::uint64_t turn;
    BlockSlot *slot;
  };
  const std::lock_guard lock(mutex_);
  std::vector<Held> held;
  bytes_ = 0;
  for (const BlockSnapshot *snapshot : snapshots_) {
    for (BlockSlot &slot : snapshot->slots_) {
      if (!slot.block || slot.block.shared()) continue;
      held.push_back({slot.turn, &slot});
      bytes_ += slot.block.size();
    }
  }
  std::sort(held.begin(), held.end(),
            [](const Held &a, const Held &b) { return a.turn < b.turn; });
  for (const Held &oldest : held) {
    if (bytes_ <= limit_ / 2) break;
    bytes_ -= oldest.slot->block.size();
    oldest.slot->drop();
  }
}

}  // namespace ksutil::db

/* FlatSnapshot: reads many blocks at once, on two threads. */
#include <memory>
#include <new>
#include <utility>

#include "platform/db/store/internal/flat_snapshot.h"
#include "platform/stock/shared_work.h"

namespace ksutil::db {

/* A block as it was read; its slot is changed when all blocks have been read. */
struct FlatSnapshot::Examined {
  bool read = false;   // else the block is to be read alone, with its message
  bool whole = false;  // no row is missing or broken
  bool taken = false;  // by the RowTaker
  std::shared_ptr<const RowPrints> prints;  // null: those of the slot
};

/* Reads blocks that are given by their indexes, and gives their rows to a RowTaker. */
class FlatSnapshot::SharedExamination {
 public:
  /* `taker` may be null. */
  SharedExamination(const FlatSnapshot &snapshot,
                    const std::vector<std::size_t> &blocks, RowTaker *taker)
      : snapshot_(snapshot), blocks_(blocks), taker_(taker) {}

  std::vector<Examined> run() {
    std::vector<Examined> examined(blocks_.size());
    const std::size_t size = snapshot_.rows_per_block() * snapshot_.length_;
    for (auto &buffer : buffers_) buffer = std::make_unique_for_overwrite<char[]>(size);
    share_work(blocks_.size(), [&](std::size_t place, unsigned sharer) noexcept {
      try {
        examine(blocks_[place], sharer, examined[place]);
      } catch (const std::bad_alloc &) {
        examined[place] = {};
      }
    });
    return examined;
  }

 private:
  void examine(std::size_t index, unsigned sharer, Examined &examined) {
    const BlockSlot &slot = snapshot_.slots_[index];
    char *const bytes = buffers_[sharer].get();
    RowPrints &prints = prints_[sharer];
    bool whole;
    if (!snapshot_.fetch_block(index, bytes, prints, whole)) return;
    const bool same = slot.prints != nullptr && *slot.prints == prints;
    /* Rows that have changed since they were read first are refused one by one. */
    if (slot.current && !same) return;
    if (!same) examined.prints = std::make_shared<const RowPrints>(prints);
    examined.whole = whole;
    examined.taken =
        whole && taker_ != nullptr &&
        taker_->take(sharer, static_cast<long>(index << snapshot_.shift_),
                     prints.size(), {bytes, prints.size() * snapshot_.length_});
    examined.read = true;
  }

  const FlatSnapshot &snapshot_;
  const std::vector<std::size_t> &blocks_;
  RowTaker *const taker_;
  std::unique_ptr<char[]> buffers_[kWorkSharers];
  RowPrints prints_[kWorkSharers];
};

void FlatSnapshot::settle_examined(std::size_t index, Examined &examined) const {
  BlockSlot &slot = slots_[index];
  if (!examined.read || slot.current) return;
  if (examined.prints != nullptr) {
    slot.prints = std::move(examined.prints);
    slot.packed = slot.block = BlockPtr();
    slot.altered = slot.fresh = false;
  }
  slot.current = true;
  slot.whole = examined.whole;
  slot.ready = slot.whole && slot.block;
}

std::vector<RowRange> FlatSnapshot::scan(RowTaker &taker) const {
  /* Rows that are to be kept are read with their bytes. */
  if (keeps_rows() || !worth_sharing(static_cast<std::size_t>(count()) * length_)) {
    return Snapshot::scan(taker);
  }
  std::vector<std::size_t> all(blocks());
  for (std::size_t index = 0; index < all.size(); ++index) all[index] = index;
  std::vector<Examined> examined = SharedExamination(*this, all, &taker).run();
  std::vector<RowRange> left;
  for (std::size_t index = 0; index < all.size(); ++index) {
    settle_examined(index, examined[index]);
    if (examined[index].read && examined[index].taken) continue;
    const long first = static_cast<long>(index << shift_);
    const long end = first + static_cast<long>(expected_rows(index));
    if (!left.empty() && left.back().end == first) {
      left.back().end = end;
    } else {
      left.push_back({first, end});
    }
  }
  return left;
}

void FlatSnapshot::look_ahead(const BlockSnapshot &before) const {
  if (keeps_rows()) return;
  std::vector<std::size_t> missing;
  for (std::size_t index = 0; index < before.blocks(); ++index) {
    if (!before.held_block(index).current) return;  // the changes cannot be known
    if (!slots_[index].current) missing.push_back(index);
  }
  if (!worth_sharing(missing.size() * rows_per_block() * length_)) return;
  std::vector<Examined> examined = SharedExamination(*this, missing, nullptr).run();
  for (std::size_t place = 0; place < missing.size(); ++place) {
    settle_examined(missing[place], examined[place]);
  }
}

}  // namespace ksutil::db

/* FlatSnapshot: reads many blocks at once, on two threads. */
#include <algorithm>
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

  /* By block; empty, and nothing done, without memory for it. */
  std::vector<Examined> run() {
    std::vector<Examined> examined;
    const std::size_t size = snapshot_.rows_per_block() * snapshot_.length_;
    try {
      for (auto &buffer : buffers_) {
        buffer = std::make_unique_for_overwrite<char[]>(size);
      }
      examined.resize(blocks_.size());
    } catch (const std::bad_alloc &) {
      return {};
    }
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

std::vector<RowRange> FlatSnapshot::scan(RowTaker &taker, RowRange range) const {
  const long rows = range.end - range.first;
  /* Rows that are to be kept are read with their bytes. */
  if (keeps_rows() || !worth_sharing(static_cast<std::size_t>(rows) * length_)) {
    return Snapshot::scan(taker, range);
  }
  const auto block_rows = static_cast<long>(rows_per_block());
  const long end = std::min(range.end, count());
  std::vector<std::size_t> whole;  // blocks in the range
  for (long first = (range.first + block_rows - 1) / block_rows * block_rows;
       first < end && (first + block_rows <= end || end == count());
       first += block_rows) {
    whole.push_back(static_cast<std::size_t>(first / block_rows));
  }
  std::vector<Examined> examined = SharedExamination(*this, whole, &taker).run();
  if (examined.empty()) return Snapshot::scan(taker, range);
  std::vector<RowRange> left;
  const auto leave = [&left](RowRange rows_left) {
    if (rows_left.first < rows_left.end) left.push_back(rows_left);
  };
  long first = range.first;  // of the rows that were not looked at
  for (std::size_t place = 0; place < whole.size(); ++place) {
    settle_examined(whole[place], examined[place]);
    if (!examined[place].read || !examined[place].taken) continue;
    const long begin = static_cast<long>(whole[place] << shift_);
    leave({first, begin});
    first = begin + static_cast<long>(expected_rows(whole[place]));
  }
  leave({first, range.end});
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
  for (std::size_t place = 0; place < examined.size(); ++place) {
    settle_examined(missing[place], examined[place]);
  }
}

}  // namespace ksutil::db

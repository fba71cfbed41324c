/* BlockSnapshot: a snapshot whose rows lie in blocks of 2^n records. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_BLOCK_SNAPSHOT_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_BLOCK_SNAPSHOT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/snapshot.h"
#include "platform/db/store/internal/block_budget.h"

namespace ksutil::db {

/* The place of one block in a snapshot. */
struct BlockSlot {
  BlockPtr block;
  std::uint64_t turn = 0;  // when it was read; see BlockBudget
  std::uint32_t rows = 0;  // whole records in the block
  bool current = false;    // it holds the snapshot's rows; else those of the one before
  bool ready = false;      // current, complete, and every newline is in its place
  bool dropped = false;    // it was read and dropped; its rows may read otherwise now

  void drop() {
    block = BlockPtr();
    dropped = dropped || current;
    current = ready = false;
  }
};

class BlockSnapshot : public Snapshot {
 public:
  ~BlockSnapshot() override;
  BlockSnapshot(const BlockSnapshot &) = delete;
  BlockSnapshot &operator=(const BlockSnapshot &) = delete;

  std::string_view row(long record) const final {
    if (static_cast<unsigned long>(record) < static_cast<unsigned long>(count())) {
      const auto number = static_cast<std::size_t>(record);
      const BlockSlot &slot = slots_[number >> shift_];
      if (slot.ready) return {slot.block.data() + (number & mask_) * length_, length_};
    }
    return examined_row(record);
  }
  RowText text(long record) const final;
  bool complete() const final { return !failed_; }
  Changes changes_to(const Snapshot &later) const override;

  std::size_t blocks() const { return slots_.size(); }
  std::size_t rows_per_block() const { return mask_ + 1; }
  std::size_t record_length() const { return length_; }

  /* The block with its rows, read now if it has not been read; its `current` shows
   * whether that was possible. */
  const BlockSlot &block(std::size_t index) const {
    if (!slots_[index].current) {
      load(index, slots_[index]);
      failed_ = failed_ || !slots_[index].current;
    }
    return slots_[index];
  }
  /* The block as it is, without reading. */
  const BlockSlot &held_block(std::size_t index) const { return slots_[index]; }

 protected:
  BlockSnapshot(std::shared_ptr<const Relation> layout, const Stamp &stamp,
                std::shared_ptr<BlockBudget> budget, std::string file);

  /* Fills a slot that is not current; leaves it so, with a message, on failure. */
  virtual void load(std::size_t index, BlockSlot &slot) const = 0;

  /* What is wrong with a record whose newline is not in its place. */
  virtual const char *broken() const { return "does not end where it should"; }

  /* The number of records of this snapshot in a block, as its count allows. */
  std::size_t expected_rows(std::size_t index) const;
  /* Marks a filled slot as current after checking its newlines. */
  void settle(std::size_t index, BlockSlot &slot) const;

  std::size_t length_;  // of a record with its newline
  unsigned shift_;      // a block holds 2^shift_ records
  std::size_t mask_;
  std::string file_;  // for messages
  std::shared_ptr<BlockBudget> budget_;
  mutable std::vector<BlockSlot> slots_;

 private:
  friend class BlockBudget;
  mutable bool failed_ = false;  // a block could not be read
  std::string_view examined_row(long record) const;
};

/* The number of records of a block, as a power of two. */
unsigned block_shift(std::size_t record_length);

}  // namespace ksutil::db
#endif

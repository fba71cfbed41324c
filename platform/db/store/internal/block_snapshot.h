/* BlockSnapshot: a snapshot whose rows lie in blocks of 2^n records.
 *
 * A store gives its blocks fingerprints or none.  With them, the fingerprint of each row
 * stays once its block has been read; the bytes are a cache, which the budget may empty
 * at any time.  Rows that are read again are compared with their fingerprints, so that a
 * snapshot never shows bytes that were written later.  Without them, a block that was
 * dropped counts as not read, and changes of the table are not known any more. */
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

/* The fingerprints of the rows of one block, in their order. */
using RowPrints = std::vector<std::uint64_t>;

/* A row that was read without the rest of its block. */
struct SingleRow {
  std::size_t place;  // in the block
  BlockPtr bytes;
};

/* The place of one block in a snapshot. */
struct BlockSlot {
  /* The rows as read, or null.  They are those of `prints`, unless `altered`. */
  BlockPtr block;
  /* The same rows as RowTexts hold them, without raw bytes; or null. */
  BlockPtr packed;
  std::vector<SingleRow> singles;           // each compared with its fingerprint
  std::shared_ptr<const RowPrints> prints;  // null before the first reading, or always
  std::uint64_t turn = 0;                   // when bytes were read; see BlockBudget
  std::uint32_t rows = 0;                   // whole records in `block`
  bool current = false;  // of the snapshot itself; else of the one before
  bool whole = false;    // current: no row is missing or broken
  bool ready = false;    // current, whole, and `block` holds the rows
  bool altered = false;  // `block` was read again, and some rows were other ones then
  bool fresh = false;    // `block` was read from the file and never given to be packed
  bool dropped = false;  // was dropped without fingerprints: may read otherwise now

  void drop_block() {
    block = BlockPtr();
    ready = altered = fresh = false;
    if (prints != nullptr) return;
    dropped = dropped || current;
    current = whole = false;
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
  bool overtaken() const final { return overtaken_; }
  void keep_rows() const final { keep_ = true; }
  Changes changes_to(const Snapshot &later) const override;

  std::size_t blocks() const { return slots_.size(); }
  std::size_t rows_per_block() const { return mask_ + 1; }
  std::size_t record_length() const { return length_; }

  /* The block, with its fingerprints or with its bytes too, read now where they are
   * missing; `current`, and a `block` that is not null, show whether that was
   * possible. */
  const BlockSlot &examined_block(std::size_t index) const {
    return slots_[index].current ? slots_[index] : loaded(index, false);
  }
  const BlockSlot &block(std::size_t index) const {
    const BlockSlot &slot = slots_[index];
    return slot.current && slot.block ? slot : loaded(index, true);
  }
  /* The block as it is, without reading. */
  const BlockSlot &held_block(std::size_t index) const { return slots_[index]; }

 protected:
  BlockSnapshot(std::shared_ptr<const Relation> layout, const Stamp &stamp,
                std::shared_ptr<BlockBudget> budget, std::string file);

  /* Makes a slot current, and reads its bytes if `bytes` is set; leaves it as it is, with
   * a message, on failure. */
  virtual void load(std::size_t index, BlockSlot &slot, bool bytes) const = 0;
  /* Makes blocks current that are so in `before`, where that can be done faster than
   * one by one, without their bytes; the others stay as they are. */
  virtual void look_ahead(const BlockSnapshot &before) const {
    static_cast<void>(before);
  }
  /* Reads one row of a block whose bytes are not held, length_ bytes; false, without a
   * message, when that is not possible. */
  virtual bool load_row(std::size_t number, char *to) const;

  /* What is wrong with a record whose newline is not in its place. */
  virtual const char *broken() const { return "does not end where it should"; }

  bool keeps_rows() const { return keep_; }
  /* The number of records of this snapshot in a block, as its count allows. */
  std::size_t expected_rows(std::size_t index) const;
  /* Makes a slot current whose bytes were set, without fingerprints. */
  void settle(std::size_t index, BlockSlot &slot) const;
  /* Gives a current slot bytes, those of `prints` unless it is `altered`. */
  void hold(BlockSlot &slot, BlockPtr block, std::size_t rows) const;

  std::size_t length_;  // of a record with its newline
  unsigned shift_;      // a block holds 2^shift_ records
  std::size_t mask_;
  std::string file_;  // for messages
  std::shared_ptr<BlockBudget> budget_;
  mutable std::vector<BlockSlot> slots_;

 private:
  friend class BlockBudget;
  const BlockSlot &loaded(std::size_t index, bool bytes) const;
  void unpack(BlockSlot &slot) const;
  std::string_view examined_row(long record) const;
  const SingleRow *single_row(std::size_t number) const;
  bool row_by_row(std::size_t number) const;
  std::string_view refused(bool other, long record, const char *why) const;
  bool add_changes(std::size_t index, const BlockSlot &then, const BlockSlot &now,
                   std::vector<long> &changed) const;

  mutable bool failed_ = false;     // rows could not be read
  mutable bool overtaken_ = false;  // because they are other ones now
  mutable bool keep_ = false;       // the budget drops none of the bytes
  mutable std::size_t last_single_ = 0, single_run_ = 0;  // see row_by_row
};

/* The number of records of a block, as a power of two. */
unsigned block_shift(std::size_t record_length);

}  // namespace ksutil::db
#endif

/* BlockBudget: bounds the blocks that the snapshots of one database keep for themselves. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_BLOCK_BUDGET_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_BLOCK_BUDGET_H

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

#include "platform/db/row_text.h"

namespace ksutil::db {

class BlockSnapshot;
struct BlockSlot;

/* Threads: snapshots may end on any thread; blocks are read and dropped on the thread
 * that uses the database. */
class BlockBudget {
 public:
  explicit BlockBudget(std::size_t limit) : limit_(limit), drop_at_(limit) {}

  void enter(const BlockSnapshot *snapshot);
  void leave(const BlockSnapshot *snapshot);

  /* Counts bytes that were read.  Beyond the limit, drops those that were read longest
   * ago until half the limit is left; RowTexts keep their blocks, packed where that is
   * possible.  The bytes of the last turn stay. */
  void add(std::size_t bytes);

  /* A block of `size` bytes to be filled: one that was dropped where there is one, since
   * the system takes as long to give new memory as to read a file into it.  Throws
   * std::bad_alloc. */
  BlockPtr new_block(std::size_t size);

  /* Increases from block to block. */
  std::uint64_t next_turn() { return ++turn_; }

 private:
  /* One block and the slots that hold it, or the single rows of one slot. */
  struct Held {
    std::uint64_t turn;
    std::size_t bytes;
    bool singles;
    bool kept;  // by BlockSnapshot::keep_rows
    std::vector<BlockSlot *> slots;
  };
  std::vector<Held> all_held() const;
  static void pack_blocks(std::span<const Held> dropped);
  void drop_block(const std::vector<BlockSlot *> &slots);
  void drop_oldest();

  const std::size_t limit_;
  std::size_t drop_at_;  // bytes_ beyond which something is dropped
  std::mutex mutex_;     // guards the snapshots
  std::vector<const BlockSnapshot *> snapshots_;  // the living ones
  std::size_t bytes_ = 0;  // upper bound of the bytes held; exact after each drop
  std::uint64_t turn_ = 0;
  std::vector<BlockPtr> spare_;  // dropped blocks of one size
};

}  // namespace ksutil::db
#endif

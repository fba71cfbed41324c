/* BlockBudget: bounds the blocks that the snapshots of one database keep for themselves. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_BLOCK_BUDGET_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_BLOCK_BUDGET_H

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace ksutil::db {

class BlockSnapshot;

/* Threads: snapshots may end on any thread; blocks are read and dropped on the thread
 * that uses the database. */
class BlockBudget {
 public:
  explicit BlockBudget(std::size_t limit) : limit_(limit) {}

  void enter(const BlockSnapshot *snapshot);
  void leave(const BlockSnapshot *snapshot);

  /* Counts a block that was read.  Beyond the limit, drops the blocks that were read
   * longest ago and that have no other owner, until half the limit is left. */
  void add(std::size_t bytes);

  /* Increases from block to block. */
  std::uint64_t next_turn() { return ++turn_; }

 private:
  void drop_oldest();

  const std::size_t limit_;
  std::mutex mutex_;                              // guards the snapshots
  std::vector<const BlockSnapshot *> snapshots_;  // the living ones
  std::size_t bytes_ = 0;  // upper bound of the bytes held; exact after each drop
  std::uint64_t turn_ = 0;
};

}  // namespace ksutil::db
#endif

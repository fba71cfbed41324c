/* The items of a pmtfifo, in chunks, so that a burst costs few allocations. */
#ifndef KSUTIL_PIPELINE_INTERNAL_PMTFIFO_ITEMS_H
#define KSUTIL_PIPELINE_INTERNAL_PMTFIFO_ITEMS_H

#include <cstddef>

namespace ksutil {

/* Pointers, oldest first.  No constructor: zero bytes are an empty list, so that it can
 * live in a record that is set up again and again; clear() ends its life.  Under the lock
 * of its owner. */
class FifoItems {
 public:
  bool empty() const { return oldest_ == free_; }

  /* Adds behind, or before, all others; false when memory is short. */
  bool append(void *item) {
    if (free_ == free_end_ && !add_newest_chunk()) return false;
    *free_++ = item;
    return true;
  }
  bool prepend(void *item);

  /* Takes the oldest of a list that is not empty. */
  void *take() {
    void *const item = *oldest_++;
    if (oldest_ == free_) {
      rewind();
    } else if (oldest_ == oldest_end_) {
      drop_oldest_chunk();
    }
    return item;
  }

  /* Returns the memory of an empty list. */
  void release();

  /* Chunks held, those kept for later use included. */
  int chunks() const { return chunks_; }

 private:
  struct Chunk {
    Chunk *newer;
    Chunk *older;
  };

  static constexpr std::size_t kSlots = 510;  // with the header, a page
  static void **slots(Chunk *chunk) { return reinterpret_cast<void **>(chunk + 1); }

  Chunk *obtain();
  void give_back(Chunk *chunk);
  bool add_newest_chunk();
  void drop_oldest_chunk();
  void rewind();

  Chunk *first_;       // holds the oldest item
  Chunk *last_;        // has the free slots
  void **oldest_;      // the oldest item, in first_
  void **oldest_end_;  // the end of first_
  void **free_;        // the next free slot, in last_
  void **free_end_;    // the end of last_
  Chunk *spare_;       // one empty chunk, or null
  int chunks_;
};

}  // namespace ksutil
#endif

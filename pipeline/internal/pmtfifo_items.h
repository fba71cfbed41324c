/* pmtfifo_items: holds the items of a pmtfifo in chunks, so that a burst needs few
 * allocations. */
#ifndef KSUTIL_PIPELINE_INTERNAL_PMTFIFO_ITEMS_H
#define KSUTIL_PIPELINE_INTERNAL_PMTFIFO_ITEMS_H

#include <cstddef>

namespace ksutil {

/* A list of pointers, oldest first.  Zero bytes are an empty list, and there is no
 * constructor, so that the list can be part of a record that is used again; release()
 * frees its memory.  Its owner's lock guards it. */
class FifoItems {
 public:
  bool empty() const { return oldest_ == free_; }

  /* Add an item behind all others, or before them; false when memory is short. */
  bool append(void *item) {
    if (free_ == free_end_ && !add_newest_chunk()) return false;
    *free_++ = item;
    return true;
  }
  bool prepend(void *item);

  /* Takes the oldest item; the list must not be empty. */
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

  /* The number of chunks held, including those kept for later use. */
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

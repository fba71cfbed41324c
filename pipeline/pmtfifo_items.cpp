#include "pipeline/internal/pmtfifo_items.h"

#include <cstdlib>
#include <utility>

#include "platform/stock/memory.h"

namespace ksutil {

FifoItems::Chunk *FifoItems::obtain() {
  if (spare_ != nullptr) return std::exchange(spare_, nullptr);
  auto *const chunk =
      static_cast<Chunk *>(ks_malloc(sizeof(Chunk) + kSlots * sizeof(void *)));
  if (chunk != nullptr) ++chunks_;
  return chunk;
}

void FifoItems::give_back(Chunk *chunk) {
  if (spare_ == nullptr) {
    spare_ = chunk;
    return;
  }
  std::free(chunk);
  --chunks_;
}

bool FifoItems::add_newest_chunk() {
  Chunk *const chunk = obtain();
  if (chunk == nullptr) return false;
  chunk->newer = nullptr;
  chunk->older = last_;
  free_ = slots(chunk);
  free_end_ = free_ + kSlots;
  if (last_ == nullptr) {
    first_ = chunk;
    oldest_ = free_;
    oldest_end_ = free_end_;
  } else {
    last_->newer = chunk;
  }
  last_ = chunk;
  return true;
}

bool FifoItems::prepend(void *item) {
  if (empty()) return append(item);
  if (oldest_ == slots(first_)) {
    Chunk *const chunk = obtain();
    if (chunk == nullptr) return false;
    chunk->newer = first_;
    chunk->older = nullptr;
    first_->older = chunk;
    first_ = chunk;
    oldest_ = oldest_end_ = slots(chunk) + kSlots;
  }
  *--oldest_ = item;
  return true;
}

void FifoItems::drop_oldest_chunk() {
  Chunk *const chunk = first_;
  first_ = chunk->newer;
  first_->older = nullptr;
  oldest_ = slots(first_);
  oldest_end_ = oldest_ + kSlots;
  give_back(chunk);
}

/* The list has become empty, with one chunk left: its slots are all free again. */
void FifoItems::rewind() { oldest_ = free_ = slots(last_); }

void FifoItems::release() {
  std::free(last_);
  std::free(spare_);
  *this = FifoItems{};
}

}  // namespace ksutil

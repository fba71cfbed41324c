#include "platform/stock/tbl.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "platform/stock/memory.h"
#include "platform/stock/shared/tbl_storage.h"

using ksutil::MallocPtr;
using ksutil::TblStorage;

struct Tbl : ksutil::SeamAllocated {
  std::unique_ptr<TblStorage> storage;
  bool pointers = false;    // the elements are the items' addresses
  MallocPtr<void> removed;  // copy of the inline element removed last
};

namespace {

/* Keeps the elements in one block.  The elements before head_ have been shifted out;
 * their room is reclaimed when it exceeds the room of those that are left, so that a
 * list used as a queue takes constant time for each item. */
class MemoryStorage final : public TblStorage {
 public:
  explicit MemoryStorage(std::size_t element_size) : size_(element_size) {}

  std::size_t element_size() const override { return size_; }
  long count() const override { return static_cast<long>(count_); }
  void *at(long i) override { return place(static_cast<std::size_t>(i)); }

  bool reserve(std::size_t n) {
    if (head_ + n <= capacity_) return true;
    if (n <= capacity_ && head_ >= count_) {
      compact();
      return true;
    }
    constexpr std::size_t kMaxBytes = std::numeric_limits<std::ptrdiff_t>::max();
    if (n > kMaxBytes / size_) return false;
    std::size_t room = std::max<std::size_t>(n, kDefaultRoom);
    if (capacity_ != 0) room = std::max(room, count_ + count_ / 2);
    room = std::min(room, kMaxBytes / size_);
    MallocPtr<std::uint8_t> block(static_cast<std::uint8_t *>(ks_malloc(room * size_)));
    if (!block) return false;
    if (count_ > 0) std::memcpy(block.get(), place(0), count_ * size_);
    block_ = std::move(block);
    capacity_ = room;
    head_ = 0;
    return true;
  }

  bool store(long i, const void *element) override {
    const auto index = static_cast<std::size_t>(i);
    if (index >= count_) {
      /* The element may lie in the block that growing replaces. */
      const std::ptrdiff_t inside = offset_of(element);
      if (!reserve(index + 1)) return false;
      if (inside >= 0) element = place(0) + inside;
      std::memset(place(count_), 0, (index - count_) * size_);
      count_ = index + 1;
    }
    std::memmove(place(index), element, size_);
    return true;
  }

  bool remove(long i) override {
    const auto index = static_cast<std::size_t>(i);
    --count_;
    if (index == 0) {
      ++head_;
    } else {
      std::memmove(place(index), place(index + 1), (count_ - index) * size_);
    }
    if (count_ == 0) head_ = 0;
    return true;
  }

 private:
  static constexpr std::size_t kDefaultRoom = 8;

  std::uint8_t *place(std::size_t i) { return block_.get() + (head_ + i) * size_; }

  void compact() {
    std::memmove(block_.get(), place(0), count_ * size_);
    head_ = 0;
  }

  /* The distance in bytes from the first element to `element`; -1 outside the block. */
  std::ptrdiff_t offset_of(const void *element) {
    if (!block_ || count_ == 0) return -1;
    const auto address = reinterpret_cast<std::uintptr_t>(element);
    const auto first = reinterpret_cast<std::uintptr_t>(place(0));
    if (address < first || address >= first + count_ * size_) return -1;
    return static_cast<std::ptrdiff_t>(address - first);
  }

  std::size_t size_;
  MallocPtr<std::uint8_t> block_;
  std::size_t capacity_ = 0, head_ = 0, count_ = 0;
};

Tbl *make_tbl(std::unique_ptr<TblStorage> storage, bool pointers) {
  if (!storage) return nullptr;
  Tbl *tbl = new (std::nothrow) Tbl;
  if (tbl == nullptr) return nullptr;
  tbl->storage = std::move(storage);
  tbl->pointers = pointers;
  return tbl;
}

Tbl *make_memory_tbl(long hint, std::size_t element_size, bool pointers) {
  std::unique_ptr<MemoryStorage> storage(new (std::nothrow)
                                             MemoryStorage(element_size));
  if (!storage) return nullptr;
  if (hint > 0 && !storage->reserve(static_cast<std::size_t>(hint))) return nullptr;
  return make_tbl(std::move(storage), pointers);
}

void *pointer_at(void *place) {
  void *item = nullptr;
  std::memcpy(&item, place, sizeof item);
  return item;
}

}  // namespace

Tbl *ksutil::tbl_with_storage(std::unique_ptr<TblStorage> storage) {
  return make_tbl(std::move(storage), false);
}

TblStorage *ksutil::tbl_storage(Tbl *tbl) {
  return tbl == nullptr ? nullptr : tbl->storage.get();
}

Tbl *newtbl(long hint) { return make_memory_tbl(hint, sizeof(void *), true); }

Tbl *inittbl(long hint, int element_size) {
  if (element_size <= 0) return nullptr;
  return make_memory_tbl(hint, static_cast<std::size_t>(element_size), false);
}

void *gettbl(Tbl *tbl, long i) {
  if (tbl == nullptr || i < 0 || i >= tbl->storage->count()) return nullptr;
  void *place = tbl->storage->at(i);
  return tbl->pointers && place != nullptr ? pointer_at(place) : place;
}

long settbl(Tbl *tbl, long i, void *item) {
  if (tbl == nullptr || i < -1) return -1;
  if (i == -1) i = tbl->storage->count();
  if (i == std::numeric_limits<long>::max()) return -1;
  if (!tbl->pointers && item == nullptr) return -1;
  const void *element = tbl->pointers ? static_cast<const void *>(&item) : item;
  return tbl->storage->store(i, element) ? i : -1;
}

long pushtbl(Tbl *tbl, void *item) { return settbl(tbl, -1, item); }

void *shifttbl(Tbl *tbl) { return deltbl(tbl, 0); }

void *poptbl(Tbl *tbl) { return deltbl(tbl, counttbl(tbl) - 1); }

void *deltbl(Tbl *tbl, long i) {
  if (tbl == nullptr || i < 0 || i >= tbl->storage->count()) return nullptr;
  void *place = tbl->storage->at(i);
  if (place == nullptr) return nullptr;
  if (tbl->pointers) {
    void *item = pointer_at(place);
    return tbl->storage->remove(i) ? item : nullptr;
  }
  const std::size_t size = tbl->storage->element_size();
  if (!tbl->removed) tbl->removed.reset(ks_malloc(size));
  if (!tbl->removed) return nullptr;
  std::memcpy(tbl->removed.get(), place, size);
  return tbl->storage->remove(i) ? tbl->removed.get() : nullptr;
}

long counttbl(Tbl *tbl) { return tbl == nullptr ? 0 : tbl->storage->count(); }

Tbl *duptbl(Tbl *tbl) {
  if (tbl == nullptr) return nullptr;
  TblStorage &from = *tbl->storage;
  const long count = from.count();
  Tbl *copy = make_memory_tbl(count, from.element_size(), tbl->pointers);
  for (long i = 0; copy != nullptr && i < count; ++i) {
    const void *element = from.at(i);
    if (element == nullptr || !copy->storage->store(i, element)) {
      freetbl(copy, nullptr);
      copy = nullptr;
    }
  }
  return copy;
}

void freetbl(Tbl *tbl, void (*release)(void *)) {
  if (tbl == nullptr) return;
  for (long i = 0; release != nullptr && i < counttbl(tbl); ++i) {
    void *item = gettbl(tbl, i);
    if (item != nullptr) release(item);
  }
  delete tbl;
}

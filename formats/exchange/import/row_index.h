/* row_index: finds rows of a table by an integer field, and by texts.
 *
 * Indexes are filled once in any order, and then read.  Where keys and rows ascend together,
 * as ids do that were given out with the rows, an entry takes 4 bytes, else 16. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_ROW_INDEX_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_ROW_INDEX_H

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/snapshot.h"

namespace ksutil::exchange {

class RowIndex {
 public:
  struct Item {
    std::uint64_t key;
    std::int64_t row;
  };

  /* The entries of one key, in the order of their rows; as long as the index does not
   * change. */
  class Rows {
   public:
    class Iterator {
     public:
      Iterator(const RowIndex *index, std::size_t at) : index_(index), at_(at) {}
      Item operator*() const { return index_->item(at_); }
      Iterator &operator++() { return at_++, *this; }
      bool operator==(const Iterator &) const = default;

     private:
      const RowIndex *index_;
      std::size_t at_;
    };
    Rows() = default;
    Rows(const RowIndex *index, std::size_t first, std::size_t end)
        : index_(index), first_(first), end_(end) {}
    Iterator begin() const { return {index_, first_}; }
    Iterator end() const { return {index_, end_}; }
    std::size_t size() const { return end_ - first_; }
    bool empty() const { return end_ == first_; }
    Item operator[](std::size_t i) const { return index_->item(first_ + i); }
    Item front() const { return (*this)[0]; }

   private:
    const RowIndex *index_ = nullptr;
    std::size_t first_ = 0, end_ = 0;
  };

  void add(std::uint64_t key, std::int64_t row) {
    if (is_wide_ || !add_near(key, row)) {
      widen();
      items_.push_back({key, row});
    }
  }
  /* To be called when all are added. */
  void settle() {
    const auto before = [](const Item &a, const Item &b) {
      return a.key != b.key ? a.key < b.key : a.row < b.row;
    };
    if (!std::is_sorted(items_.begin(), items_.end(), before)) {
      std::sort(items_.begin(), items_.end(), before);
    }
    items_.shrink_to_fit();
    offsets_.shrink_to_fit();
  }
  Rows find(std::uint64_t key) const {
    const std::size_t first = first_not_below(key);
    std::size_t end = first;
    while (end < size() && item(end).key == key) end++;
    return {this, first, end};
  }
  bool empty() const { return size() == 0; }
  std::int64_t first(std::int64_t key) const {
    const auto wanted = static_cast<std::uint64_t>(key);
    const std::size_t at = first_not_below(wanted);
    return at < size() && item(at).key == wanted ? item(at).row : -1;
  }

 private:
  /* Entries that ascend are kept as offsets from the first one of their block. */
  static constexpr std::size_t kBlock = 64;
  struct Offset {
    std::uint16_t key, row;
  };

  std::size_t size() const { return is_wide_ ? items_.size() : offsets_.size(); }
  Item item(std::size_t at) const {
    if (is_wide_) return items_[at];
    const Item &base = items_[at / kBlock];
    return {base.key + offsets_[at].key, base.row + offsets_[at].row};
  }
  std::size_t first_not_below(std::uint64_t key) const {
    std::size_t low = 0, high = size();
    while (low < high) {
      const std::size_t middle = low + (high - low) / 2;
      if (item(middle).key < key) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }
  /* False when the entry does not follow the last one closely. */
  bool add_near(std::uint64_t key, std::int64_t row) {
    if (offsets_.size() % kBlock == 0) {
      if (!offsets_.empty()) {
        const Item last = item(offsets_.size() - 1);
        if (key < last.key || row <= last.row) return false;
      }
      items_.push_back({key, row});
      offsets_.push_back({0, 0});
      return true;
    }
    constexpr auto kMost = std::numeric_limits<std::uint16_t>::max();
    const Item &base = items_.back();
    const Item last = item(offsets_.size() - 1);
    if (key < last.key || row <= last.row || key - base.key > kMost ||
        row - base.row > kMost) {
      return false;
    }
    offsets_.push_back({static_cast<std::uint16_t>(key - base.key),
                        static_cast<std::uint16_t>(row - base.row)});
    return true;
  }
  void widen() {
    if (is_wide_) return;
    std::vector<Item> all;
    all.reserve(offsets_.size() + 1);
    for (std::size_t at = 0; at < offsets_.size(); at++) all.push_back(item(at));
    items_ = std::move(all);
    offsets_ = {};
    is_wide_ = true;
  }

  bool is_wide_ = false;
  std::vector<Item> items_;      // all; or, of close entries, the first of each block
  std::vector<Offset> offsets_;  // of close entries
};

/* A number for each key, where 0 is not a key: 16 bytes for an entry, and as much again at
 * most for free ones. */
class IdMap {
 public:
  /* The number of a key; -1: none. */
  std::int64_t get(std::uint64_t key) const {
    if (items_.empty()) return -1;
    const RowIndex::Item &item = items_[slot_of(key)];
    return item.key == key ? item.row : -1;
  }
  void put(std::uint64_t key, std::int64_t id) {
    if (count_ * 4 >= items_.size() * 3) grow();
    RowIndex::Item &item = items_[slot_of(key)];
    if (item.key != key) count_++;
    item = {key, id};
  }

 private:
  std::size_t slot_of(std::uint64_t key) const {
    const std::size_t mask = items_.size() - 1;
    std::size_t slot = static_cast<std::size_t>(key >> 20) & mask;
    while (items_[slot].key != 0 && items_[slot].key != key) slot = (slot + 1) & mask;
    return slot;
  }
  void grow() {
    std::vector<RowIndex::Item> old(std::max<std::size_t>(64, items_.size() * 2),
                                    RowIndex::Item{0, -1});
    old.swap(items_);
    for (const RowIndex::Item &item : old) {
      if (item.key != 0) items_[slot_of(item.key)] = item;
    }
  }
  std::vector<RowIndex::Item> items_;
  std::size_t count_ = 0;
};

/* Indexes the rows by an integer field, without those where it is null or cannot be read.
 * False when rows could not be had. */
inline bool index_by(const db::Snapshot &rows, std::string_view field,
                     RowIndex &index) {
  const db::IntegerColumn column(rows.layout(), field);
  for (long row = 0; row < rows.count(); row++) {
    const std::string_view text = rows.row(row);
    std::int64_t key = column.null();
    if (!text.empty() && column.read(text, key) && key != column.null()) {
      index.add(static_cast<std::uint64_t>(key), row);
    }
  }
  index.settle();
  return rows.complete();
}

}  // namespace ksutil::exchange
#endif

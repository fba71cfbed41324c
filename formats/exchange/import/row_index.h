/* row_index: finds rows of a table by an integer field, and by texts.
 *
 * They hold 16 bytes for each row, are filled once in any order, and then read. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_ROW_INDEX_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_ROW_INDEX_H

#include <algorithm>
#include <cstdint>
#include <span>
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

  void add(std::uint64_t key, std::int64_t row) { items_.push_back({key, row}); }
  /* To be called when all are added. */
  void settle() {
    const auto before = [](const Item &a, const Item &b) {
      return a.key != b.key ? a.key < b.key : a.row < b.row;
    };
    if (!std::is_sorted(items_.begin(), items_.end(), before)) {
      std::sort(items_.begin(), items_.end(), before);
    }
  }
  /* The rows with a key, ascending. */
  std::span<const Item> find(std::uint64_t key) const {
    const auto range =
        std::equal_range(items_.begin(), items_.end(), Item{key, 0},
                         [](const Item &a, const Item &b) { return a.key < b.key; });
    return {range.first, range.second};
  }
  bool empty() const { return items_.empty(); }
  std::int64_t first(std::int64_t key) const {
    const auto rows = find(static_cast<std::uint64_t>(key));
    return rows.empty() ? -1 : rows.front().row;
  }

 private:
  std::vector<Item> items_;
};

/* A number for each key, where 0 is no key: 16 bytes for an entry, and as much again at
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

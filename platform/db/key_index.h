/* KeyIndex: finds the rows of a table by the value of one integer field.
 *
 * Threads: as its table's snapshot. */
#ifndef KSUTIL_PLATFORM_DB_KEY_INDEX_H
#define KSUTIL_PLATFORM_DB_KEY_INDEX_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/snapshot.h"
#include "platform/stock/export.h"

namespace ksutil::db {

class KSUTIL_API KeyIndex {
 public:
  explicit KeyIndex(std::string field) : field_(std::move(field)) {}

  const std::string &field() const { return field_; }

  /* Brings the index up to date: adds the new rows, moves the changed ones, and builds
   * anew only when the changes are not known.  Rows with a null or unreadable key are
   * left out.
   * When rows cannot be read the index describes no snapshot.
   * A table of more than 2^31 - 1 rows is refused with a message; the index is then empty
   * and describes no snapshot. */
  void follow(const std::shared_ptr<const Snapshot> &snapshot);

  /* The snapshot that the index describes; null before the first follow
   * and after one that failed. */
  const std::shared_ptr<const Snapshot> &snapshot() const { return snapshot_; }

  /* The rows with a key, ascending: for (long record : index.find(key)). */
  class Rows {
   public:
    class Iterator {
     public:
      Iterator(const std::int32_t *next, std::int32_t row) : next_(next), row_(row) {}
      long operator*() const { return row_; }
      Iterator &operator++() {
        row_ = next_[row_];
        return *this;
      }
      bool operator!=(const Iterator &other) const { return row_ != other.row_; }

     private:
      const std::int32_t *next_;
      std::int32_t row_;
    };
    Rows(const std::int32_t *next, std::int32_t first) : next_(next), first_(first) {}
    Iterator begin() const { return {next_, first_}; }
    Iterator end() const { return {next_, -1}; }
    bool empty() const { return first_ < 0; }
    long front() const { return first_; }

   private:
    const std::int32_t *next_;
    std::int32_t first_;
  };
  Rows find(std::int64_t key) const {
    if (slots_.empty()) return {next_.data(), -1};
    const std::int32_t first = slots_[slot_of(key)].first;
    return {next_.data(), first < 0 ? -1 : first};
  }

  /* The greatest key, 0 when there is none.  Looks at every key. */
  std::int64_t greatest() const;

 private:
  struct Slot {
    std::int64_t key;
    std::int32_t first, last;  // first kFree: no key; kEmpty: a key without rows
  };
  static constexpr std::int32_t kFree = -1, kEmpty = -2;

  void rebuild(const Snapshot &snapshot);
  bool apply(const Snapshot &earlier, const Snapshot &snapshot);
  void append(std::int64_t key, std::int32_t row);
  bool insert(std::int64_t key, std::int32_t row, std::size_t &steps);
  bool remove(std::int64_t key, std::int32_t row, std::size_t &steps);
  bool read(const Snapshot &snapshot, long row, std::int64_t &key) const;
  std::size_t place(std::int64_t key) const;
  std::size_t slot_of(std::int64_t key) const;
  Slot &claim(std::int64_t key);
  void grow();

  std::string field_;
  IntegerColumn column_;
  std::shared_ptr<const Snapshot> snapshot_;
  std::vector<Slot> slots_;         // open addressing, a power of two
  std::size_t used_ = 0;            // slots with a key
  unsigned shift_ = 0;              // maps a hash to a slot
  std::vector<std::int32_t> next_;  // of each row: the next row with its key, or -1
};

/* The upper bits of a key are scattered and the lowest two kept, so that ids given out one
 * after another share cache lines. */
inline std::size_t KeyIndex::place(std::int64_t key) const {
  const auto bits = static_cast<std::uint64_t>(key);
  return static_cast<std::size_t>(((bits >> 2) * 0x9e3779b97f4a7c15U) >> shift_) << 2 |
         (bits & 3);
}

/* The slot that holds the key, or the free slot where it belongs. */
inline std::size_t KeyIndex::slot_of(std::int64_t key) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = place(key);
  while (slots_[slot].first != kFree && slots_[slot].key != key) {
    slot = (slot + 1) & mask;
  }
  return slot;
}

}  // namespace ksutil::db
#endif

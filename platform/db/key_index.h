/* KeyIndex: the rows of a table by the value of one integer field.
 *
 * Threads: as its table's snapshot. */
#ifndef KSUTIL_PLATFORM_DB_KEY_INDEX_H
#define KSUTIL_PLATFORM_DB_KEY_INDEX_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/snapshot.h"
#include "platform/stock/export.h"

namespace ksutil::db {

class KSUTIL_API KeyIndex {
 public:
  explicit KeyIndex(std::string field) : field_(std::move(field)) {}

  /* Brings the index up to date: adds the new rows, moves the changed ones, and builds
   * anew only when the changes are not known.  Rows with a null or unreadable key are
   * left out. */
  void follow(const std::shared_ptr<const Snapshot> &snapshot);

  /* The snapshot that the index describes; null before the first follow. */
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
  Rows find(std::int64_t key) const;

  /* The greatest key, 0 when there is none. */
  std::int64_t greatest() const;

 private:
  struct Slot {
    std::int64_t key;
    std::int32_t first, last;  // first -1: the slot is free
  };
  void rebuild();
  void insert(std::int64_t key, std::int32_t row);
  void remove(std::int64_t key, std::int32_t row);
  std::size_t slot_of(std::int64_t key) const;
  void grow(std::size_t slots);

  std::string field_;
  std::shared_ptr<const Snapshot> snapshot_;
  std::vector<Slot> slots_;  // open addressing, a power of two
  std::size_t used_ = 0;
  std::vector<std::int32_t> next_;  // of each row: the next row with its key, or -1
};

}  // namespace ksutil::db
#endif

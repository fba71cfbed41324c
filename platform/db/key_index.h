/* KeyIndex: finds the rows of a table by the value of one integer field.
 *
 * It remembers the key of each row, so that following a change needs no old text.
 * Memory: 8 bytes a row and 6 to 12 a key; 4 more a row when a key needs more than 32
 * bits.
 * Threads: as its table's snapshot. */
#ifndef KSUTIL_PLATFORM_DB_KEY_INDEX_H
#define KSUTIL_PLATFORM_DB_KEY_INDEX_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/snapshot.h"
#include "platform/stock/export.h"

namespace ksutil::db {

class KSUTIL_API KeyIndex {
  /* A row: the lower half of its key, and its successor. */
  struct Node {
    std::int32_t low;
    /* The next row with the same key; ~row of the first one for the last; or kNoKey. */
    std::int32_t next;
  };

 public:
  explicit KeyIndex(std::string field) : field_(std::move(field)) {}

  const std::string &field() const { return field_; }

  /* Brings the index up to date: adds the new rows, moves the changed ones, and builds
   * anew only when the changes are not known.  Rows with a null or unreadable key are
   * left out.
   * When rows cannot be read the index describes no snapshot.
   * A table of more than 2^31 - 1 rows is refused with a message; the index is then empty
   * and describes no snapshot. */
  void follow(const std::shared_ptr<const Snapshot> &snapshot) {
    const Following following{this, snapshot};
    follow_all({&following, 1});
  }

  /* The same for several indexes, of one table or of several: those that are built anew
   * read each table once, where it pays on two threads.  Ends early when rows cannot be
   * read. */
  struct Following {
    KeyIndex *index;
    std::shared_ptr<const Snapshot> snapshot;
  };
  static void follow_all(std::span<const Following> all);

  /* The snapshot that the index describes; null before the first follow
   * and after one that failed. */
  const std::shared_ptr<const Snapshot> &snapshot() const { return snapshot_; }

  /* The rows with a key, ascending: for (long record : index.find(key)). */
  class Rows {
   public:
    class Iterator {
     public:
      Iterator(const Node *nodes, std::int32_t row) : nodes_(nodes), row_(row) {}
      long operator*() const { return row_; }
      Iterator &operator++() {
        const std::int32_t next = nodes_[row_].next;
        row_ = next < 0 ? -1 : next;
        return *this;
      }
      bool operator!=(const Iterator &other) const { return row_ != other.row_; }

     private:
      const Node *nodes_;
      std::int32_t row_;
    };
    Rows(const Node *nodes, std::int32_t first) : nodes_(nodes), first_(first) {}
    Iterator begin() const { return {nodes_, first_}; }
    Iterator end() const { return {nodes_, -1}; }
    bool empty() const { return first_ < 0; }
    long front() const { return first_; }

   private:
    const Node *nodes_;
    std::int32_t first_;
  };
  Rows find(std::int64_t key) const {
    const std::int32_t last = slots_.empty() ? kFree : slots_[slot_of(key)];
    return {nodes_.data(),
            last < 0 ? -1 : ~nodes_[static_cast<std::size_t>(last)].next};
  }

  /* Gives the key of a row of the snapshot; false when it has none. */
  bool key_of(long row, std::int64_t &key) const {
    const auto number = static_cast<std::size_t>(row);
    if (row < 0 || number >= nodes_.size() || nodes_[number].next == kNoKey) {
      return false;
    }
    key = key_at(number);
    return true;
  }

  /* Adds to `keys` the keys that rows have lost, by a change or by their removal, from
   * `earlier` to snapshot(), perhaps some twice or of other rows; false, and nothing
   * added, when that is not known: the index did not describe `earlier`, has been built
   * anew since, or has met very many changes. */
  bool lost_keys(const std::shared_ptr<const Snapshot> &earlier,
                 std::vector<std::int64_t> &keys) const;

  /* The greatest key, 0 when there is none.  Looks at every key. */
  std::int64_t greatest() const;

 private:
  static constexpr std::int32_t kFree = -1;   // a slot that never had a key
  static constexpr std::int32_t kEmpty = -2;  // a slot whose key has no rows left
  static constexpr std::int32_t kNoKey = INT32_MIN;

  /* The way from one snapshot to the next. */
  struct Step {
    std::weak_ptr<const Snapshot> from;
    std::vector<std::int64_t> lost;
  };

  class KeyTaker;

  static void rebuild_all(std::vector<Following> &anew);
  static void read_keys(std::span<const Following> indexes);
  bool follow_changes(const std::shared_ptr<const Snapshot> &snapshot);
  void clear();
  void prepare(const Snapshot &snapshot);
  void note_key(std::size_t row, std::int64_t key);
  void link();
  bool apply(const std::shared_ptr<const Snapshot> &earlier, const Snapshot &snapshot);
  bool go_back(const Snapshot &earlier, const Snapshot &snapshot);
  bool move(const Snapshot &snapshot, const std::vector<long> &changed,
            std::size_t steps);
  void remember(const std::shared_ptr<const Snapshot> &from);
  void resize(long rows);
  void append(std::int64_t key, std::int32_t row);
  bool insert(std::int64_t key, std::int32_t row, std::size_t &steps);
  bool remove(std::int32_t row, std::size_t &steps);
  bool read(std::string_view row, std::int64_t &key) const {
    return column_.read(row, key) && key != column_.null();
  }
  void set_key(std::size_t row, std::int64_t key);
  std::size_t place(std::int64_t key) const;
  std::size_t slot_of(std::int64_t key) const;
  std::size_t claim(std::int64_t key);
  void grow();

  std::int64_t key_at(std::size_t row) const {
    if (high_.empty()) return nodes_[row].low;
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(high_[row]) << 32 |
                                     static_cast<std::uint32_t>(nodes_[row].low));
  }
  Node &node(std::int32_t row) { return nodes_[static_cast<std::size_t>(row)]; }

  std::string field_;
  IntegerColumn column_;
  std::shared_ptr<const Snapshot> snapshot_;
  std::vector<Node> nodes_;          // of each row
  std::vector<std::int32_t> high_;   // upper halves of the keys, if any needs one
  std::vector<std::int32_t> slots_;  // the last row of each key; open addressing, 2^n
  std::size_t used_ = 0;             // slots that are not free
  unsigned shift_ = 0;               // maps a hash to a slot
  std::vector<Step> steps_;          // up to snapshot_
  std::vector<std::int64_t> lost_;   // by the step that is being made
};

/* The upper bits of a key are scattered and the lowest three kept, so that ids given out
 * one after another share cache lines. */
inline std::size_t KeyIndex::place(std::int64_t key) const {
  const auto bits = static_cast<std::uint64_t>(key);
  return static_cast<std::size_t>(((bits >> 3) * 0x9e3779b97f4a7c15U) >> shift_) << 3 |
         (bits & 7);
}

/* The slot of the key, or the free slot where the search for it ends. */
inline std::size_t KeyIndex::slot_of(std::int64_t key) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = place(key);
  while (slots_[slot] != kFree &&
         (slots_[slot] < 0 || key_at(static_cast<std::size_t>(slots_[slot])) != key)) {
    slot = (slot + 1) & mask;
  }
  return slot;
}

}  // namespace ksutil::db
#endif

/* Snapshot: holds the rows of one table as they were at one moment.
 *
 * Rows are read in blocks of whole records, when they are first asked for, and kept
 * within the store's budget.  Of the others a snapshot keeps the fingerprints: changes
 * are found by them, and a row that is read again is shown only if it is the same.
 * Threads: a snapshot belongs to the thread that uses its database handle; the RowTexts
 * taken from it may go anywhere. */
#ifndef KSUTIL_PLATFORM_DB_SNAPSHOT_H
#define KSUTIL_PLATFORM_DB_SNAPSHOT_H

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/db/row_text.h"
#include "platform/db/schema.h"
#include "platform/stock/export.h"

namespace ksutil::db {

/* When and how much a table held. */
struct Stamp {
  bool exists = false;    // whether the table has a file (or its store's equivalent)
  long count = 0;         // whole records
  double time = 0.0;      // last modification, epoch seconds; 0 when it does not exist
  long identity[5] = {};  // the store's own: equal stamps are the same content
  bool operator==(const Stamp &) const = default;
};

/* The differences between two snapshots of a table. */
struct Changes {
  bool known = true;          // false: any row may differ; the rest says nothing
  std::vector<long> changed;  // rows of both snapshots whose bytes differ, ascending
  long old_count = 0;         // rows old_count .. new_count-1 are new
  long new_count = 0;
};

/* Rows first .. end - 1 of a table. */
struct RowRange {
  long first, end;
};

/* RowTaker: is given the rows of a table while they are read.  May be called from two
 * threads at once, for different rows and with different sharers (see
 * platform/stock/shared_work.h). */
class KSUTIL_API RowTaker {
 public:
  virtual ~RowTaker() = default;
  /* Takes `count` whole rows, which lie behind each other in `rows` and last as long as
   * the call; false when it could not take all of them. */
  virtual bool take(unsigned sharer, long first, std::size_t count,
                    std::string_view rows) noexcept = 0;
};

class KSUTIL_API Snapshot {
 public:
  virtual ~Snapshot() = default;

  const Relation &layout() const { return *layout_; }
  const Stamp &stamp() const { return stamp_; }
  long count() const { return stamp_.count; }

  /* The row with its newline, exactly as stored; a newline that the last row lacks is
   * added.  Empty, with a message that names file and record, when it is out of range,
   * cannot be read or is broken (its newline is not where it belongs).
   * The view is valid as long as the snapshot, unless rows worth half the store's budget
   * of blocks are read meanwhile: take text() to keep a row for long. */
  virtual std::string_view row(long record) const = 0;

  /* The same as a text that may be kept. */
  virtual RowText text(long record) const = 0;

  /* Reads rows first .. end - 1 of `range` once, on two threads, and gives them to the
   * taker; keeps their fingerprints and none of their bytes.  The result is the ranges of
   * rows that are to be read by row(), in ascending order: rows that cannot be read, are
   * broken or were not taken, those at the ends of a range that are not whole blocks, and
   * all rows when a second thread does not pay.  Throws std::bad_alloc. */
  virtual std::vector<RowRange> scan(RowTaker &taker, RowRange range) const;
  std::vector<RowRange> scan(RowTaker &taker) const {
    return scan(taker, {0, count()});
  }

  /* False once rows could not be read because the store failed (a disk error, no memory).
   * Such rows may still exist: check complete() after reading, before concluding anything
   * from a missing row.  The table's next snapshot is a new object and reads them again. */
  virtual bool complete() const = 0;

  /* Whether complete() is false because rows that had to be read again are other ones
   * now.  The next snapshot has them as they are then. */
  virtual bool overtaken() const { return false; }

  /* Keeps the rows that are read from now on until the snapshot ends, whatever the
   * budget, so that none of them can be overtaken a second time. */
  virtual void keep_rows() const {}

  /* The differences from this snapshot to a later one of the same table; see
   * changes_between. */
  virtual Changes changes_to(const Snapshot &later) const = 0;

 protected:
  Snapshot(std::shared_ptr<const Relation> layout, Stamp stamp)
      : layout_(std::move(layout)), stamp_(stamp) {}

  std::shared_ptr<const Relation> layout_;
  Stamp stamp_;
};

/* Reads the later table once at most, and compares at memory speed; the rows of `before`
 * need not be held any longer.  Not known when the table shrank, its layout differs, or
 * rows of `before` were never read. */
KSUTIL_API Changes changes_between(const Snapshot &before, const Snapshot &after);

}  // namespace ksutil::db
#endif

/* FlatExclusive: writes a table file that it holds locked.
 *
 * Order of every change: the bytes with one write, synchronisation where it is wanted,
 * then the file time.  A failed step undoes those before it.  Rows are removed by a new
 * file that takes the place of the old one. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_EXCLUSIVE_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_EXCLUSIVE_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/row_removal.h"
#include "platform/db/store/internal/flat_table.h"
#include "platform/stock/files.h"

namespace ksutil::db {

class FlatExclusive final : public TableStore::Exclusive, public RowRemoval {
 public:
  explicit FlatExclusive(FlatTable &table);
  ~FlatExclusive() override;
  FlatExclusive(const FlatExclusive &) = delete;
  FlatExclusive &operator=(const FlatExclusive &) = delete;

  /* Opens, or makes, and locks the file, after it has finished or undone an interrupted
   * transaction of the table; false with a message. */
  bool open();

  /* Whether `work` may run again: the file was removed or exchanged before anything was
   * written. */
  bool may_start_again() const { return exchanged_ && !wrote_; }

  std::shared_ptr<const Snapshot> snapshot() override;
  long append(std::string_view row) override;
  long append_all(std::string_view rows) override;
  bool overwrite(long record, std::string_view row) override;
  /* Whether rows are whole, have the length of the layout's, and hold no control
   * characters, but a carriage return where the file has it.  A newline that is missing at
   * the end is added.  A message names the file. */
  static bool are_rows(std::string &rows, const Relation &layout, bool carriage_return,
                       const std::string &file);
  bool remove(const std::vector<long> &records) override;

 private:
  friend class FlatTransaction;

  /* The same without checking for transactions. */
  bool open_locked();
  enum class Opened { kLocked, kGone, kFailed };
  Opened open_and_lock();
  /* Whether the file at the table's path is the locked one, at the table's last look or
   * now. */
  bool holds_table() const;
  bool still_at_path() const;
  bool lost();
  /* Removes the new file of a process that was killed while it removed rows.  The lock of
   * the table is held: no living process has such a file. */
  void remove_leftover();
  /* Brings the table up to date and completes the last record of the file. */
  bool prepare();
  bool repair_end();
  bool check_rows(std::string &rows);
  bool copy_without(const std::vector<long> &records, int to);
  /* Writes whole rows at the end of the file, or one row over old bytes. */
  bool write_end(std::string_view rows, off_t expected, off_t &at);
  bool write_over(std::string_view row, off_t at);
  bool write(std::string_view bytes, off_t at, bool append, std::string_view old_bytes);
  bool set_append(bool append);
  bool find_rows(std::string_view rows, off_t &at);
  bool byte_before(off_t at, char &byte);
  bool check_for_hole(off_t at, char before, off_t end, std::string_view old_bytes);
  void undo(off_t at, std::string_view old_bytes, std::size_t written);
  bool sync();
  bool move_time_forward();
  bool fail(int flag, const char *what);

  FlatTable &table_;
  FileHandle handle_;
  std::unique_ptr<FileLock> lock_;
  bool created_ = false;
  bool exchanged_ = false;  // another file, or none, was found at the path
  bool wrote_ = false;      // a write has succeeded
};

}  // namespace ksutil::db
#endif

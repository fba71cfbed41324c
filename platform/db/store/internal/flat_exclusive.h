/* FlatExclusive: a table file that this program has locked and may write.
 *
 * Order of every change: the bytes with one write, synchronisation where it is wanted,
 * then the file time.  A failed step undoes those before it. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_EXCLUSIVE_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_EXCLUSIVE_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/db/store/internal/flat_table.h"
#include "platform/stock/files.h"

namespace ksutil::db {

class FlatExclusive final : public TableStore::Exclusive {
 public:
  explicit FlatExclusive(FlatTable &table);
  ~FlatExclusive() override;
  FlatExclusive(const FlatExclusive &) = delete;
  FlatExclusive &operator=(const FlatExclusive &) = delete;

  /* Opens, or makes, and locks the file; false with a message. */
  bool open();

  std::shared_ptr<const Snapshot> snapshot() override { return table_.snapshot(); }
  long append(std::string_view row) override;
  long append_all(std::string_view rows) override;
  bool overwrite(long record, std::string_view row) override;

 private:
  bool open_and_lock();
  bool still_at_path();
  /* Brings the table up to date and the end of its file into order. */
  bool prepare();
  bool repair_end();
  bool check_rows(std::string &rows);
  bool write(std::string_view bytes, off_t at, std::string_view old_bytes);
  void undo(off_t at, std::string_view old_bytes);
  bool sync();
  bool move_time_forward();
  bool fail(int flag, const char *what);

  FlatTable &table_;
  FileHandle handle_;
  std::optional<FileLock> lock_;
  bool created_ = false;
};

}  // namespace ksutil::db
#endif

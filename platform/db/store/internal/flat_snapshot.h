/* FlatSnapshot: reads the rows of a table file block by block. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_SNAPSHOT_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_SNAPSHOT_H

#include <memory>
#include <string>
#include <vector>

#include "platform/db/store/internal/block_snapshot.h"
#include "platform/stock/files.h"

namespace ksutil::db {

/* The members that the tables of one open database share. */
struct FlatShared {
  explicit FlatShared(std::size_t limit)
      : budget(std::make_shared<BlockBudget>(limit)) {}
  std::shared_ptr<BlockBudget> budget;
  std::vector<char> scratch;  // blocks are read into it to be compared
  RowPrints prints;           // of the block that was read last
};

/* The state of a table file at one look. */
struct FlatFile {
  std::string path;
  std::shared_ptr<FileHandle> handle;  // null if the file does not exist
  std::shared_ptr<const Relation> layout;
  Stamp stamp;
  std::string missing_end;  // the end that the last record lacks: "", "\n" or "\r\n"
};

class FlatSnapshot final : public BlockSnapshot {
 public:
  FlatSnapshot(const FlatFile &file, std::shared_ptr<FlatShared> shared);

  /* Takes the fingerprints of the snapshot before, to be compared with the file when it is
   * read, and the bytes that it holds; the blocks before `changed_from` and after
   * `changed_to`, as records, are known to be as they were. */
  void follow(const FlatSnapshot &before, long changed_from, long changed_to);
  void follow(const FlatSnapshot &before) { follow(before, 0, count()); }

  using Snapshot::scan;
  std::vector<RowRange> scan(RowTaker &taker, RowRange range) const override;

 private:
  struct Examined;
  class SharedExamination;

  void settle_examined(std::size_t index, Examined &examined) const;

  void look_ahead(const BlockSnapshot &before) const override;
  void load(std::size_t index, BlockSlot &slot, bool bytes) const override;
  bool load_row(std::size_t number, char *to) const override;
  /* Reads a block to `to` and takes the fingerprints of its whole records; `whole`: none
   * is missing or broken.  False with errno set.  Safe from any thread. */
  bool fetch_block(std::size_t index, char *to, RowPrints &prints, bool &whole) const;
  /* Reads records to `to`; the bytes read, completed by the newline that the last record
   * of the table may lack, -1 with errno set on an error. */
  ssize_t fetch(std::size_t first, std::size_t rows, char *to) const;

  std::shared_ptr<FileHandle> handle_;
  std::string missing_end_;
  std::shared_ptr<FlatShared> shared_;
};

}  // namespace ksutil::db
#endif

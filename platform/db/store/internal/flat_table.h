/* FlatTable: reads and locks a table in a file of fixed-width records. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_TABLE_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_TABLE_H

#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/db/store.h"
#include "platform/db/store/internal/flat_folders.h"
#include "platform/db/store/internal/flat_journal.h"
#include "platform/db/store/internal/flat_snapshot.h"

namespace ksutil::db {

/* How the tables of a database are to be treated. */
struct FlatSettings {
  std::shared_ptr<const Schema> schema;
  bool writable = false;
  bool sync = false;
  std::shared_ptr<FlatShared> shared;
  std::shared_ptr<const FlatPlaces> places;
  std::shared_ptr<FlatFolders> folders = nullptr;  // null: not watched
};

class FlatExclusive;
class FlatTransaction;

class FlatTable final : public TableStore {
 public:
  /* paths   where the file may be, in the order of preference; a new file is made at the
   *         first of them. */
  FlatTable(const FlatSettings &settings, const Relation &relation,
            std::vector<std::string> paths);

  const Relation &layout() override;
  bool stamp(Stamp &stamp) override;
  std::shared_ptr<const Snapshot> snapshot() override;
  std::shared_ptr<const Snapshot> snapshot_anew() override;
  bool exclusively(const std::function<bool(Exclusive &)> &work) override;
  const std::string &file_name() const override { return file_.path; }
  const std::string &directory() const override { return directory_; }

 private:
  friend class FlatExclusive;
  friend class FlatTransaction;

  /* Brings file_ up to date with one look at the path; false, with a message, on an
   * error. */
  bool look();
  /* Takes over the file that the path leads to; kGone when it was removed or exchanged
   * meanwhile. */
  enum class Looked { kSeen, kGone, kFailed };
  Looked look_through(const struct stat &at_path);
  bool find_path(struct stat &status, bool &exists);
  void set_absent();
  std::shared_ptr<const Snapshot> next_snapshot();

  /* Reads the facts that the identity of the file alone does not show. */
  bool examine(int fd, const struct stat &status);
  bool fit(int fd, const struct stat &status);
  bool read_remainder(int fd, const struct stat &status);
  void set_layout(Relation layout, bool carriage_return);
  void set_path(const std::string &path);
  void set_stamp(const struct stat &status, long count);

  /* Takes over the records from..to-1 that this program has written itself, without
   * looking at the rest of the file; a size other than expected shows that another
   * program wrote as well, and leaves everything to the next look. */
  void adopt_write(long from, long to, off_t expected_size);
  std::size_t record_length() const {
    return static_cast<std::size_t>(file_.layout->width) + 1;
  }

  const FlatSettings settings_;
  const Relation &relation_;  // the schema's
  const std::vector<std::string> paths_;
  std::string directory_;

  FlatFile file_;
  struct stat seen_ = {};         // state of file_.handle at the last look
  bool carriage_return_ = false;  // stands before the newlines
  std::vector<std::shared_ptr<const Relation>> layouts_;  // all that layout() has given
  std::shared_ptr<const FlatSnapshot> snapshot_;

  /* The rows that differ between snapshot_ and file_, if only this program has
   * written. */
  bool own_changes_ = false;
  long changed_from_ = 0, changed_to_ = 0;
  FlatExclusive *running_ = nullptr;  // set while exclusively() runs
  bool leftover_removed_ = false;     // of a removal of rows that was killed
};

}  // namespace ksutil::db
#endif

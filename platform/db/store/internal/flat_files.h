/* flat_files: keeps each table in one fixed-width text file, path/name.<table>, beside
 * an optional descriptor path/name in parameter-file syntax:
 *
 *   schema      css3.0          # or kbcore; without it the files' widths decide
 *   table_path  old:/data/{archive}   # where tables may live that are not beside it
 *   sync        yes                   # a returned append survives loss of power
 *
 * table_path is a list of places, separated by colons and tried in order for a table that
 * has no file beside the descriptor: "old" stands for old/name.<table>, "/data/{archive}"
 * for /data/archive.<table>; relative ones start at the descriptor's directory.
 *
 * Other programs may read and write the files at the same time.  Every look goes to the
 * path: a changed, removed or replaced file, a link that was switched and a directory that
 * was exchanged above it are noticed at once.  Not noticed, except by a snapshot that reads
 * anew, is a row rewritten in place without a trace in the file's size and times; the
 * times step at the pace of the system's clock, some milliseconds. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_FILES_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_FILES_H

#include <cstddef>
#include <memory>
#include <string>

#include "platform/db/store.h"

namespace ksutil::db {

/* Bytes of rows that one open database keeps beyond those that are in use: enough for
 * the rows between which a reading goes back and forth. */
inline constexpr std::size_t kBlockBudget = std::size_t{48} << 20;

/* The least that open_store takes: callers may use a row of one table while they read some
 * blocks of others. */
inline constexpr std::size_t kLeastBlockBudget = std::size_t{8} << 20;

/* kBlockBudget, or another limit while the object lives.  For tests, one at a time. */
std::size_t default_block_budget();
class ScopedBlockBudget {
 public:
  explicit ScopedBlockBudget(std::size_t limit);
  ~ScopedBlockBudget();
  ScopedBlockBudget(const ScopedBlockBudget &) = delete;
  ScopedBlockBudget &operator=(const ScopedBlockBudget &) = delete;
};

/* Opens a database; null, with a message, on failure.  A transaction that a dead process
 * left half published is finished or undone first.
 *
 * mode   "r" or "r+".  Both need the descriptor or at least one table file.  Table files
 *        are opened for writing at the first write only, so a read-only archive opens
 *        with "r+" too. */
std::unique_ptr<DatabaseStore> open_flat_files(const std::string &name,
                                               const std::string &mode,
                                               std::size_t block_budget);
inline std::unique_ptr<DatabaseStore> open_flat_files(const std::string &name,
                                                      const std::string &mode) {
  return open_flat_files(name, mode, default_block_budget());
}

/* open_store with any budget, however small. */
std::unique_ptr<DatabaseStore> open_store_within(const std::string &name,
                                                 const std::string &mode,
                                                 std::size_t block_budget);

/* Makes the descriptor of a new database of that schema; false, with a message, when it
 * exists already or cannot be written. */
bool create_flat_files(const std::string &name, const std::string &schema);

}  // namespace ksutil::db
#endif

/* FlatReplacement: the file that takes the place of a table file in a transaction which has
 * removed all rows of the table.
 *
 * The rows of the transaction go into a file beside the table.  The journal says that it
 * takes the table's place; publication renames it, so that readers keep the rows that they
 * hold, and have all of the old rows or all of the new ones. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_REPLACEMENT_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_REPLACEMENT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/stock/files.h"

namespace ksutil::db {

/* The file that a path leads to, links followed, so that a link stays a link; "" on
 * failure. */
std::string real_path(const std::string &path);

/* The name of a file beside that at `path`; hidden, so that no program takes it for a
 * table. */
std::string hidden_name_beside(const std::string &path, const char *ending);

/* Gives a new file the owner, if this user may give files away, and the mode of the file
 * that it replaces; false with errno set. */
bool take_owner_and_mode(int fd, const struct stat &of);

class FlatReplacement {
 public:
  FlatReplacement() = default;
  /* Removes the file unless it is in its place or kept. */
  ~FlatReplacement();
  FlatReplacement(const FlatReplacement &) = delete;
  FlatReplacement &operator=(const FlatReplacement &) = delete;

  /* Makes the file for the table file at `table`, which is open as `old`. */
  bool make(const std::string &table, int old);
  bool append(std::string_view rows);
  /* Brings the rows to the disk. */
  bool finish();
  bool put_in_place();
  /* Leaves the file to the process that finishes the transaction. */
  void keep() { path_.clear(); }

  FileHandle &file() { return file_; }
  std::int64_t size() const { return size_; }

  /* For the process that finds the journal of a dead one, given the path of the table:
   * puts a replacement of that size into its place, unless it is there already; removes a
   * replacement. */
  static bool finish_for(const std::string &table, std::int64_t size);
  static void remove_for(const std::string &table);

 private:
  bool flush();

  std::string path_, target_;
  std::string waiting_;  // rows that are not yet in the file
  FileHandle file_;
  std::int64_t size_ = 0;  // bytes, with those that wait
};

}  // namespace ksutil::db
#endif

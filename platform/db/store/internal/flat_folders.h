/* FlatFolders: notices that a folder with tables of a flat-file database has gone.
 *
 * A table without a file is empty, but only while the folders are there in which its file
 * would be: when a folder is moved, or its file system unmounted, its tables are not empty.
 * May be used by several threads. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_FOLDERS_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_FOLDERS_H

#include <sys/stat.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/db/schema.h"
#include "platform/db/store/internal/flat_descriptor.h"

namespace ksutil::db {

class FlatFolders {
 public:
  /* Looks at the folders of the prefixes. */
  FlatFolders(std::shared_ptr<const Schema> schema, const Prefixes &prefixes);

  /* Whether all folders are those that were there, or others with files of the database.
   * False, with a message of dbopen about the table file `path`, when one is missing or has
   * none of the files that it had. */
  bool are_there(const std::string &path);

 private:
  struct Folder {
    std::string path, prefix;
    struct stat seen = {};
    bool known = false;  // seen is its state
    bool used = false;   // it had files of the database
  };
  /* Whether there is a descriptor, or a table, of a prefix. */
  bool has_files(const std::string &prefix) const;

  const std::shared_ptr<const Schema> schema_;
  std::mutex mutex_;
  std::vector<Folder> folders_;
};

}  // namespace ksutil::db
#endif

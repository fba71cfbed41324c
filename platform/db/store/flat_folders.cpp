#include "platform/db/store/internal/flat_folders.h"

#include <algorithm>
#include <cerrno>

#include "platform/db/store/internal/found_tables.h"
#include "platform/elog/failure.h"
#include "platform/stock/files.h"

namespace ksutil::db {

FlatFolders::FlatFolders(std::shared_ptr<const Schema> schema, const Prefixes &prefixes)
    : schema_(std::move(schema)) {
  for (const std::string &prefix : prefixes) {
    Folder folder;
    folder.prefix = prefix;
    folder.path = prefix.substr(0, std::max<std::size_t>(prefix.rfind('/'), 1));
    folder.known = ::stat(folder.path.c_str(), &folder.seen) == 0;
    folder.used = folder.known && has_files(prefix);
    folders_.push_back(std::move(folder));
  }
}

bool FlatFolders::has_files(const std::string &prefix) const {
  if (is_file(prefix)) return true;
  const std::vector<Relation> &tables = schema_->relations();
  return std::any_of(tables.begin(), tables.end(), [&](const Relation &table) {
    return is_file(prefix + "." + table.name);
  });
}

bool FlatFolders::are_there(const std::string &path) {
  const std::lock_guard lock(mutex_);
  for (Folder &folder : folders_) {
    struct stat status;
    if (::stat(folder.path.c_str(), &status) != 0) {
      return fail_errno("dbopen", "%s: Cannot look at its folder %s", path.c_str(),
                        folder.path.c_str());
    }
    if (folder.known && same_file(status, folder.seen)) continue;
    const bool used = has_files(folder.prefix);
    if (folder.used && !used) {
      return fail("dbopen",
                  "%s: its folder %s is another one, without files of the database",
                  path.c_str(), folder.path.c_str());
    }
    folder.seen = status;
    folder.known = true;
    folder.used = used;
  }
  return true;
}

}  // namespace ksutil::db

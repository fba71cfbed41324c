/* open_database: opens a database for one scope. */
#ifndef KSUTIL_TOOLS_COMMON_OPEN_DATABASE_H
#define KSUTIL_TOOLS_COMMON_OPEN_DATABASE_H

#include <string>

#include "platform/db/db.h"

namespace ksutil::tools {

/* A database that is closed at the end of the scope.  False, with a message registered,
 * if it could not be opened with that mode ("r" or "r+"). */
class OpenDatabase {
 public:
  OpenDatabase(const std::string &name, const char *mode) {
    open_ = dbopen_noshare(name.c_str(), mode, &db_) == 0;
  }
  ~OpenDatabase() {
    if (open_) dbclose(db_);
  }
  OpenDatabase(const OpenDatabase &) = delete;
  OpenDatabase &operator=(const OpenDatabase &) = delete;

  explicit operator bool() const { return open_; }
  Dbptr get() const { return db_; }
  Dbptr table(const std::string &name) const {
    return dblookup(db_, "", name.c_str(), "", "");
  }

 private:
  Dbptr db_ = dbinvalid();
  bool open_ = false;
};

}  // namespace ksutil::tools
#endif

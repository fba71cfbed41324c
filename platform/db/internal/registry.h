/* registry: keeps the open databases of this process, by the number in Dbptr::database. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_REGISTRY_H
#define KSUTIL_PLATFORM_DB_INTERNAL_REGISTRY_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/db/db.h"
#include "platform/db/internal/database.h"

namespace ksutil::db {

/* Registers an open database: its number, or -1 with a message. */
int register_database(std::unique_ptr<DatabaseStore> store);

/* The number of the database that is shared under this name and mode, with one more
 * user.  The first time, `open` opens it and gives the number; -1 when `open` gives
 * -1. */
int share_database(const std::string &name, const std::string &mode,
                   const std::function<int()> &open);

/* Closes a database; a shared one is closed for its last user only.  False when no open
 * database has the number. */
bool release_database(int number);

/* An open database, locked for one scope. */
class Opened {
 public:
  /* Empty, with a message in the name of `who`, when the number names none. */
  Opened(const char *who, Dbptr db);
  explicit operator bool() const { return database_ != nullptr; }
  Database *operator->() const { return database_.get(); }
  Database &operator*() const { return *database_; }

  /* The table or view that the Dbptr names; null with a message. */
  RecordSource *source(const char *who, Dbptr db) const;
  /* The stored table; null with a message for anything else. */
  TableSource *table(const char *who, Dbptr db) const;

 private:
  std::shared_ptr<Database> database_;
  std::unique_lock<std::mutex> lock_;
};

}  // namespace ksutil::db
#endif

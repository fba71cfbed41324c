/* ImportTarget: opens the database that an import writes, and first makes it if asked
 * to.  Removes the database that it made unless the import succeeds. */
#ifndef KSUTIL_TOOLS_KSDB_IMPORT_TARGET_H
#define KSUTIL_TOOLS_KSDB_IMPORT_TARGET_H

#include <memory>
#include <string>

#include "platform/db/store.h"
#include "platform/db/store_plugin.h"

namespace ksutil::tools {

/* Removes a database whose tables have no rows: the descriptor and the empty files of
 * tables.  A database with rows, or into which another program publishes rows at this moment,
 * stays as it is. */
void remove_empty_database(const std::string &name, const db::Schema &schema);

class ImportTarget {
 public:
  ImportTarget() = default;
  ~ImportTarget();
  ImportTarget(const ImportTarget &) = delete;
  ImportTarget &operator=(const ImportTarget &) = delete;

  /* Opens a database.  One that does not exist is made when `schema` names its schema;
   * a dry run then uses a database in memory.  False after a message. */
  bool open(const std::string &name, const std::string &schema, bool dry_run);
  /* The same for a copy: makes a database that does not exist, in the store that the
   * descriptor names; complains of one that exists where a server is asked for. */
  bool open_or_make(const db::StoreDescriptor &descriptor);
  db::DatabaseStore &store() { return *store_; }

  /* Keeps the database: the import has succeeded, or brought some of its input in. */
  void keep() { made_.clear(); }

 private:
  std::unique_ptr<db::DatabaseStore> store_;
  std::string made_;  // the name of a database that was made
};

}  // namespace ksutil::tools
#endif

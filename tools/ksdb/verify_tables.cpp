#include "tools/ksdb/verify_tables.h"

#include "platform/db/access.h"

namespace ksutil::tools {

bool read_tables(const OpenDatabase &database, Tables &tables) {
  const db::DatabaseStore *store = db::database_store(database.get());
  if (store == nullptr) return false;
  bool good = true;
  for (const db::Relation &relation : store->schema()->relations()) {
    SnapshotPtr rows = db::table_snapshot(database.table(relation.name));
    if (rows == nullptr) {
      good = false;
    } else if (rows->count() > 0) {
      tables[relation.name] = std::move(rows);
    }
  }
  return good;
}

}  // namespace ksutil::tools

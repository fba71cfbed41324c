#include "platform/db/access.h"

#include "platform/db/internal/boundary.h"
#include "platform/db/internal/registry.h"

namespace ksutil::db {

TableStore *table_store(Dbptr db) {
  return guarded(
      "table_store", static_cast<TableStore *>(nullptr), [&]() -> TableStore * {
        const Opened opened("table_store", db);
        TableSource *const table = opened ? opened.table("table_store", db) : nullptr;
        return table == nullptr ? nullptr : &table->store();
      });
}

DatabaseStore *database_store(Dbptr db) {
  return guarded("database_store", static_cast<DatabaseStore *>(nullptr),
                 [&]() -> DatabaseStore * {
                   const Opened opened("database_store", db);
                   return opened ? &opened->store() : nullptr;
                 });
}

bool table_stamp(Dbptr db, Stamp &stamp) {
  return guarded("table_stamp", false, [&] {
    const Opened opened("table_stamp", db);
    TableSource *const table = opened ? opened.table("table_stamp", db) : nullptr;
    return table != nullptr && table->stamp("table_stamp", stamp);
  });
}

std::shared_ptr<const Snapshot> table_snapshot(Dbptr db) {
  return guarded("table_snapshot", std::shared_ptr<const Snapshot>(), [&] {
    const Opened opened("table_snapshot", db);
    TableSource *const table = opened ? opened.table("table_snapshot", db) : nullptr;
    return table == nullptr ? nullptr : table->look("table_snapshot");
  });
}

RowText record_text(Dbptr record) {
  return guarded("record_text", RowText(), [&] {
    const Opened opened("record_text", record);
    TableSource *const table = opened ? opened.table("record_text", record) : nullptr;
    return table == nullptr ? RowText() : table->text("record_text", record.record);
  });
}

bool set_scratch(Dbptr db, std::string_view text) {
  return guarded("set_scratch", false, [&] {
    const Opened opened("set_scratch", db);
    TableSource *const table = opened ? opened.table("set_scratch", db) : nullptr;
    return table != nullptr && table->set_scratch("set_scratch", text);
  });
}

}  // namespace ksutil::db

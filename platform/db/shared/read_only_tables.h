/* ReadOnlyTables: shows the tables of a database as a transaction does, and forgets all
 * changes. */
#ifndef KSUTIL_PLATFORM_DB_SHARED_READ_ONLY_TABLES_H
#define KSUTIL_PLATFORM_DB_SHARED_READ_ONLY_TABLES_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/store.h"

namespace ksutil::db {

class ReadOnlyTables final : public Transaction {
 public:
  /* The schema must have all tables of the list. */
  ReadOnlyTables(DatabaseStore &store, const std::vector<std::string> &names) {
    for (const std::string &name : names) tables_.push_back(store.table(name));
  }
  const Relation &layout(std::size_t table) const override {
    return tables_[table]->layout();
  }
  std::shared_ptr<const Snapshot> snapshot(std::size_t table) override {
    return tables_[table]->snapshot();
  }
  long append(std::size_t, std::string_view) override { return 0; }
  bool overwrite(std::size_t, long, std::string_view) override { return true; }

 private:
  std::vector<TableStore *> tables_;
};

}  // namespace ksutil::db
#endif

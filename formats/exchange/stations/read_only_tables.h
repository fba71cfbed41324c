/* ReadOnlyTables: shows the tables of a database as a transaction does, and forgets all
 * changes. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_READ_ONLY_TABLES_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_READ_ONLY_TABLES_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/store.h"

namespace ksutil::exchange {

class ReadOnlyTables final : public db::Transaction {
 public:
  /* The schema must have all tables of the list. */
  ReadOnlyTables(db::DatabaseStore &store, const std::vector<std::string> &names) {
    for (const std::string &name : names) tables_.push_back(store.table(name));
  }
  const db::Relation &layout(std::size_t table) const override {
    return tables_[table]->layout();
  }
  std::shared_ptr<const db::Snapshot> snapshot(std::size_t table) override {
    return tables_[table]->snapshot();
  }
  long append(std::size_t, std::string_view) override { return 0; }
  bool overwrite(std::size_t, long, std::string_view) override { return true; }

 private:
  std::vector<db::TableStore *> tables_;
};

}  // namespace ksutil::exchange
#endif

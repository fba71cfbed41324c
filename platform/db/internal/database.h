/* Database: holds one open database of this process, its tables and views by number. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_DATABASE_H
#define KSUTIL_PLATFORM_DB_INTERNAL_DATABASE_H

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/internal/record_source.h"
#include "platform/db/internal/table_source.h"
#include "platform/db/schema.h"
#include "platform/db/store.h"
#include "platform/stock/owners.h"

namespace ksutil::db {

class GreatestIds;

/* The mutex guards all other members. */
class Database {
 public:
  explicit Database(std::unique_ptr<DatabaseStore> store);
  ~Database();

  std::mutex &mutex() { return mutex_; }
  DatabaseStore &store() { return *store_; }
  const Schema &schema() const { return *schema_; }

  /* The number of a table; -1 when the schema has none of that name. */
  int table_index(std::string_view name) const { return schema_->index(name); }

  /* The table or view of that number; null when there is none. */
  RecordSource *source(int table);
  TableSource *table(std::string_view name);

  /* Takes a view and returns its number, which no other view gets. */
  int add_view(std::unique_ptr<RecordSource> view);
  /* Frees a view; false when the number is not that of a view. */
  bool free_view(int number);

  /* Texts and lists of texts that live as long as the database. */
  const char *keep(const std::string &text);
  Tbl *keep_list(const std::string &key, const std::vector<std::string> &texts);

  GreatestIds &greatest_ids() { return *greatest_ids_; }

 private:
  std::mutex mutex_;
  std::unique_ptr<DatabaseStore> store_;
  std::shared_ptr<const Schema> schema_;
  std::vector<std::unique_ptr<RecordSource>>
      sources_;  // by number: first the tables, made when used, then the views
  std::set<std::string> texts_;
  std::map<std::string, TblPtr> lists_;
  std::unique_ptr<GreatestIds> greatest_ids_;
};

}  // namespace ksutil::db
#endif

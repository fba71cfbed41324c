#include "platform/db/internal/registry.h"

#include <atomic>
#include <climits>
#include <filesystem>
#include <stdexcept>
#include <unordered_map>

#include "platform/db/flat_files.h"
#include "platform/db/internal/boundary.h"
#include "platform/db/internal/greatest_ids.h"
#include "platform/elog/elog.h"

namespace ksutil::db {
namespace {

struct Registry {
  std::mutex mutex;  // guards all below
  int next = 0;      // numbers are never used again
  std::unordered_map<int, std::shared_ptr<Database>> open;

  struct Shared {
    int number;
    int users;
  };
  std::mutex opening;  // one dbopen at a time; taken before `mutex`
  std::map<std::pair<std::string, std::string>, Shared> shared;
};

/* Never destroyed: threads may still use databases while the process exits. */
Registry &registry() {
  static Registry &instance = *new Registry;
  return instance;
}

std::atomic<long> next_source{1};

std::string absolute(const char *name) {
  std::error_code error;
  const std::filesystem::path path = std::filesystem::absolute(name, error);
  return error ? std::string(name) : path.lexically_normal().string();
}

int open_new(const char *who, const char *name, const char *mode) {
  std::unique_ptr<DatabaseStore> store = open_flat_files(name, mode);
  const int number = store == nullptr ? -1 : register_database(std::move(store));
  if (number < 0) elog_log(0, "%s: cannot open database '%s'.\n", who, name);
  return number;
}

int open_shared(const char *name, const char *mode) {
  Registry &all = registry();
  const std::lock_guard opening(all.opening);
  const auto key = std::pair(absolute(name), std::string(mode));
  {
    const std::lock_guard lock(all.mutex);
    const auto found = all.shared.find(key);
    if (found != all.shared.end()) {
      ++found->second.users;
      return found->second.number;
    }
  }
  const int number = open_new("dbopen", name, mode);
  if (number < 0) return -1;
  const std::lock_guard lock(all.mutex);
  all.shared.emplace(key, Registry::Shared{number, 1});
  return number;
}

bool check_arguments(const char *who, const char *name, const char *mode) {
  if (name != nullptr && *name != '\0' && mode != nullptr) return true;
  elog_log(0, "%s: no database name or no mode.\n", who);
  return false;
}

}  // namespace

Database::Database(std::unique_ptr<DatabaseStore> store)
    : store_(std::move(store)),
      schema_(store_->schema()),
      sources_(schema_->relations().size()),
      greatest_ids_(std::make_unique<GreatestIds>()) {}

Database::~Database() = default;

RecordSource *Database::source(int table) {
  if (table < 0 || static_cast<std::size_t>(table) >= sources_.size()) return nullptr;
  std::unique_ptr<RecordSource> &source = sources_[static_cast<std::size_t>(table)];
  if (source == nullptr) {
    if (static_cast<std::size_t>(table) >= schema_->relations().size()) return nullptr;
    const std::string &name =
        schema_->relations()[static_cast<std::size_t>(table)].name;
    TableStore *const store = store_->table(name);
    if (store == nullptr) return nullptr;
    source = std::make_unique<TableSource>(*store, next_source++, store_->writable());
  }
  return source.get();
}

TableSource *Database::table(std::string_view name) {
  RecordSource *const found = source(table_index(name));
  return found == nullptr ? nullptr : found->table();
}

int Database::add_view(std::unique_ptr<RecordSource> view) {
  if (sources_.size() >= INT_MAX) throw std::length_error("too many views");
  sources_.push_back(std::move(view));
  return static_cast<int>(sources_.size()) - 1;
}

bool Database::free_view(int number) {
  const auto index = static_cast<std::size_t>(number);
  if (number < 0 || index < schema_->relations().size() || index >= sources_.size() ||
      sources_[index] == nullptr) {
    return false;
  }
  sources_[index] = nullptr;
  return true;
}

const char *Database::keep(const std::string &text) {
  return texts_.insert(text).first->c_str();
}

Tbl *Database::keep_list(const std::string &key,
                         const std::vector<std::string> &texts) {
  std::unique_ptr<Tbl, TblDeleter> &list = lists_[key];
  if (list == nullptr) {
    list.reset(newtbl(static_cast<long>(texts.size())));
    if (list == nullptr) throw std::bad_alloc();
    for (const std::string &text : texts) {
      if (pushtbl(list.get(), const_cast<char *>(keep(text))) < 0) {
        list.reset();
        throw std::bad_alloc();
      }
    }
  }
  return list.get();
}

int register_database(std::unique_ptr<DatabaseStore> store) {
  auto database = std::make_shared<Database>(std::move(store));
  Registry &all = registry();
  const std::lock_guard lock(all.mutex);
  if (all.next == INT_MAX) {
    elog_log(0, "db: this process has opened too many databases.\n");
    return -1;
  }
  all.open.emplace(all.next, std::move(database));
  return all.next++;
}

Opened::Opened(const char *who, Dbptr db) {
  {
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    const auto found = all.open.find(db.database);
    if (found != all.open.end()) database_ = found->second;
  }
  if (database_ != nullptr) {
    lock_ = std::unique_lock(database_->mutex());
  } else {
    elog_log(0, "%s: no open database %d.\n", who, db.database);
  }
}

RecordSource *Opened::source(const char *who, Dbptr db) const {
  RecordSource *const source = database_->source(db.table);
  if (source == nullptr) elog_log(0, "%s: no table is chosen.\n", who);
  return source;
}

TableSource *Opened::table(const char *who, Dbptr db) const {
  RecordSource *const found = source(who, db);
  if (found == nullptr) return nullptr;
  TableSource *const table = found->table();
  if (table == nullptr) {
    elog_log(0, "%s: '%s' is no table of the database.\n", who, found->name().c_str());
  }
  return table;
}

}  // namespace ksutil::db

using namespace ksutil::db;

int dbopen(const char *name, const char *mode, Dbptr *db) {
  return guarded("dbopen", -1, [&] {
    *db = dbinvalid();
    if (!check_arguments("dbopen", name, mode)) return -1;
    const int number = open_shared(name, mode);
    if (number < 0) return -1;
    *db = {number, dbALL, dbALL, dbALL};
    return 0;
  });
}

int dbopen_noshare(const char *name, const char *mode, Dbptr *db) {
  return guarded("dbopen_noshare", -1, [&] {
    *db = dbinvalid();
    if (!check_arguments("dbopen_noshare", name, mode)) return -1;
    const int number = open_new("dbopen_noshare", name, mode);
    if (number < 0) return -1;
    *db = {number, dbALL, dbALL, dbALL};
    return 0;
  });
}

int dbcreate(const char *name, const char *schema) {
  return guarded("dbcreate", -1, [&] {
    if (!check_arguments("dbcreate", name, schema)) return -1;
    if (create_flat_files(name, schema)) return 0;
    elog_log(0, "dbcreate: cannot make database '%s'.\n", name);
    return -1;
  });
}

int dbclose(Dbptr db) {
  return guarded("dbclose", -1, [&] {
    std::shared_ptr<Database> last;  // freed after the registry is unlocked
    Registry &all = registry();
    const std::lock_guard lock(all.mutex);
    const auto found = all.open.find(db.database);
    if (found == all.open.end()) {
      elog_log(0, "dbclose: no open database %d.\n", db.database);
      return -1;
    }
    for (auto shared = all.shared.begin(); shared != all.shared.end(); ++shared) {
      if (shared->second.number != db.database) continue;
      if (--shared->second.users > 0) return 0;
      all.shared.erase(shared);
      break;
    }
    last = std::move(found->second);
    all.open.erase(found);
    return 0;
  });
}

Dbptr dbtmp(const char *schema) {
  return guarded("dbtmp", dbinvalid(), [&] {
    std::unique_ptr<DatabaseStore> store =
        open_scratch(schema == nullptr ? "" : schema);
    const int number = store == nullptr ? -1 : register_database(std::move(store));
    if (number >= 0) return Dbptr{number, dbALL, dbALL, dbALL};
    elog_log(0, "dbtmp: cannot make a scratch database of schema '%s'.\n",
             schema == nullptr ? "" : schema);
    return dbinvalid();
  });
}

Dbptr dbinvalid(void) { return {dbINVALID, dbINVALID, dbINVALID, dbINVALID}; }

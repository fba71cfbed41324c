#include "platform/db/internal/registry.h"

#include <climits>
#include <filesystem>
#include <map>
#include <unordered_map>
#include <utility>

#include "platform/elog/failure.h"
#include "platform/stock/fspath.h"

namespace ksutil::db {
namespace {

struct Registry {
  std::mutex mutex;  // guards the members below
  int next = 0;      // a number is never used again
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

}  // namespace

int register_database(std::unique_ptr<DatabaseStore> store) {
  auto database = std::make_shared<Database>(std::move(store));
  Registry &all = registry();
  const std::lock_guard lock(all.mutex);
  if (all.next == INT_MAX) {
    return fail("db", "this process has opened too many databases");
  }
  all.open.emplace(all.next, std::move(database));
  return all.next++;
}

int share_database(const std::string &name, const std::string &mode,
                   const std::function<int()> &open) {
  Registry &all = registry();
  const std::lock_guard opening(all.opening);
  const auto key = std::pair(
      std::filesystem::path(absolute_path(name)).lexically_normal().string(), mode);
  {
    const std::lock_guard lock(all.mutex);
    const auto found = all.shared.find(key);
    if (found != all.shared.end()) {
      ++found->second.users;
      return found->second.number;
    }
  }
  const int number = open();
  if (number < 0) return -1;
  const std::lock_guard lock(all.mutex);
  all.shared.emplace(key, Registry::Shared{number, 1});
  return number;
}

bool release_database(int number) {
  std::shared_ptr<Database> last;  // freed after the registry is unlocked
  Registry &all = registry();
  const std::lock_guard lock(all.mutex);
  const auto found = all.open.find(number);
  if (found == all.open.end()) return false;
  for (auto shared = all.shared.begin(); shared != all.shared.end(); ++shared) {
    if (shared->second.number != number) continue;
    if (--shared->second.users > 0) return true;
    all.shared.erase(shared);
    break;
  }
  last = std::move(found->second);
  all.open.erase(found);
  return true;
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
    fail(who, "no open database %d", db.database);
  }
}

RecordSource *Opened::source(const char *who, Dbptr db) const {
  RecordSource *const source = database_->source(db.table);
  if (source == nullptr) fail(who, "no table is chosen");
  return source;
}

TableSource *Opened::table(const char *who, Dbptr db) const {
  RecordSource *const found = source(who, db);
  if (found == nullptr) return nullptr;
  TableSource *const table = found->table();
  if (table == nullptr) {
    fail(who, "'%s' is not a table of the database", found->name().c_str());
  }
  return table;
}

}  // namespace ksutil::db

#include "platform/db/db.h"

#include "platform/db/access.h"
#include "platform/db/internal/registry.h"
#include "platform/db/store/internal/flat_files.h"
#include "platform/db/store/internal/scratch_store.h"
#include "platform/elog/failure.h"

using namespace ksutil::db;
using ksutil::at_boundary;
using ksutil::fail;

namespace {

int open_new(const char *who, const char *name, const char *mode) {
  std::unique_ptr<DatabaseStore> store =
      open_store_within(name, mode, default_block_budget());
  const int number = store == nullptr ? -1 : register_database(std::move(store));
  if (number < 0) fail(who, "cannot open database '%s'", name);
  return number;
}

bool check_arguments(const char *who, const char *name, const char *mode) {
  if (name != nullptr && *name != '\0' && mode != nullptr) return true;
  return fail(who, "no database name or no mode");
}

}  // namespace

int dbopen(const char *name, const char *mode, Dbptr *db) {
  return at_boundary("dbopen", -1, [&] {
    *db = dbinvalid();
    if (!check_arguments("dbopen", name, mode)) return -1;
    const int number =
        share_database(name, mode, [&] { return open_new("dbopen", name, mode); });
    if (number < 0) return -1;
    *db = {number, dbALL, dbALL, dbALL};
    return 0;
  });
}

int dbopen_noshare(const char *name, const char *mode, Dbptr *db) {
  return at_boundary("dbopen_noshare", -1, [&] {
    *db = dbinvalid();
    if (!check_arguments("dbopen_noshare", name, mode)) return -1;
    const int number = open_new("dbopen_noshare", name, mode);
    if (number < 0) return -1;
    *db = {number, dbALL, dbALL, dbALL};
    return 0;
  });
}

int dbcreate(const char *name, const char *schema) {
  return at_boundary("dbcreate", -1, [&] {
    if (!check_arguments("dbcreate", name, schema)) return -1;
    if (create_flat_files(name, schema)) return 0;
    fail("dbcreate", "cannot make database '%s'", name);
    return -1;
  });
}

int dbclose(Dbptr db) {
  return at_boundary("dbclose", -1, [&] {
    if (release_database(db.database)) return 0;
    fail("dbclose", "no open database %d", db.database);
    return -1;
  });
}

Dbptr dbtmp(const char *schema) {
  return at_boundary("dbtmp", dbinvalid(), [&] {
    std::unique_ptr<DatabaseStore> store =
        open_scratch(schema == nullptr ? "" : schema);
    const int number = store == nullptr ? -1 : register_database(std::move(store));
    if (number >= 0) return Dbptr{number, dbALL, dbALL, dbALL};
    fail("dbtmp", "cannot make a scratch database of schema '%s'",
         schema == nullptr ? "" : schema);
    return dbinvalid();
  });
}

Dbptr dbinvalid(void) { return {dbINVALID, dbINVALID, dbINVALID, dbINVALID}; }

long dbnextid(Dbptr db, const char *key) { return reserve_ids(db, key, 1); }

#include "platform/db/postgresql/internal/pg_plugin.h"

#include "platform/db/postgresql/internal/pg_create.h"
#include "platform/db/postgresql/internal/pg_store.h"
#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

std::unique_ptr<DatabaseStore> open(const StoreDescriptor &descriptor, bool writable,
                                    std::size_t block_budget) {
  PgOptions options;
  if (!options.parse("dbopen", descriptor.connection)) {
    return fail("dbopen", "Cannot open %s", descriptor.name.c_str());
  }
  auto store =
      std::make_unique<PgStore>(descriptor, std::move(options), writable, block_budget);
  if (!store->open()) return nullptr;
  return store;
}

constexpr StorePlugin kPlugin{kStorePluginVersion, open, pg_create};

}  // namespace
}  // namespace ksutil::db

const ksutil::db::StorePlugin *ksutil_store_plugin() { return &ksutil::db::kPlugin; }

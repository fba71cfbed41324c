/* scratch_store: makes databases in memory, for dbtmp. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_SCRATCH_STORE_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_SCRATCH_STORE_H

#include <memory>
#include <string>

#include "platform/db/store.h"

namespace ksutil::db {

/* A database with empty tables; null, with a message, for an unknown schema. */
std::unique_ptr<DatabaseStore> open_scratch(const std::string &schema);

}  // namespace ksutil::db
#endif

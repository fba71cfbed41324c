/* next_ids: counts a counter of the table lastid on. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_NEXT_ID_H
#define KSUTIL_PLATFORM_DB_INTERNAL_NEXT_ID_H

#include "platform/db/internal/database.h"

namespace ksutil::db {

/* The first of `count` new ids of the counter; -1 with a message. */
long next_ids(Database &database, const char *key, long count);

}  // namespace ksutil::db
#endif

/* next_ids: takes ids from a counter of the table lastid. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_NEXT_ID_H
#define KSUTIL_PLATFORM_DB_INTERNAL_NEXT_ID_H

#include "platform/db/internal/database.h"

namespace ksutil::db {

/* The first of `count` new ids of the counter; -1 with a message. */
long next_ids(Database &database, const char *key, long count);

}  // namespace ksutil::db
#endif

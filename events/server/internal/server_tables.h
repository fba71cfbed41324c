/* server_tables: opens the tables of a server's database. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_SERVER_TABLES_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_SERVER_TABLES_H

#include <atomic>
#include <cstdint>
#include <string>

#include "events/database/internal/watched_database.h"
#include "events/vars.h"

namespace ksutil::events {

/* Opens a table of `db` into `opened`; false with EVServer::openTable's messages, and
 * `opened` untouched. */
bool open_table(Dbptr db, const std::string &name, int remote_mount_mode,
                EVTable &opened);

/* What a server's WatchedDatabase is to open, and how.  Refers to the mode, which is
 * read whenever a table is opened. */
DatabaseOwner server_database(const std::atomic<int32_t> &remote_mount_mode);

}  // namespace ksutil::events
#endif

/* The server's tables: opening them, and telling how they have changed.
 * The callers hold ServerState::database_lock. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_TABLES_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_TABLES_H

#include <string>

#include "events/database/internal/match_hooks.h"
#include "events/server/internal/server_state.h"
#include "events/vars.h"

namespace ksutil::events {

/* Opens a table of `db` into `opened`; false with EVServer::openTable's messages. */
bool open_table(Dbptr db, const std::string &name, int remote_mount_mode,
                EVTable &opened);

/* EVServer::checkTable. */
int check_table(EVTable &table, int update);

/* Whether a database is open; logs "<function>: No database currently open.\n" if
 * not. */
bool database_open(const ServerState &state, const char *function);

/* The table of that name; null, with a message of `function`, when it is not
 * watched. */
EVTable *watched_table(ServerState &state, const std::string &name,
                       const char *function);

/* Makes the next refresh read everything anew. */
void forget_tables(ServerState &state);

}  // namespace ksutil::events
#endif

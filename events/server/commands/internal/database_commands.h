/* database_commands: the commands that hand the platform's database operations to
 * clients.  The members of EVServer with the same names have the contracts.
 *
 * They run on the worker or on a caller's thread, hold the database lock in short steps
 * and must be called without it.  Each reports a failure in the error register and then
 * returns an empty result, -1 for a status or an id. */
#ifndef KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_DATABASE_COMMANDS_H
#define KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_DATABASE_COMMANDS_H

#include <cstdint>
#include <functional>
#include <string>

#include "core/Table.h"
#include "events/records.h"
#include "platform/stock/hook.h"
#include "platform/stock/tbl.h"

namespace ksutil::events {

struct ServerState;

Table<EVTableRecord> exec_dbmatches(ServerState &state, const std::string &key_table,
                                    const std::string &key_record,
                                    const std::string &table, Tbl **kpattern,
                                    Tbl **tpattern, Hook **hook);
Table<EVTableRecord> exec_dbsubset(ServerState &state, const std::string &table,
                                   const std::string &expression);
/* wanted: asked while another program holds the lock; false ends the command.  Empty: the
 * command waits as long as it takes. */
int64_t exec_dbputrecord(ServerState &state, const std::string &table, int64_t recno,
                         int64_t flags, const std::string &record,
                         const std::function<bool()> &wanted = {});
int64_t exec_dbnextid(ServerState &state, const std::string &key,
                      const std::function<bool()> &wanted = {});

}  // namespace ksutil::events
#endif

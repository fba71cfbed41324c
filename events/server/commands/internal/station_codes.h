/* station_codes: maps codes of the database to those of SEED volumes and back.  The
 * members of EVServer with the same names have the contracts.
 *
 * They run on the worker or on a caller's thread, hold the database lock in short steps
 * and must be called without it.  Each reports a failure in the error register and then
 * returns an empty result, -1 for a status or an id. */
#ifndef KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_STATION_CODES_H
#define KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_STATION_CODES_H

#include <cstdint>
#include <string>

namespace ksutil::events {

struct ServerState;

/* The result of a mapping; each mapping uses some of the texts. */
struct CodeMapping {
  int64_t status = -1;
  std::string out1, out2, out3, out4;
};

CodeMapping exec_dbseed2css(ServerState &state, const std::string &net,
                            const std::string &sta, const std::string &chan,
                            const std::string &loc);
CodeMapping exec_dbcss2seed(ServerState &state, const std::string &sta,
                            const std::string &chan);

}  // namespace ksutil::events
#endif

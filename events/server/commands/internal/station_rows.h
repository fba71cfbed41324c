/* station_rows: the commands that select rows by station, channel and time.  The
 * members of EVServer with the same names have the contracts.
 *
 * They run on the worker or on a caller's thread, hold the database lock in short steps
 * and must be called without it.  Each reports a failure in the error register and then
 * returns an empty result, -1 for a status or an id. */
#ifndef KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_STATION_ROWS_H
#define KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_STATION_ROWS_H

#include <string>

#include "core/Table.h"
#include "events/records.h"

namespace ksutil::events {

struct ServerState;

/* The selection of a command: shell patterns (empty: any) and a window, ends
 * included. */
struct Selection {
  std::string sta, chan;
  double tstart = 0.0, tend = 0.0;
};

Table<EVArrival> get_arrivals(ServerState &state, const Selection &selection);
Table<EVTableRecord> get_wfdiscs(ServerState &state, const Selection &selection,
                                 int mode);
/* The texts of the selection and those to leave out are regular expressions. */
Table<EVStaChan> scan_wfdisc(ServerState &state, const Selection &selection,
                             const std::string &not_sta, const std::string &not_chan);
Table<EVTableRecord> get_raw_detections(ServerState &state, const Selection &selection);
EVTableRecord get_site(ServerState &state, const std::string &sta, double time);

}  // namespace ksutil::events
#endif

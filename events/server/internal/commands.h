/* The operations behind the database commands; EVServer's members of like names tell what
 * they mean.
 *
 * They run on the worker or on a caller's thread, hold the database lock in short steps
 * and must be called without it.  Each reports a failure in the error register and then
 * returns an empty result, -1 for a status or an id. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_COMMANDS_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_COMMANDS_H

#include <cstdint>
#include <string>

#include "core/Table.h"
#include "events/records.h"
#include "platform/stock/hook.h"
#include "platform/stock/tbl.h"

namespace ksutil::events {

struct ServerState;

/* What a command selects by: shell patterns (empty: any), and a window, ends included. */
struct Selection {
  std::string sta, chan;
  double tstart = 0.0, tend = 0.0;
};

/* The texts that a mapping of station codes gives; each mapping uses some of them. */
struct CodeMapping {
  int64_t status = -1;
  std::string out1, out2, out3, out4;
};

Table<EVArrival> get_arrivals(ServerState &state, const Selection &selection);
Table<EVTableRecord> get_wfdiscs(ServerState &state, const Selection &selection,
                                 int mode);
/* The texts of the selection, and those to leave out, are regular expressions. */
Table<EVStaChan> scan_wfdisc(ServerState &state, const Selection &selection,
                             const std::string &not_sta, const std::string &not_chan);
Table<EVTableRecord> get_raw_detections(ServerState &state, const Selection &selection);
EVTableRecord get_site(ServerState &state, const std::string &sta, double time);

Table<EVTableRecord> exec_dbmatches(ServerState &state, const std::string &key_table,
                                    const std::string &key_record,
                                    const std::string &table, Tbl **kpattern,
                                    Tbl **tpattern, Hook **hook);
Table<EVTableRecord> exec_dbsubset(ServerState &state, const std::string &table,
                                   const std::string &expression);
int64_t exec_dbputrecord(ServerState &state, const std::string &table, int64_t recno,
                         int64_t flags, const std::string &record);
int64_t exec_dbnextid(ServerState &state, const std::string &key);

CodeMapping exec_dbseed2css(ServerState &state, const std::string &net,
                            const std::string &sta, const std::string &chan,
                            const std::string &loc);
CodeMapping exec_dbcss2seed(ServerState &state, const std::string &sta,
                            const std::string &chan);

}  // namespace ksutil::events
#endif

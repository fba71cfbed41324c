/* The operations that the database commands run, on the worker thread.
 *
 * Each reports a failure in the error register and then returns an empty result, -1 for a
 * status or an id. */
#ifndef KSUTIL_EVENTS_INTERNAL_COMMANDS_H
#define KSUTIL_EVENTS_INTERNAL_COMMANDS_H

#include <cstdint>
#include <string>

#include "core/Table.h"
#include "events/command.h"
#include "events/records.h"

namespace ksutil::events {

struct ServerState;

/* The texts that a mapping of station codes gives; each mapping uses some of them. */
struct CodeMapping {
  int64_t status = -1;
  std::string out1, out2, out3, out4;
};

Table<EVArrival> get_arrivals(ServerState &state, const EVCommand &command);
Table<EVTableRecord> get_wfdiscs(ServerState &state, const EVCommand &command);
Table<EVStaChan> scan_wfdisc(ServerState &state, const EVCommand &command);
Table<EVTableRecord> get_raw_detections(ServerState &state, const EVCommand &command);
EVTableRecord get_site(ServerState &state, const EVCommand &command);
Table<EVTableRecord> exec_dbmatches(ServerState &state, const EVCommand &command);
Table<EVTableRecord> exec_dbsubset(ServerState &state, const EVCommand &command);
int64_t exec_dbputrecord(ServerState &state, const EVCommand &command);
int64_t exec_dbnextid(ServerState &state, const EVCommand &command);
CodeMapping exec_dbseed2css(ServerState &state, const EVCommand &command);
CodeMapping exec_dbcss2seed(ServerState &state, const EVCommand &command);

}  // namespace ksutil::events
#endif

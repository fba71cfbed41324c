#include <utility>

#include "events/evserver.h"
#include "events/server/commands/internal/database_commands.h"
#include "events/server/commands/internal/station_codes.h"
#include "events/server/commands/internal/station_rows.h"
#include "events/server/internal/server_state.h"

using namespace ksutil::events;

Table<EVArrival> EVServer::getArrivals(std::string sta, std::string chan, double tstart,
                                       double tend) {
  return get_arrivals(*state_, {std::move(sta), std::move(chan), tstart, tend});
}

Table<EVTableRecord> EVServer::getWfdiscs(std::string sta, std::string chan,
                                          double tstart, double tend, int mode) {
  return get_wfdiscs(*state_, {std::move(sta), std::move(chan), tstart, tend}, mode);
}

Table<EVStaChan> EVServer::scanWfdisc(std::string sta, std::string chan,
                                      std::string not_sta, std::string not_chan,
                                      double tstart, double tend) {
  return scan_wfdisc(*state_, {std::move(sta), std::move(chan), tstart, tend}, not_sta,
                     not_chan);
}

Table<EVTableRecord> EVServer::getRawDetections(std::string sta, std::string chan,
                                                double tstart, double tend) {
  return get_raw_detections(*state_, {std::move(sta), std::move(chan), tstart, tend});
}

EVTableRecord EVServer::getSite(std::string sta, double time) {
  return get_site(*state_, sta, time);
}

Table<EVTableRecord> EVServer::execDbmatches(std::string key_table,
                                             std::string key_record, std::string table,
                                             Tbl **kpattern, Tbl **tpattern,
                                             Hook **hook) {
  return exec_dbmatches(*state_, key_table, key_record, table, kpattern, tpattern,
                        hook);
}

Table<EVTableRecord> EVServer::execDbsubset(std::string table, std::string expression) {
  return exec_dbsubset(*state_, table, expression);
}

long EVServer::dbputrecord(std::string table, long recno, long flags,
                           std::string record) {
  return exec_dbputrecord(*state_, table, recno, flags, record);
}

long EVServer::execDbnextid(std::string key) { return exec_dbnextid(*state_, key); }

int EVServer::execDbseed2css(std::string net, std::string sta, std::string chan,
                             std::string loc, std::string &css_sta,
                             std::string &css_chan) {
  CodeMapping mapping = exec_dbseed2css(*state_, net, sta, chan, loc);
  css_sta = std::move(mapping.out2);
  css_chan = std::move(mapping.out3);
  return static_cast<int>(mapping.status);
}

int EVServer::execDbcss2seed(std::string sta, std::string chan, std::string &net,
                             std::string &seed_sta, std::string &seed_chan,
                             std::string &loc) {
  CodeMapping mapping = exec_dbcss2seed(*state_, sta, chan);
  net = std::move(mapping.out1);
  seed_sta = std::move(mapping.out2);
  seed_chan = std::move(mapping.out3);
  loc = std::move(mapping.out4);
  return static_cast<int>(mapping.status);
}

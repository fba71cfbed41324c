#include "events/internal/commands.h"

#include "core/register.h"

namespace ksutil::events {

namespace {

void not_offered(const EVCommand &command) {
  ks_register_error(0, "EVServer::%s: this server does not offer the command.\n",
                    command.command.c_str());
}

}  // namespace

Table<EVArrival> get_arrivals(ServerState &, const EVCommand &command) {
  not_offered(command);
  return {};
}

Table<EVTableRecord> get_wfdiscs(ServerState &, const EVCommand &command) {
  not_offered(command);
  return {};
}

Table<EVStaChan> scan_wfdisc(ServerState &, const EVCommand &command) {
  not_offered(command);
  return {};
}

Table<EVTableRecord> get_raw_detections(ServerState &, const EVCommand &command) {
  not_offered(command);
  return {};
}

EVTableRecord get_site(ServerState &, const EVCommand &command) {
  not_offered(command);
  return {};
}

Table<EVTableRecord> exec_dbmatches(ServerState &, const EVCommand &command) {
  not_offered(command);
  return {};
}

Table<EVTableRecord> exec_dbsubset(ServerState &, const EVCommand &command) {
  not_offered(command);
  return {};
}

int64_t exec_dbputrecord(ServerState &, const EVCommand &command) {
  not_offered(command);
  return -1;
}

int64_t exec_dbnextid(ServerState &, const EVCommand &command) {
  not_offered(command);
  return -1;
}

CodeMapping exec_dbseed2css(ServerState &, const EVCommand &command) {
  not_offered(command);
  return {};
}

CodeMapping exec_dbcss2seed(ServerState &, const EVCommand &command) {
  not_offered(command);
  return {};
}

}  // namespace ksutil::events

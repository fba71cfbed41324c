#include "events/internal/dispatch.h"

#include <exception>
#include <utility>

#include "core/register.h"
#include "events/evclient.h"
#include "events/evserver.h"
#include "events/internal/commands.h"
#include "events/internal/server_state.h"

namespace ksutil::events {

namespace {

/* Runs an operation; an exception becomes a message. */
template <class Operation>
void attempt(const EVCommand &command, const Operation &operation) {
  try {
    operation();
  } catch (const std::exception &error) {
    ks_register_error(0, "EVServer::%s: %s.\n", command.command.c_str(), error.what());
  } catch (...) {
    ks_register_error(0, "EVServer::%s: unknown exception.\n", command.command.c_str());
  }
}

void refresh(ServerState &state, EVCommand &command, int force) {
  attempt(command, [&] { state.server->refreshEvents(force); });
  /* The refresh has released the registered clients; this also releases one that has
   * registered only since. */
  state.clients.while_registered(command.client,
                                 [](EVClient &client) { client.refresh_pending = 0; });
  state.handshake.unlock();
}

void refresh_events(ServerState &state, EVCommand &command) {
  refresh(state, command, 0);
}

void refresh_events_force(ServerState &state, EVCommand &command) {
  refresh(state, command, 1);
}

void check_database(ServerState &state, EVCommand &command) {
  attempt(command, [&] { state.server->checkDatabase(); });
  state.clients.while_registered(command.client,
                                 [](EVClient &client) { client.command_pending = 0; });
}

/* Runs an operation and stores its result in the client, unless that has gone meanwhile;
 * `none` is stored when the operation has thrown. */
template <class Result>
void answer(ServerState &state, EVCommand &command,
            Result (*operation)(ServerState &, const EVCommand &), Result none,
            void (*store)(EVClient &, Result &&)) {
  Result result = std::move(none);
  attempt(command, [&] { result = operation(state, command); });
  state.clients.while_registered(command.client, [&](EVClient &client) {
    store(client, std::move(result));
    client.command_pending = 0;
  });
}

void store_records(EVClient &client, Table<EVTableRecord> &&records) {
  client.records = std::move(records);
}

void arrivals(ServerState &state, EVCommand &command) {
  answer<Table<EVArrival>>(state, command, get_arrivals, {},
                           [](EVClient &client, Table<EVArrival> &&arrivals) {
                             client.arrivals = std::move(arrivals);
                           });
}

void wfdiscs(ServerState &state, EVCommand &command) {
  answer<Table<EVTableRecord>>(state, command, get_wfdiscs, {}, store_records);
}

void stachans(ServerState &state, EVCommand &command) {
  answer<Table<EVStaChan>>(state, command, scan_wfdisc, {},
                           [](EVClient &client, Table<EVStaChan> &&stachans) {
                             client.stachans = std::move(stachans);
                           });
}

void raw_detections(ServerState &state, EVCommand &command) {
  answer<Table<EVTableRecord>>(state, command, get_raw_detections, {}, store_records);
}

void site(ServerState &state, EVCommand &command) {
  answer<EVTableRecord>(
      state, command, get_site, {},
      [](EVClient &client, EVTableRecord &&site) { client.site = std::move(site); });
}

void matches(ServerState &state, EVCommand &command) {
  answer<Table<EVTableRecord>>(state, command, exec_dbmatches, {}, store_records);
}

void subset(ServerState &state, EVCommand &command) {
  answer<Table<EVTableRecord>>(state, command, exec_dbsubset, {}, store_records);
}

void putrecord(ServerState &state, EVCommand &command) {
  answer<int64_t>(state, command, exec_dbputrecord, -1,
                  [](EVClient &client, int64_t &&status) { client.status = status; });
}

void nextid(ServerState &state, EVCommand &command) {
  answer<int64_t>(state, command, exec_dbnextid, -1,
                  [](EVClient &client, int64_t &&id) { client.nextid = id; });
}

void seed2css(ServerState &state, EVCommand &command) {
  answer<CodeMapping>(state, command, exec_dbseed2css, {},
                      [](EVClient &client, CodeMapping &&mapping) {
                        client.out2 = std::move(mapping.out2);
                        client.out3 = std::move(mapping.out3);
                        client.status = mapping.status;
                      });
}

void css2seed(ServerState &state, EVCommand &command) {
  answer<CodeMapping>(state, command, exec_dbcss2seed, {},
                      [](EVClient &client, CodeMapping &&mapping) {
                        client.out1 = std::move(mapping.out1);
                        client.out2 = std::move(mapping.out2);
                        client.out3 = std::move(mapping.out3);
                        client.out4 = std::move(mapping.out4);
                        client.status = mapping.status;
                      });
}

struct Entry {
  const char *name;
  void (*run)(ServerState &, EVCommand &);
};

constexpr Entry kEntries[] = {
    {"refreshEvents", refresh_events},
    {"refreshEventsForce", refresh_events_force},
    {"checkDatabase", check_database},
    {"getArrivals", arrivals},
    {"getWfdiscs", wfdiscs},
    {"scanWfdisc", stachans},
    {"getRawDetections", raw_detections},
    {"getSite", site},
    {"dbmatches", matches},
    {"dbsubset", subset},
    {"dbputrecord", putrecord},
    {"dbnextid", nextid},
    {"dbseed2css", seed2css},
    {"dbcss2seed", css2seed},
};

}  // namespace

void dispatch(ServerState &state, EVCommand &command) {
  for (const Entry &entry : kEntries) {
    if (command.command == entry.name) {
      entry.run(state, command);
      return;
    }
  }
}

}  // namespace ksutil::events

#include "events/server/commands/internal/dispatch.h"

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "events/evclient.h"
#include "events/evserver.h"
#include "events/server/commands/internal/database_commands.h"
#include "events/server/commands/internal/station_codes.h"
#include "events/server/commands/internal/station_rows.h"
#include "events/server/internal/server_state.h"
#include "platform/elog/failure.h"

namespace ksutil::events {

namespace {

/* Runs an operation and turns an exception into a message. */
template <class Operation>
void attempt(const EVCommand &command, const Operation &operation) {
  const std::string who = "EVServer::" + command.command;
  try {
    operation();
  } catch (const std::exception &error) {
    fail(who.c_str(), "%s", error.what());
  } catch (...) {
    fail(who.c_str(), "unknown exception");
  }
}

/* Runs `write` only if the client still waits for this command.  A client that has
 * deregistered may wait for another command by now, or another client may be at its
 * address. */
template <class Write>
void while_waiting(ServerState &state, const EVCommand &command, const Write &write) {
  state.clients.while_registered(command.client, [&](EVClient &client) {
    if (client.command_serial == command.serial) write(client);
  });
}

/* Whether the result of a command is still wanted, for one that waits for another program:
 * its client waits, and the server does not end. */
std::function<bool()> wanted(ServerState &state, const EVCommand &command) {
  return [&] {
    bool waits = false;
    while_waiting(state, command, [&](EVClient &) { waits = true; });
    return waits && !state.stop.is_set();
  };
}

void refresh(ServerState &state, EVCommand &command, int force) {
  attempt(command, [&] { state.server->refreshEvents(force); });
  /* The refresh has released the clients that were registered then; this also releases
   * one that has registered since. */
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
  while_waiting(state, command, [](EVClient &client) { client.command_pending = 0; });
}

/* Runs an operation and stores its result in the client if it still waits; stores
 * `none` if the operation throws. */
template <class Result, class Operation>
void answer(ServerState &state, EVCommand &command, Result none,
            const Operation &operation, void (*store)(EVClient &, Result &&)) {
  Result result = std::move(none);
  attempt(command, [&] { result = operation(); });
  while_waiting(state, command, [&](EVClient &client) {
    store(client, std::move(result));
    client.command_pending = 0;
  });
}

template <class Operation>
void answer_records(ServerState &state, EVCommand &command,
                    const Operation &operation) {
  answer<Table<EVTableRecord>>(state, command, {}, operation,
                               [](EVClient &client, Table<EVTableRecord> &&records) {
                                 client.records = std::move(records);
                               });
}

Selection selection_of(const EVCommand &command) {
  return {command.sta, command.chan, command.tstart, command.tend};
}

void arrivals(ServerState &state, EVCommand &command) {
  answer<Table<EVArrival>>(
      state, command, {}, [&] { return get_arrivals(state, selection_of(command)); },
      [](EVClient &client, Table<EVArrival> &&arrivals) {
        client.arrivals = std::move(arrivals);
      });
}

void wfdiscs(ServerState &state, EVCommand &command) {
  answer_records(state, command, [&] {
    return get_wfdiscs(state, selection_of(command), command.mode);
  });
}

void stachans(ServerState &state, EVCommand &command) {
  answer<Table<EVStaChan>>(
      state, command, {},
      [&] {
        return scan_wfdisc(state, selection_of(command), command.text3, command.text4);
      },
      [](EVClient &client, Table<EVStaChan> &&stachans) {
        client.stachans = std::move(stachans);
      });
}

void raw_detections(ServerState &state, EVCommand &command) {
  answer_records(state, command,
                 [&] { return get_raw_detections(state, selection_of(command)); });
}

void site(ServerState &state, EVCommand &command) {
  answer<EVTableRecord>(
      state, command, {}, [&] { return get_site(state, command.sta, command.tstart); },
      [](EVClient &client, EVTableRecord &&site) { client.site = std::move(site); });
}

/* MatchArguments: the patterns and the hook of a match.  They belong to the caller of
 * the client and may be used only while the client waits.  The match therefore works on
 * copies of the lists and takes the hook; at the end the lists that it has filled in
 * and the hook are put back, or freed if the client no longer waits. */
class MatchArguments {
 public:
  explicit MatchArguments(const EVCommand &command) : command_(command) {}

  /* False, with a message, if a pointer is null. */
  bool take() {
    if (command_.kpattern == nullptr || command_.tpattern == nullptr ||
        command_.hook == nullptr) {
      return fail("EVServer::execDbmatches", "no place for patterns or hook");
    }
    match = EVMatch(*command_.kpattern, *command_.tpattern);
    std::swap(match.hook, *command_.hook);
    return true;
  }

  void put_back() {
    if (*command_.kpattern == nullptr) std::swap(*command_.kpattern, match.kpattern);
    if (*command_.tpattern == nullptr) std::swap(*command_.tpattern, match.tpattern);
    std::swap(*command_.hook, match.hook);
  }

  EVMatch match;

 private:
  const EVCommand &command_;
};

void matches(ServerState &state, EVCommand &command) {
  MatchArguments arguments(command);
  bool taken = false;
  attempt(command, [&] {
    while_waiting(state, command, [&](EVClient &) { taken = arguments.take(); });
  });
  Table<EVTableRecord> records;
  if (taken) {
    attempt(command, [&] {
      EVMatch &match = arguments.match;
      records = exec_dbmatches(state, command.db1, command.db2, command.db3,
                               &match.kpattern, &match.tpattern, &match.hook);
    });
  }
  while_waiting(state, command, [&](EVClient &client) {
    if (taken) arguments.put_back();
    client.records = std::move(records);
    client.command_pending = 0;
  });
}

void subset(ServerState &state, EVCommand &command) {
  answer_records(state, command,
                 [&] { return exec_dbsubset(state, command.db1, command.db2); });
}

void putrecord(ServerState &state, EVCommand &command) {
  answer<int64_t>(
      state, command, -1,
      [&] {
        return exec_dbputrecord(state, command.db1, command.num1, command.num2,
                                command.db2, wanted(state, command));
      },
      [](EVClient &client, int64_t &&status) { client.status = status; });
}

void nextid(ServerState &state, EVCommand &command) {
  answer<int64_t>(
      state, command, -1,
      [&] { return exec_dbnextid(state, command.db1, wanted(state, command)); },
      [](EVClient &client, int64_t &&id) { client.nextid = id; });
}

void seed2css(ServerState &state, EVCommand &command) {
  answer<CodeMapping>(
      state, command, {},
      [&] {
        return exec_dbseed2css(state, command.seed1, command.seed2, command.seed3,
                               command.seed4);
      },
      [](EVClient &client, CodeMapping &&mapping) {
        client.out2 = std::move(mapping.out2);
        client.out3 = std::move(mapping.out3);
        client.status = mapping.status;
      });
}

void css2seed(ServerState &state, EVCommand &command) {
  answer<CodeMapping>(
      state, command, {},
      [&] { return exec_dbcss2seed(state, command.sta, command.chan); },
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

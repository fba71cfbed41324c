#include "events/event_rows.h"

#include <algorithm>
#include <vector>

#include "events/reading/internal/read_rows.h"
#include "events/server/internal/live_servers.h"
#include "events/server/internal/server_state.h"
#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

constexpr const char *kWho = "each_event";
constexpr long kEventsPerReading = 512;  // under one hold of the lock

/* Reads the events of rows first .. end-1; false when the tables cannot be had. */
bool read_events(TreeReader &reader, long first, long end, long &order,
                 std::vector<EVEvent> &events) {
  MessagesOfFailure messages;
  events.clear();
  for (long recno = first; recno < end; recno++) {
    EVEvent event;
    const int result = messages.note(reader.read_event(recno, event, &order));
    if (result < 0) return false;
    if (result == 0) events.push_back(std::move(event));
  }
  return true;
}

int read_all(WatchedDatabase &database,
             const std::function<bool(EVEvent &event)> &take) {
  Steps steps(database, 1);
  if (!database.require_open(kWho)) return -1;
  TreeReader reader(database);
  if (!reader.bind(kReadList)) return fail(kWho, "%s", kTablesUnreadable);
  std::vector<EVEvent> events;
  long order = 0;
  for (long first = 0; first < reader.event_count();) {
    const long end = std::min(first + kEventsPerReading, reader.event_count());
    if (!read_events(reader, first, end, order, events)) {
      return fail(kWho, "%s", kTablesUnreadable);
    }
    first = end;
    steps.let_go();
    for (EVEvent &event : events) {
      if (!take(event)) return 0;
    }
    if (!steps.take_again(reader)) return fail(kWho, "%s", kTablesUnreadable);
  }
  return reader.complete() ? 0 : fail(kWho, "%s", kTablesUnreadable);
}

}  // namespace

int each_event(EVServer &server, const std::function<bool(EVEvent &event)> &take) {
  const ServerPin pin(&server);
  if (pin.state() == nullptr) return fail(kWho, "the server has ended");
  return at_boundary(kWho, -1, [&] { return read_all(pin.state()->database, take); });
}

}  // namespace ksutil::events

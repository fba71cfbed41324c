#include "events/event_rows.h"

#include <algorithm>
#include <vector>

#include "events/reading/internal/read_rows.h"
#include "events/server/internal/live_servers.h"
#include "events/server/internal/server_state.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

constexpr const char *kWho = "each_event";
constexpr long kEventsPerReading = 512;  // under one hold of the lock

/* Where a listing stands. */
struct Progress {
  long first = 0;  // row of the next event
  long order = 0;
};

/* Reads the events of the next rows; false when the tables cannot be had. */
bool read_next(TreeReader &reader, Progress &progress, std::vector<EVEvent> &events) {
  MessagesOfFailure messages;
  events.clear();
  long order = progress.order;
  const long end = std::min(progress.first + kEventsPerReading, reader.event_count());
  for (long recno = progress.first; recno < end; recno++) {
    EVEvent event;
    const int result = messages.note(reader.read_event(recno, event, &order));
    if (result < 0) return false;
    if (result == 0) events.push_back(std::move(event));
  }
  progress.first = end;
  progress.order = order;
  return true;
}

/* Reads on from where the listing stands; false when the tables cannot be had. */
bool read_on(TreeReader &reader, Steps &steps, Progress &progress,
             const std::function<bool(EVEvent &event)> &take) {
  std::vector<EVEvent> events;
  while (progress.first < reader.event_count()) {
    if (!read_next(reader, progress, events)) return false;
    steps.let_go();
    for (EVEvent &event : events) {
      if (!take(event)) return true;
    }
    if (!steps.take_again(reader)) return false;
  }
  return reader.complete();
}

int read_all(WatchedDatabase &database,
             const std::function<bool(EVEvent &event)> &take) {
  Steps steps(database, 1);
  if (!database.require_open(kWho)) return -1;
  Progress progress;
  const int mark = elog_mark();
  for (int attempt = 1; attempt <= kReadingAttempts; attempt++) {
    TreeReader reader(database);
    const long before = progress.first;
    if (reader.bind(kReadList) && read_on(reader, steps, progress, take)) return 0;
    if (!reader.overtaken()) break;
    /* Rows have been overwritten that were no longer in memory: go on with new ones. */
    if (progress.first > before) attempt = 0;
    elog_flush(0, mark);
  }
  return fail(kWho, "%s", kTablesUnreadable);
}

}  // namespace

int each_event(EVServer &server, const std::function<bool(EVEvent &event)> &take) {
  const ServerPin pin(&server);
  if (pin.state() == nullptr) return fail(kWho, "the server has ended");
  return at_boundary(kWho, -1, [&] { return read_all(pin.state()->database, take); });
}

}  // namespace ksutil::events

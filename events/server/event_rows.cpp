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

constexpr const char *kEachEvent = "each_event";
constexpr long kEventsPerReading = 512;  // under one hold of the lock

using Wanted = std::function<bool(const EVEvent &outline)>;

/* A listing, and where it stands. */
struct Listing {
  const Wanted &wanted;  // empty: all
  const std::function<bool(EVEvent &event)> &take;
  long first = 0;  // row of the next event
  long order = 0;
};

/* Whether the event of a row need not be read whole; the order then counts it. */
bool left_out(TreeReader &reader, long recno, const Wanted &wanted, long &order) {
  if (!wanted) return false;
  EVEvent outline;
  long next = order;
  if (reader.read_outline(recno, outline, &next) != 0 || wanted(outline)) return false;
  order = next;
  return true;
}

/* Reads the events of the next rows; false when the tables cannot be had. */
bool read_next(TreeReader &reader, Listing &listing, std::vector<EVEvent> &events) {
  MessagesOfFailure messages;
  events.clear();
  long order = listing.order;
  const long end = std::min(listing.first + kEventsPerReading, reader.event_count());
  for (long recno = listing.first; recno < end; recno++) {
    if (left_out(reader, recno, listing.wanted, order)) continue;
    EVEvent event;
    const int result = messages.note(reader.read_event(recno, event, &order));
    if (result < 0) return false;
    if (result == 0) events.push_back(std::move(event));
  }
  listing.first = end;
  listing.order = order;
  return true;
}

/* Reads on from where the listing stands; false when the tables cannot be had. */
bool read_on(TreeReader &reader, Steps &steps, Listing &listing) {
  std::vector<EVEvent> events;
  while (listing.first < reader.event_count()) {
    if (!read_next(reader, listing, events)) return false;
    steps.let_go();
    for (EVEvent &event : events) {
      if (!listing.take(event)) return true;
    }
    if (!steps.take_again(reader)) return false;
  }
  return reader.complete();
}

int read_all(WatchedDatabase &database, Listing listing) {
  Steps steps(database, 1);
  if (!database.require_open(kEachEvent)) return -1;
  const int mark = elog_mark();
  for (int attempt = 1; attempt <= kReadingAttempts; attempt++) {
    TreeReader reader(database);
    const long before = listing.first;
    if (reader.bind(kReadList) && read_on(reader, steps, listing)) return 0;
    if (!reader.overtaken()) break;
    /* Rows have been overwritten that were no longer in memory: go on with new ones. */
    if (listing.first > before) attempt = 0;
    elog_flush(0, mark);
  }
  return fail(kEachEvent, "%s", kTablesUnreadable);
}

}  // namespace

int each_event(EVServer &server, const std::function<bool(EVEvent &event)> &take) {
  return each_event(server, Wanted(), take);
}

int each_event(EVServer &server,
               const std::function<bool(const EVEvent &outline)> &wanted,
               const std::function<bool(EVEvent &event)> &take) {
  const ServerPin pin(&server);
  if (pin.state() == nullptr) return fail(kEachEvent, "the server has ended");
  return at_boundary(kEachEvent, -1, [&] {
    return read_all(pin.state()->database, Listing{wanted, take});
  });
}

}  // namespace ksutil::events

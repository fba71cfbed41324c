/* event_rows: reads the events of a server's database one after the other, without keeping
 * a list of them. */
#ifndef KSUTIL_EVENTS_EVENT_ROWS_H
#define KSUTIL_EVENTS_EVENT_ROWS_H

#include <functional>

#include "events/records.h"
#include "platform/stock/export.h"

class EVServer;

namespace ksutil::events {

/* Calls take(event) for each event of the database, in the order of the event table, until
 * it gives false.  Each is as a server without a limit would have it in its list: rows that
 * cannot be read are left out without a message.  All events are of one state of the
 * database, unless a program overwrites rows that are not in memory any more: then those
 * that follow are of a later state.  Memory is needed for some hundred events, and for the
 * indexes of the server.
 *
 * take    may keep or change the event, and may call the server, but not end it
 *    0  all events are taken, or take has given false
 *   -1  no database, or the tables cannot be had (message) */
KSUTIL_API int each_event(EVServer &server,
                          const std::function<bool(EVEvent &event)> &take);

/* The same for some of the events.  Of an event that is not wanted only the rows of event
 * and origin are read.
 *
 * wanted  is given an event without magnitudes, moments and origin errors; true lets the
 *         whole event be read and taken.  It must not call the server. */
KSUTIL_API int each_event(EVServer &server,
                          const std::function<bool(const EVEvent &outline)> &wanted,
                          const std::function<bool(EVEvent &event)> &take);

}  // namespace ksutil::events
#endif

/* EventPicks: an origin with the picks that are associated with it. */
#ifndef KSUTIL_TOOLS_KSWAVE_EVENT_PICKS_H
#define KSUTIL_TOOLS_KSWAVE_EVENT_PICKS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "platform/db/db.h"
#include "tools/common/open_database.h"
#include "waveforms/ksdsseis.h"

namespace ksutil::tools {

struct EventChoice {
  long evid = -1, orid = -1;
  bool any() const { return evid >= 0 || orid >= 0; }
};

/* --evid and --orid, which exclude each other. */
void add_event_choice(CLI::App &command, EventChoice &choice);

struct Pick {
  std::string sta, phase;
  double time = 0.0;
};

struct EventPicks {
  Dbptr origin = dbinvalid();  // the record
  long orid = -1;
  double lat = -999.0, lon = -999.0, depth = -999.0, time = 0.0;
  std::vector<Pick> picks;

  /* "2010-05-20 22:16:30 orid 17". */
  std::string title() const;
  /* Degrees from the event to a station; NaN without the places of both. */
  double distance(const ksdsseis_channel &channel) const;
  /* Azimuth of the event at a station, degrees; NaN without the places of both. */
  double azimuth(const ksdsseis_channel &channel) const;
};

/* Reads the preferred origin of an event, or an origin, and its picks; false with
 * messages. */
bool read_event(const OpenDatabase &database, const EventChoice &choice,
                EventPicks &event);

}  // namespace ksutil::tools
#endif

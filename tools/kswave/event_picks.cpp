#include "tools/kswave/event_picks.h"

#include <cmath>
#include <limits>

#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "platform/geo/geo.h"
#include "tools/common/messages.h"
#include "tools/common/options.h"

namespace ksutil::tools {
namespace {

/* The first record of a table for which an expression is true; false without one. */
bool find_first(Dbptr table, const std::string &expression, Dbptr &record) {
  long count = 0;
  record = dbsubset(table, expression.c_str());
  if (record.table == dbINVALID || dbquery(record, dbq_record_count, &count) != 0 ||
      count == 0) {
    return false;
  }
  record.record = 0;
  return true;
}

/* The orid that the choice means; -1 with a complaint for none. */
long find_orid(const OpenDatabase &database, const EventChoice &choice) {
  if (choice.orid >= 0) return choice.orid;
  const std::string same = "evid == " + std::to_string(choice.evid);
  long orid = -1;
  Dbptr record;
  {
    const ElogScope messages;  // a database without events may have origins
    if (find_first(database.table("event"), same, record)) {
      dbgetv(record, "prefor", &orid, static_cast<char *>(nullptr));
    }
    if (orid < 0 && find_first(database.table("origin"), same, record)) {
      dbgetv(record, "orid", &orid, static_cast<char *>(nullptr));
    }
  }
  if (orid < 0) complain("there is no event " + std::to_string(choice.evid));
  return orid;
}

/* What cannot be read of the picks is left out: the waveforms show without them. */
void read_picks(const OpenDatabase &database, EventPicks &event) {
  const ElogScope messages;
  const Dbptr assoc = dbsubset(database.table("assoc"),
                               ("orid == " + std::to_string(event.orid)).c_str());
  if (assoc.table == dbINVALID) return;
  Dbptr rows = dbjoin(assoc, database.table("arrival"), nullptr, nullptr);
  long count = 0;
  if (rows.table == dbINVALID || dbquery(rows, dbq_record_count, &count) != 0) return;
  for (rows.record = 0; rows.record < count; ++rows.record) {
    char sta[64] = "", phase[64] = "";
    Pick pick;
    if (dbgetv(rows, "arrival.sta", sta, "assoc.phase", phase, "arrival.time",
               &pick.time, static_cast<char *>(nullptr)) != 0) {
      continue;
    }
    pick.sta = sta;
    pick.phase = phase;
    event.picks.push_back(pick);
  }
}

bool has_place(double lat, double lon) { return lat != -999.0 && lon != -999.0; }

}  // namespace

void add_event_choice(CLI::App &command, EventChoice &choice) {
  CLI::Option *const evid =
      command.add_option("--evid", choice.evid, "Event, by its preferred origin")
          ->check(whole_number(0));
  command.add_option("--orid", choice.orid, "Origin")
      ->check(whole_number(0))
      ->excludes(evid);
}

std::string EventPicks::title() const {
  std::string text = time_text(time, 0);
  text[text.find('T')] = ' ';
  return text + " orid " + std::to_string(orid);
}

double EventPicks::distance(const ksdsseis_channel &channel) const {
  if (!has_place(lat, lon) || !has_place(channel.lat, channel.lon)) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  return distance_degrees(lat, lon, channel.lat, channel.lon);
}

double EventPicks::azimuth(const ksdsseis_channel &channel) const {
  if (!has_place(lat, lon) || !has_place(channel.lat, channel.lon)) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  return azimuth_degrees(channel.lat, channel.lon, lat, lon);
}

bool read_event(const OpenDatabase &database, const EventChoice &choice,
                EventPicks &event) {
  event.orid = find_orid(database, choice);
  if (event.orid < 0) return false;
  if (!find_first(database.table("origin"), "orid == " + std::to_string(event.orid),
                  event.origin)) {
    complain("there is no origin " + std::to_string(event.orid));
    return false;
  }
  if (dbgetv(event.origin, "lat", &event.lat, "lon", &event.lon, "depth", &event.depth,
             "time", &event.time, static_cast<char *>(nullptr)) != 0) {
    return false;
  }
  if (!(std::abs(event.time) < 9e9)) {
    complain("origin " + std::to_string(event.orid) + " has no time");
    return false;
  }
  read_picks(database, event);
  return true;
}

}  // namespace ksutil::tools

#include "tools/kswave/event_picks.h"

#include <cmath>
#include <limits>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/geo/geo.h"
#include "tools/common/messages.h"
#include "tools/common/options.h"
#include "tools/common/table_rows.h"

namespace ksutil::tools {
namespace {

/* The first record of a table for which an expression is true.  0 when there is none, or no
 * such table; -1, with messages, when the table cannot be read. */
int find_first(const OpenDatabase &database, const char *table,
               const std::string &expression, Dbptr &record) {
  if (!db::has_table(database.get(), table)) return 0;
  const TableRows rows(database.table(table));
  long count = 0;
  record = rows.good() ? dbsubset(rows.table(), expression.c_str()) : dbinvalid();
  if (record.table == dbINVALID || dbquery(record, dbq_record_count, &count) != 0) {
    return -1;
  }
  if (count == 0) return rows.complete() ? 0 : -1;
  record.record = 0;
  return 1;
}

/* The orid that the choice means; -1, with messages or a complaint, for none. */
long find_orid(const OpenDatabase &database, const EventChoice &choice) {
  if (choice.orid >= 0) return choice.orid;
  const std::string same = "evid == " + std::to_string(choice.evid);
  const struct {
    const char *table, *field;
  } kPlaces[] = {{"event", "prefor"}, {"origin", "orid"}};
  for (const auto &[table, field] : kPlaces) {
    ElogScope messages;  // broken rows are left out
    long orid = -1;
    Dbptr record;
    const int found = messages.note(find_first(database, table, same, record));
    if (found < 0) return -1;
    if (found > 0) dbgetv(record, field, &orid, static_cast<char *>(nullptr));
    if (orid >= 0) return orid;
  }
  complain("there is no event " + std::to_string(choice.evid));
  return -1;
}

/* Broken rows are left out: the waveforms show without their picks.  False, with messages,
 * when the rows cannot be chosen. */
bool join_picks(Dbptr assoc, Dbptr arrival, EventPicks &event) {
  ElogScope messages;
  Dbptr rows = dbsubset(assoc, ("orid == " + std::to_string(event.orid)).c_str());
  if (rows.table != dbINVALID) rows = dbjoin(rows, arrival, nullptr, nullptr);
  long count = 0;
  if (rows.table == dbINVALID || dbquery(rows, dbq_record_count, &count) != 0) {
    messages.keep();
    return false;
  }
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
  return true;
}

/* False, with messages, when a table cannot be read. */
bool read_picks(const OpenDatabase &database, EventPicks &event) {
  if (!db::has_table(database.get(), "assoc") ||
      !db::has_table(database.get(), "arrival")) {
    return true;
  }
  const TableRows assoc(database.table("assoc")), arrival(database.table("arrival"));
  return assoc.good() && arrival.good() &&
         join_picks(assoc.table(), arrival.table(), event) && assoc.complete() &&
         arrival.complete();
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
  const int found = find_first(database, "origin",
                               "orid == " + std::to_string(event.orid), event.origin);
  if (found < 0) return false;
  if (found == 0) {
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
  return read_picks(database, event);
}

}  // namespace ksutil::tools

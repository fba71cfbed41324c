#include "tools/kssac/header_event.h"

#include <cmath>
#include <cstring>
#include <optional>

#include "platform/clock/clock.h"
#include "tools/common/cli.h"

namespace ksutil::tools {
namespace {

constexpr char *kEnd = nullptr;

/* The header times that are picks. */
constexpr const char *kPicks[] = {"A",  "T0", "T1", "T2", "T3", "T4",
                                  "T5", "T6", "T7", "T8", "T9"};

/* A time after the reference time, in epoch seconds. */
std::optional<double> time_of(KSSac *kssac, const char *name) {
  double after, reference;
  if (!known(kssac, name, after) || !std::isfinite(after) ||
      !reference_time(kssac, reference)) {
    return std::nullopt;
  }
  return reference + after;
}

/* Whether two headers have the same origin: they round times to single precision. */
bool is_near(double a, double b, double most) { return std::abs(a - b) <= most; }

}  // namespace

Dbptr HeaderEvent::scratch(const char *name) const {
  Dbptr row = table(name);
  row.record = dbNULL;
  if (row.table == dbINVALID || dbget(row, nullptr) != 0) return dbinvalid();
  row.record = dbSCRATCH;
  return row;
}

bool HeaderEvent::check(KSSac *kssac, const std::string &file) const {
  double latitude = 0.0, longitude = 0.0, after;
  const bool has_time = known(kssac, "O", after),
             has_lat = known(kssac, "EVLA", latitude),
             has_lon = known(kssac, "EVLO", longitude);
  if (!with_origin_ || (!has_lat && !has_lon)) return true;
  if (!has_time || !has_lat || !has_lon || !time_of(kssac, "O")) {
    complain(file + " has a part of O, EVLA and EVLO only");
    return false;
  }
  if (std::abs(latitude) <= 90.0 && std::abs(longitude) <= 360.0) return true;
  complain(file + ": EVLA and EVLO are not a place");
  return false;
}

bool HeaderEvent::read_origins() {
  if (read_) return true;
  Dbptr row = table("origin");
  long count = 0;
  if (row.table == dbINVALID || dbquery(row, dbq_record_count, &count) != 0)
    return false;
  for (row.record = 0; row.record < count; ++row.record) {
    Origin origin{};
    if (dbgetv(row, "time", &origin.time, "lat", &origin.lat, "lon", &origin.lon,
               "depth", &origin.depth, "orid", &origin.orid, kEnd) != 0) {
      continue;
    }
    origin.record = row.record;
    origins_.push_back(origin);
  }
  read_ = true;
  return true;
}

bool HeaderEvent::enter_origin(KSSac *kssac, Origin &origin) {
  if (!read_origins()) return false;
  double metres;
  origin.time = *time_of(kssac, "O");
  known(kssac, "EVLA", origin.lat);
  known(kssac, "EVLO", origin.lon);
  if (origin.lon > 180.0) origin.lon -= 360.0;
  origin.depth = known(kssac, "EVDP", metres) ? metres / 1000.0 : -999.0;
  for (const Origin &other : origins_) {
    constexpr double kSeconds = 0.05, kDegrees = 0.0005, kKilometres = 0.05;
    if (is_near(other.time, origin.time, kSeconds) &&
        is_near(other.lat, origin.lat, kDegrees) &&
        is_near(other.lon, origin.lon, kDegrees) &&
        is_near(other.depth, origin.depth, kKilometres)) {
      origin = other;
      return true;
    }
  }
  const Dbptr event = scratch("event"), row = scratch("origin");
  const long evid = dbnextid(db_, "evid");
  origin.orid = dbnextid(db_, "orid");
  if (event.table == dbINVALID || row.table == dbINVALID || evid < 0 ||
      origin.orid < 0 ||
      dbputv(row, "lat", origin.lat, "lon", origin.lon, "depth", origin.depth, "time",
             origin.time, "jdate", static_cast<long>(yearday(origin.time)), "orid",
             origin.orid, "evid", evid, "nass", 0L, "auth", "kssac", "lddate",
             std_now(), kEnd) != 0 ||
      (origin.record = dbadd(row, nullptr)) < 0 ||
      dbputv(event, "evid", evid, "prefor", origin.orid, "auth", "kssac", "lddate",
             std_now(), kEnd) != 0 ||
      dbadd(event, nullptr) < 0) {
    return false;
  }
  origins_.push_back(origin);
  return true;
}

bool HeaderEvent::enter_arrival(KSSac *kssac, Dbptr wfdisc, const char *variable,
                                double time, std::vector<Arrival> &arrivals) {
  char sta[64], chan[64];
  long chanid = -1;
  std::string phase = std::strcmp(variable, "A") == 0 ? "P" : "-";
  known(kssac, ("K" + std::string(variable)).c_str(), phase);
  Dbptr row = scratch("arrival");
  if (row.table == dbINVALID ||
      dbgetv(wfdisc, "sta", sta, "chan", chan, "chanid", &chanid, kEnd) != 0 ||
      dbputv(row, "sta", sta, "chan", chan, "chanid", chanid, "time", time, "jdate",
             static_cast<long>(yearday(time)), "iphase", phase.c_str(), "auth", "kssac",
             "lddate", std_now(), kEnd) != 0) {
    return false;
  }
  Dbptr found = table("arrival");
  const long count = arrivals_.find(row, found);
  if (count < 0) return false;
  long arid = -1;
  if (count > 0) {
    if (dbgetv(found, "arid", &arid, kEnd) != 0) return false;
  } else {
    arid = dbnextid(db_, "arid");
    if (arid < 0 || dbputv(row, "arid", arid, kEnd) != 0 || dbadd(row, nullptr) < 0) {
      return false;
    }
  }
  arrivals.push_back({arid, phase});
  return true;
}

bool HeaderEvent::associate(KSSac *kssac, Dbptr wfdisc, const Origin &origin,
                            const std::vector<Arrival> &arrivals) {
  char sta[64];
  long nass = 0;
  Dbptr of = table("origin");
  of.record = origin.record;
  if (dbgetv(wfdisc, "sta", sta, kEnd) != 0 || dbgetv(of, "nass", &nass, kEnd) != 0) {
    return false;
  }
  const long before = nass = nass < 0 ? 0 : nass;
  for (const Arrival &arrival : arrivals) {
    const Dbptr row = scratch("assoc");
    if (row.table == dbINVALID ||
        dbputv(row, "arid", arrival.arid, "orid", origin.orid, "sta", sta, "phase",
               arrival.phase.c_str(), "timedef", "n", "azdef", "n", "slodef", "n",
               "lddate", std_now(), kEnd) != 0) {
      return false;
    }
    const struct {
      const char *variable, *field;
    } geometry[] = {{"GCARC", "delta"}, {"BAZ", "seaz"}, {"AZ", "esaz"}};
    for (const auto &[variable, field] : geometry) {
      double degrees;
      if (!known(kssac, variable, degrees)) continue;
      if (dbputv(row, field, degrees, kEnd) != 0) return false;
    }
    Dbptr found = table("assoc");
    const long count = assocs_.find(row, found);
    if (count < 0 || (count == 0 && dbadd(row, nullptr) < 0)) return false;
    if (count == 0) ++nass;
  }
  return nass == before || dbputv(of, "nass", nass, "lddate", std_now(), kEnd) == 0;
}

bool HeaderEvent::enter(KSSac *kssac, Dbptr wfdisc) {
  std::vector<Arrival> arrivals;
  for (const char *const variable : kPicks) {
    const std::optional<double> time = time_of(kssac, variable);
    if (with_picks_ && time &&
        !enter_arrival(kssac, wfdisc, variable, *time, arrivals)) {
      return false;
    }
  }
  double latitude;
  if (!with_origin_ || !known(kssac, "EVLA", latitude)) return true;
  Origin origin{};
  return enter_origin(kssac, origin) && associate(kssac, wfdisc, origin, arrivals);
}

}  // namespace ksutil::tools

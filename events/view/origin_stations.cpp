#include "events/view/internal/origin_stations.h"

#include <cstdlib>
#include <new>
#include <string>

#include "events/database/internal/row_columns.h"
#include "platform/elog/failure.h"
#include "platform/geo/angle.h"
#include "platform/geo/geo.h"
#include "platform/stock/text.h"

namespace ksutil::events {
namespace {

constexpr const char *kLookupStation = "KSEventView::lookupStation";

/* Predicts an arrival by a function of the expression language; false with a message.
 * A distance or depth without a travel time leaves `arrival` as it is. */
bool predict(Dbptr db, const char *function, const KSEVOriginStation &station,
             const KSEVOrigin &origin, double &arrival) {
  const double depth = origin.depth == kNoValue ? 0.0 : origin.depth;
  const std::string text = format_text("%s(%f,%f)", function, station.delta, depth);
  double seconds = 0.0;
  const int result = dbex_evalstr(db, text.c_str(), dbexREAL, &seconds);
  if (result < 0) {
    return fail(kLookupStation, "dbex_evalstr(%s) error", text.c_str());
  }
  if (result == 0) arrival = origin.time + seconds;
  return true;
}

/* Computes distance, azimuth and predicted times, if origin and station have a
 * position; false with a message. */
bool see_from(Dbptr db, const KSEVOrigin &origin, KSEVOriginStation &station) {
  if (origin.lat == kNoValue || origin.lon == kNoValue || station.lat == kNoValue ||
      station.lon == kNoValue) {
    return true;
  }
  double delta, azimuth;
  dist(radians(origin.lat), radians(origin.lon), radians(station.lat),
       radians(station.lon), &delta, &azimuth);
  station.delta = degrees(delta);
  station.azimuth = degrees(azimuth);
  if (!(origin.time > kNoTimeBelow)) return true;
  return predict(db, "ptime", station, origin, station.ptime) &&
         predict(db, "stime", station, origin, station.stime);
}

/* Makes the record of a station that is not in the origin's tree yet; null with a
 * message. */
StationPtr make_station(ViewState &state, TreeReader &reader, const KSEVOrigin &origin,
                        const char *sta, double time) {
  StationPtr station = new_station(sta);
  db::RowText row;
  const SiteColumns &columns = reader.site_columns();
  int result = reader.read_site(sta, time, station->recno_site, row);
  if (result == 0 && station->recno_site >= 0) {
    station->found = 1;
    station->record_site = new_row_text(row);
    const db::RowText::Reading reading(row);
    const std::string_view site = reading.text();
    if (!columns.lat.read(site, station->lat) ||
        !columns.lon.read(site, station->lon) ||
        !columns.elev.read(site, station->elev)) {
      result = kUnreadable;
    }
  }
  if (result != 0) {
    fail(kLookupStation, "dbgetv(site) error");
    return nullptr;
  }
  if (!see_from(state.database.handle(), origin, *station)) return nullptr;
  return station;
}

double residual(double time, double predicted) {
  return time > kNoTimeBelow && predicted > kNoTimeBelow ? time - predicted : kNoValue;
}

}  // namespace

int look_up_station(ViewState &state, TreeReader &reader, KSEVOrigin &origin,
                    const char *sta, double time, KSEVOriginStation *&station) {
  auto *known = static_cast<KSEVOriginStation *>(getarr(origin.stations, sta));
  if (known == nullptr) {
    if (origin.stations == nullptr) origin.stations = newarr(nullptr);
    if (origin.stations == nullptr) {
      return fail(kLookupStation, "newarr(origin->stations) error");
    }
    try {
      StationPtr made = make_station(state, reader, origin, sta, time);
      if (made == nullptr) return -1;
      setarr(origin.stations, sta, made.get());
      if (containsarr(origin.stations, sta) == 0) throw std::bad_alloc();
      known = made.release();
    } catch (const std::bad_alloc &) {
      return fail_memory_for(kLookupStation, "KSEVOriginStation");
    }
  }
  station = known;
  return known->found != 0 ? 0 : 1;
}

void locate(KSEVDetection &detection, const KSEVOriginStation &station) {
  char *const record =
      new_text(station.record_site == nullptr ? "" : station.record_site);
  std::free(detection.record_site);
  detection.record_site = record;
  detection.recno_site = station.recno_site;
  detection.delta = station.delta;
  detection.azimuth = station.azimuth;
  detection.presidual = residual(detection.time, station.ptime);
  detection.sresidual = residual(detection.time, station.stime);
}

}  // namespace ksutil::events

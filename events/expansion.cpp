/* What expanded events have besides: associations, detections and station magnitudes. */
#include <algorithm>
#include <array>
#include <string_view>

#include "events/internal/tree_reader.h"
#include "platform/geo/geo.h"
#include "platform/traveltime/traveltime.h"

namespace ksutil::events {
namespace {

/* An origin's detections are looked for from before its time to the last body waves, s. */
constexpr double kDetectionsBefore = 10.0;
constexpr double kDetectionsAfter = 1800.0;

/* States of a detector that is switched on or off, or unknown: no signal was seen. */
bool is_signal(std::string_view state) {
  constexpr std::array<std::string_view, 5> none = {"-", "ON", "on", "OFF", "off"};
  return !state.empty() && std::find(none.begin(), none.end(), state) == none.end();
}

double residual(traveltime::Wave wave, double delta, double depth, double elapsed) {
  traveltime::Arrival arrival;
  const bool known = traveltime::first_arrival(traveltime::Model::kIasp91, wave, delta,
                                               depth, arrival);
  return known ? elapsed - arrival.time : kNoValue;
}

}  // namespace

int TreeReader::expand(EVEvent &event) {
  int result = 0;
  for (EVOrigin &origin : event.origins) {
    result = graver(result, read_associations(origin));
    if (detection_.rows != nullptr) result = graver(result, read_detections(origin));
    for (EVMagnitude &magnitude : origin.magnitudes) {
      result = graver(result, read_stamags(magnitude));
    }
  }
  return result;
}

int TreeReader::read_associations(EVOrigin &origin) {
  origin.associations.clear();
  int result = 0;
  for (const long recno : assocs_->find(origin.orid)) {
    EVAssociation association;
    const int read = read_association(recno, association);
    if (read == 0) origin.associations.push(std::move(association));
    result = graver(result, read);
  }
  return result;
}

int TreeReader::read_association(long recno, EVAssociation &association) {
  association.record_assoc = assoc_.rows->text(recno);
  const std::string_view row = association.record_assoc;
  int64_t arid;
  std::string_view timedef;
  if (row.empty() || !assoc_.columns.arid.read(row, arid) ||
      !assoc_.columns.timedef.read(row, timedef) ||
      !assoc_.columns.lddate.read(row, association.lddate_assoc)) {
    return assoc_.unreadable();
  }
  association.recno_assoc = recno;
  association.defining = timedef == "d" ? 1 : 0;

  const db::KeyIndex::Rows arrivals = arrivals_->find(arid);
  if (arrivals.empty()) return 0;
  const long arrival = arrivals.front();
  association.record_arrival = arrival_.rows->text(arrival);
  const std::string_view arrival_row = association.record_arrival;
  std::string_view sta;
  double time;
  if (arrival_row.empty() || !arrival_.columns.sta.read(arrival_row, sta) ||
      !arrival_.columns.time.read(arrival_row, time) ||
      !arrival_.columns.lddate.read(arrival_row, association.lddate_arrival)) {
    return arrival_.unreadable();
  }
  association.recno_arrival = arrival;

  const long site = memory_.sites.find(sta, time);
  if (site < 0) return 0;
  association.record_site = site_.rows->text(site);
  if (association.record_site.empty()) return site_.unreadable();
  association.recno_site = site;
  return 0;
}

int TreeReader::read_stamags(EVMagnitude &magnitude) {
  magnitude.stamags.clear();
  int64_t magid;
  if (!netmag_.columns.magid.read(magnitude.record_netmag, magid)) return kUnreadable;
  int result = 0;
  for (const long recno : stamags_->find(magid)) {
    EVStamag stamag;
    stamag.record_stamag = stamag_.rows->text(recno);
    const std::string_view row = stamag.record_stamag;
    std::string_view magtype;
    if (row.empty() || !stamag_.columns.magtype.read(row, magtype) ||
        !stamag_.columns.magnitude.read(row, stamag.magnitude) ||
        !stamag_.columns.lddate.read(row, stamag.lddate_stamag)) {
      result = graver(result, stamag_.unreadable());
      continue;
    }
    stamag.recno_stamag = recno;
    stamag.magtype = magtype;
    magnitude.stamags.push(std::move(stamag));
  }
  return result;
}

int TreeReader::read_detections(EVOrigin &origin) {
  origin.detections.clear();
  const std::string_view row = origin.record_origin;
  const OriginColumns &columns = origin_.columns;
  Source source{origin.time, 0.0, 0.0, 0.0, false};
  if (!columns.lat.read(row, source.lat) || !columns.lon.read(row, source.lon) ||
      !columns.depth.read(row, source.depth)) {
    return kUnreadable;
  }
  source.located = source.lat != columns.lat.null() && source.lon != columns.lon.null();
  if (source.depth == columns.depth.null()) source.depth = 0.0;
  if (!(source.time > kNullTime)) return 0;
  int result = 0;
  for (const long record : memory_.detection_times.find(
           source.time - kDetectionsBefore, source.time + kDetectionsAfter)) {
    result = graver(result, add_detection(record, &source, origin.detections));
  }
  return result;
}

int TreeReader::read_detections(double tstart, double tend,
                                Table<EVDetection> &detections) {
  detections.clear();
  int result = 0;
  for (const long record : memory_.detection_times.find(tstart, tend)) {
    result = graver(result, add_detection(record, nullptr, detections));
  }
  return result;
}

int TreeReader::add_detection(long record, const Source *source,
                              Table<EVDetection> &detections) {
  const DetectionColumns &columns = detection_.columns;
  EVDetection detection;
  detection.record_detection = detection_.rows->text(record);
  const std::string_view row = detection.record_detection;
  std::string_view sta, state;
  double time;
  if (row.empty() || !columns.sta.read(row, sta) || !columns.state.read(row, state) ||
      !columns.time.read(row, time) ||
      !columns.lddate.read(row, detection.lddate_detection)) {
    return detection_.unreadable();
  }
  if (!is_signal(state)) return 0;
  detection.recno_detection = record;
  const long site = memory_.sites.find(sta, time);
  if (site >= 0) {
    detection.record_site = site_.rows->text(site);
    if (detection.record_site.empty()) return site_.unreadable();
    detection.recno_site = site;
    if (source != nullptr && source->located) {
      add_residuals(*source, detection.record_site, time, detection);
    }
  }
  detections.push(std::move(detection));
  return 0;
}

void TreeReader::add_residuals(const Source &source, std::string_view site, double time,
                               EVDetection &detection) const {
  double lat, lon;
  if (!site_.columns.lat.read(site, lat) || !site_.columns.lon.read(site, lon) ||
      lat == site_.columns.lat.null() || lon == site_.columns.lon.null()) {
    return;
  }
  detection.delta = distance_degrees(lat, lon, source.lat, source.lon);
  const double elapsed = time - source.time;
  detection.presidual =
      residual(traveltime::Wave::kP, detection.delta, source.depth, elapsed);
  detection.sresidual =
      residual(traveltime::Wave::kS, detection.delta, source.depth, elapsed);
}

}  // namespace ksutil::events

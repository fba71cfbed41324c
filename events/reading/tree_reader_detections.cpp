/* TreeReader: reads the detections around an origin and in a window. */
#include <algorithm>
#include <array>
#include <string_view>

#include "events/reading/internal/tree_reader.h"
#include "platform/geo/geo.h"
#include "platform/traveltime/traveltime.h"

namespace ksutil::events {
namespace {

/* The detections of an origin: from shortly before its time until its last body waves
 * have arrived, s. */
constexpr double kDetectionsBefore = 10.0;
constexpr double kDetectionsAfter = 1800.0;

double residual(traveltime::Wave wave, double delta, double depth, double elapsed) {
  traveltime::Arrival arrival;
  const bool known = traveltime::first_arrival(traveltime::Model::kIasp91, wave, delta,
                                               depth, arrival);
  return known ? elapsed - arrival.time : kNoValue;
}

}  // namespace

bool DetectionFields::signal() const {
  constexpr std::array<std::string_view, 5> none = {"-", "ON", "on", "OFF", "off"};
  return std::find(none.begin(), none.end(), state) == none.end();
}

std::vector<long> TreeReader::detections_around(double time) const {
  if (!(time > kNoTimeBelow)) return {};
  return detections_between(time - kDetectionsBefore, time + kDetectionsAfter);
}

int TreeReader::read_detection(long recno, EVDetection &detection,
                               DetectionFields &fields) {
  const DetectionColumns &columns = detection_.columns;
  const std::string_view row = detection_.rows->row(recno);
  std::string_view sta, chan, state;
  if (row.empty() || !columns.sta.read(row, sta) || !columns.chan.read(row, chan) ||
      !columns.state.read(row, state) || !columns.time.read(row, fields.time) ||
      !columns.lddate.read(row, detection.lddate_detection)) {
    return detection_.unreadable();
  }
  fields.sta = sta;
  fields.chan = chan;
  fields.state = state;
  detection.record_detection = detection_.rows->text(recno);
  detection.recno_detection = recno;
  return 0;
}

int TreeReader::read_detections(EVOrigin &origin) {
  origin.detections.clear();
  const db::RowText::Reading reading(origin.record_origin);
  const std::string_view row = reading.text();
  const OriginColumns &columns = origin_.columns;
  Epicentre epicentre{origin.time, 0.0, 0.0, 0.0, false};
  if (!columns.lat.read(row, epicentre.lat) || !columns.lon.read(row, epicentre.lon) ||
      !columns.depth.read(row, epicentre.depth)) {
    return kUnreadable;
  }
  epicentre.located =
      epicentre.lat != columns.lat.null() && epicentre.lon != columns.lon.null();
  if (epicentre.depth == columns.depth.null()) epicentre.depth = 0.0;
  int result = 0;
  for (const long record : detections_around(epicentre.time)) {
    result = graver(result, add_detection(record, &epicentre, origin.detections));
  }
  return result;
}

int TreeReader::read_detections(double tstart, double tend,
                                Table<EVDetection> &detections) {
  detections.clear();
  int result = 0;
  for (const long record : detections_between(tstart, tend)) {
    result = graver(result, add_detection(record, nullptr, detections));
  }
  return result;
}

int TreeReader::add_detection(long record, const Epicentre *epicentre,
                              Table<EVDetection> &detections) {
  EVDetection detection;
  DetectionFields fields;
  int result = read_detection(record, detection, fields);
  if (result != 0 || !fields.signal()) return result;
  result =
      read_site(fields.sta, fields.time, detection.recno_site, detection.record_site);
  if (result != 0) return result;
  if (detection.recno_site >= 0 && epicentre != nullptr && epicentre->located) {
    const db::RowText::Reading site(detection.record_site);
    add_residuals(*epicentre, site.text(), fields.time, detection);
  }
  detections.push(std::move(detection));
  return 0;
}

void TreeReader::add_residuals(const Epicentre &epicentre, std::string_view site,
                               double time, EVDetection &detection) const {
  double lat, lon;
  if (!site_.columns.lat.read(site, lat) || !site_.columns.lon.read(site, lon) ||
      lat == site_.columns.lat.null() || lon == site_.columns.lon.null()) {
    return;
  }
  detection.delta = distance_degrees(lat, lon, epicentre.lat, epicentre.lon);
  const double elapsed = time - epicentre.time;
  detection.presidual =
      residual(traveltime::Wave::kP, detection.delta, epicentre.depth, elapsed);
  detection.sresidual =
      residual(traveltime::Wave::kS, detection.delta, epicentre.depth, elapsed);
}

}  // namespace ksutil::events

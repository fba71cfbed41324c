#include "formats/exchange/gse/gse_reader.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "formats/exchange/isf/ims_codes.h"
#include "formats/exchange/text/columns.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kConfidence = 0.9;

bool is_event(std::string_view line) { return line.starts_with("EVENT "); }

bool is_date(std::string_view text) {
  return text.size() == 10 && std::isdigit(static_cast<unsigned char>(text[0])) != 0 &&
         text[4] == '/' && text[7] == '/';
}

}  // namespace

bool GseReader::ends_event(const std::string &line) {
  return is_event(line) || ImsMessage::ends_event(line);
}

bool GseReader::at_end() {
  return !message_.is_open() || refuse("the message ends without STOP: it is cut off");
}

std::string GseReader::qualified(const std::string &id,
                                 const std::string &author) const {
  if (id.empty()) return "";
  const std::string &source = message_.source().empty() ? author : message_.source();
  return (source.empty() ? "gse" : source) + ":" + id;
}

bool GseReader::take_outside(const std::string &line) {
  if (trimmed(line).empty()) return true;
  switch (message_.take(line, is_event(line))) {
    case ImsMessage::Took::kYes:
      return true;
    case ImsMessage::Took::kOtherData:
      without("data that are not a bulletin");
      return true;
    case ImsMessage::Took::kNo:
      break;
  }
  const std::vector<std::string_view> words = words_of(line, 2);
  const std::string number =
      words.size() < 2 ? "" : record_text(words[1].substr(0, 40));
  if (!is_event(line) || number.empty()) {
    without("lines outside of events");
    return true;
  }
  begin_event();
  number_ = number;
  block_ = Block::kNone;
  errors_follow_ = refused_origin_ = false;
  type_.clear();
  associations_.clear();
  station_magnitudes_.clear();
  pick_ids_.clear();
  return true;
}

bool GseReader::take(const std::string &line) {
  if (!in_event()) return take_outside(line);
  if (trimmed(line).empty()) return true;
  if (line.starts_with(kGseOrigins.substr(0, 26))) {
    block_ = right_trimmed(line) == kGseOrigins ? Block::kOrigins : Block::kOther;
    errors_follow_ = refused_origin_ = false;
    return block_ == Block::kOrigins ||
           refuse("the columns of the origin block are not those of GSE2.0");
  }
  if (line.starts_with(kGsePhases.substr(0, 18))) {
    block_ = right_trimmed(line) == kGsePhases ? Block::kPhases : Block::kOther;
    return block_ == Block::kPhases ||
           refuse("the columns of the phase block are not those of GSE2.0");
  }
  const std::string_view text = trimmed(line);
  if (text.starts_with('(')) {
    std::string comment =
        record_text(text.substr(1, text.size() - (text.ends_with(')') ? 2 : 1)));
    Event &now = event();
    (now.origins.empty() ? now.comments : now.origins.back().comments)
        .push_back(std::move(comment));
    return true;
  }
  switch (block_) {
    case Block::kOrigins:
      if (text.starts_with("rms ")) return true;
      if (std::exchange(errors_follow_, false)) return take_errors(line);
      if (is_date(std::string_view(line).substr(0, 10))) return take_origin(line);
      event().place = record_text(line);
      block_ = Block::kNone;
      return true;
    case Block::kPhases:
      return take_phase(line);
    default:
      without("lines of other blocks");
      return true;
  }
}

bool GseReader::take_origin(const std::string &line) {
  errors_follow_ = refused_origin_ = true;
  Columns columns(line);
  Origin origin;
  const std::string time =
      std::string(columns.text(1, 10)) + " " + std::string(columns.text(12, 21));
  if (!parse_date_text(time, origin.time)) return refuse(fault_text("time", time));
  columns.needed(26, 33, "latitude");
  columns.needed(35, 43, "longitude");
  columns.real(26, 33, "latitude", kLatitudeRange, origin.lat);
  columns.real(35, 43, "longitude", kLongitudeRange, origin.lon);
  columns.real(48, 52, "depth", kDepthRange, origin.depth);
  columns.count(57, 60, "Ndef", origin.phases);
  columns.real(67, 69, "gap", kAzimuthRange, origin.gap);
  origin.author = record_text(columns.text(105, 112));
  magnitude_slots_.clear();
  for (std::size_t slot = 0; slot < 3; slot++) {
    const std::size_t at = 72 + 11 * slot;
    Magnitude magnitude;
    columns.real(at + 3, at + 5, "magnitude", kMagnitudeRange, magnitude.value);
    columns.count(at + 7, at + 8, "N of a magnitude", magnitude.stations);
    if (magnitude.value <= -999.0) continue;
    magnitude.type = record_text(columns.text(at, at + 1));
    magnitude.author = origin.author;
    if (columns.at(at + 2) == '<' || columns.at(at + 2) == '>') {
      without("magnitudes that are lower or upper bounds");
    }
    origin.magnitudes.push_back(std::move(magnitude));
    magnitude_slots_.push_back(slot);
  }
  if (!columns.good()) return refuse(columns.problem());
  origin.lon = wrapped_longitude(origin.lon);
  if (origin.depth > -999.0) origin.depth_type = ims_depth_type(columns.at(53));
  if (columns.at(22) == 'f') without("fixed origin times");
  if (columns.at(44) == 'f') without("fixed epicentres");
  if (!columns.blank(62, 65)) without("number of stations (Nsta)");
  origin.id = qualified(record_text(columns.text(115, 122)), origin.author);
  for (const Origin &other : event().origins) {
    if (other.id == origin.id) origin.id.clear();
  }
  event().origins.push_back(std::move(origin));
  refused_origin_ = false;
  return true;
}

/* The second line of an origin. */
bool GseReader::take_errors(const std::string &line) {
  if (refused_origin_) return true;
  Columns columns(line);
  Origin &origin = event().origins.back();
  Origin changed = origin;
  std::array<double, 3> magnitude_errors{-1.0, -1.0, -1.0};
  columns.real(6, 10, "rms", kNotNegative, changed.rms);
  columns.real(16, 21, "OT_Error", kNotNegative, changed.time_error);
  columns.real(26, 31, "Smajor", kNotNegative, changed.major_axis);
  columns.real(33, 38, "Sminor", kNotNegative, changed.minor_axis);
  columns.real(40, 43, "Az", kAzimuthRange, changed.ellipse_strike);
  columns.real(50, 54, "depth error", kNotNegative, changed.depth_error);
  columns.real(57, 62, "mdist", kDistanceRange, changed.nearest);
  for (std::size_t i = 0; i < magnitude_errors.size(); i++) {
    columns.real(75 + 11 * i, 77 + 11 * i, "magnitude error", kNotNegative,
                 magnitude_errors[i]);
  }
  if (!columns.good()) return refuse(columns.problem());
  for (std::size_t i = 0; i < changed.magnitudes.size(); i++) {
    changed.magnitudes[i].error = magnitude_errors[magnitude_slots_[i]];
  }
  if (changed.time_error >= 0.0 || changed.major_axis >= 0.0 ||
      changed.depth_error >= 0.0) {
    changed.confidence = kConfidence;
  }
  if (!columns.blank(64, 69)) without("distance of the farthest station (Mdist)");
  changed.status = ims_status(columns.at(105));
  changed.algorithm = ims_method(columns.at(107));
  const std::string_view type = columns.text(109, 110);
  if (type_.empty()) type_ = ims_event_type(type);
  if (ims_event_type_says_more(type)) without("suspected, felt or damaging events");
  origin = std::move(changed);
  return true;
}

bool GseReader::take_phase(const std::string &line) {
  Columns columns(line);
  Pick pick;
  Association association;
  std::array<StationMagnitude, 2> magnitudes;
  columns.needed(1, 5, "station");
  columns.real(7, 12, "distance", kDistanceRange, association.delta);
  columns.real(14, 18, "EvAz", kAzimuthRange, association.seaz);
  columns.real(54, 58, "time residual", kAnyReal, association.time_residual);
  columns.real(60, 64, "azimuth", kAzimuthRange, pick.azimuth);
  columns.real(66, 71, "azimuth residual", kAnyReal, association.azimuth_residual);
  columns.real(73, 77, "slowness", kNotNegative, pick.slowness);
  columns.real(79, 83, "slowness residual", kAnyReal, association.slowness_residual);
  columns.real(89, 93, "SNR", kAnyReal, pick.snr);
  columns.real(95, 103, "amplitude", kNotNegative, pick.amplitude);
  columns.real(105, 109, "period", kNotNegative, pick.period);
  columns.real(114, 116, "magnitude", kMagnitudeRange, magnitudes[0].value);
  columns.real(121, 123, "magnitude", kMagnitudeRange, magnitudes[1].value);
  const std::string time =
      std::string(columns.text(32, 41)) + " " + std::string(columns.text(43, 52));
  const bool timed = !columns.blank(43, 52);
  if (timed && !parse_date_text(time, pick.time)) columns.fault("time", time);
  if (!columns.good()) return refuse(columns.problem());
  pick.at.station = record_text(columns.text(1, 5));
  pick.phase = association.phase = record_text(columns.text(24, 31));
  set_ims_quality(columns.at(20), columns.at(21), columns.at(22), pick);
  const bool defines = !columns.blank(85, 87);
  const auto used = [&](std::size_t at, char letter) {
    return columns.at(at) == letter ? 'd' : defines ? 'n' : char{0};
  };
  association.time_used = used(85, 'T');
  association.azimuth_used = used(86, 'A');
  association.slowness_used = used(87, 'S');
  Event &now = event();
  std::int64_t index = -1;
  if (timed) {
    if (pick.automatic) without("marks of automatic picks");
    pick.id = record_text(columns.text(125, 132));
    if (!pick.id.empty() && !pick_ids_.insert(pick.id).second) {
      without("Arr ID that an earlier phase of the event has");
      pick.id.clear();
    }
    index = static_cast<std::int64_t>(now.picks.size());
    association.pick = index;
    associations_.push_back(std::move(association));
    now.picks.push_back(pick);
  } else {
    without("phases without a time");
  }
  for (std::size_t i = 0; i < magnitudes.size(); i++) {
    StationMagnitude &magnitude = magnitudes[i];
    if (magnitude.value <= -999.0) continue;
    magnitude.type = record_text(columns.text(111 + 7 * i, 112 + 7 * i));
    magnitude.at = pick.at;
    magnitude.phase = pick.phase;
    magnitude.pick = index;
    const char bound = columns.at(113 + 7 * i);
    if (bound == '<' || bound == '>')
      without("magnitudes that are lower or upper bounds");
    station_magnitudes_.push_back(std::move(magnitude));
  }
  return true;
}

bool GseReader::finish(Event &event) {
  if (event.origins.empty()) return refuse("the event has no origin that can be used");
  Origin &preferred = event.origins.front();
  event.id = qualified(number_, preferred.author);
  event.author = preferred.author;
  event.type = type_;
  for (Pick &pick : event.picks) pick.id = qualified(pick.id, preferred.author);
  preferred.associations = std::move(associations_);
  take_station_magnitudes(std::move(station_magnitudes_), preferred);
  return true;
}

}  // namespace ksutil::exchange

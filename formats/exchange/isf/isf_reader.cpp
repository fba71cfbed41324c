#include "formats/exchange/isf/isf_reader.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <utility>

#include "formats/exchange/isf/ims_codes.h"
#include "formats/exchange/isf/isf_values.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {

using namespace isf;

namespace {

/* Phases up to this much before the origin are of its day. */
constexpr double kBeforeOrigin = 3600.0;
constexpr Range kStrikes{-180.0, 360.0};

bool is_date(std::string_view line) {
  const auto digit = [&](std::size_t i) {
    return i < line.size() && std::isdigit(static_cast<unsigned char>(line[i])) != 0;
  };
  return line.size() >= 22 && digit(0) && digit(3) && line[4] == '/' &&
         line[7] == '/' && line[13] == ':';
}

/* The time of day of "hh:mm:ss.sss" in seconds. */
bool read_time_of_day(std::string_view text, double &seconds) {
  double epoch = 0.0;
  if (!parse_date_text("1970-01-01 " + std::string(text), epoch)) return false;
  seconds = epoch;
  return true;
}

/* An origin by ISC at the beginning of a text that does not name its source. */
bool has_isc_origin(std::string_view head) {
  while (!head.empty()) {
    const std::size_t end = std::min(head.find('\n'), head.size());
    const std::string_view line = head.substr(0, end);
    if (is_date(line) && Columns(line).text(119, 127) == "ISC") return true;
    head.remove_prefix(std::min(end + 1, head.size()));
  }
  return false;
}

}  // namespace

bool is_isf_event(std::string_view line) {
  if (!line.starts_with("Event ")) return false;
  const std::vector<std::string_view> words = words_of(line, 2);
  return words.size() == 2 && words[1].size() <= 20 &&
         std::any_of(words[1].begin(), words[1].end(),
                     [](unsigned char c) { return std::isdigit(c) != 0; });
}

IsfReader::IsfReader(Input &input)
    : LineReader(input), head_source_(has_isc_origin(input.head()) ? "ISC" : "isf") {}

const std::string &IsfReader::source() const {
  return message_.source().empty() ? head_source_ : message_.source();
}

std::string IsfReader::qualified(std::string_view id) const {
  const std::string text = record_text(id);
  return text.empty() ? "" : source() + ":" + text;
}

bool IsfReader::ends_event(const std::string &line) {
  return is_isf_event(line) || ImsMessage::ends_event(line);
}

bool IsfReader::at_end() {
  return !message_.is_open() || refuse("the message ends without STOP: it is cut off");
}

/* Without a message around it, a line is all there when it reaches the ids, which stand last
 * in all blocks, or the bracket that ends a comment. */
bool IsfReader::is_cut_off(const std::string &line) {
  if (message_.is_cut_off(line)) return true;
  if (!in_event() || trimmed(line).empty() || ends_event(line)) return false;
  if (line.starts_with(" (")) return !right_trimmed(line).ends_with(')');
  switch (block_) {
    case Block::kOrigins:
      return line.size() < kIsfOrigins.size();
    case Block::kMagnitudes:
      return line.size() < kIsfMagnitudes.size();
    case Block::kPhases:
      return line.size() < kIsfPhases.size();
    case Block::kPhaseDetails:
      return line.size() < kIsfPhaseDetails.size();
    default:
      return false;
  }
}

/* The lines between events that make a message. */
bool IsfReader::take_message_line(const std::string &line, bool &taken) {
  const ImsMessage::Took took = message_.take(line, is_isf_event(line));
  taken = took != ImsMessage::Took::kNo;
  if (took == ImsMessage::Took::kOtherData) without("data that are not a bulletin");
  const std::vector<std::string_view> words = words_of(line, 3);
  if (words.size() > 2 && words[0] == "DATA_TYPE" &&
      lowered(words[2]).starts_with("isf2")) {
    message_.skip_data();
    return refuse("bulletins of " + record_text(words[2].substr(0, 20)) +
                  " have other columns, and are not read");
  }
  return true;
}

bool IsfReader::take_heading(const std::string &line, bool &taken) {
  struct Heading {
    std::string_view text;
    std::size_t known;  // characters by which the block is known
    Block block;
    const char *name;
  };
  static const std::vector<Heading> kHeadings{
      {kIsfOrigins, 18, Block::kOrigins, "origin"},
      {kIsfMagnitudes, 14, Block::kMagnitudes, "magnitude"},
      {kIsfPhases, 14, Block::kPhases, "phase"},
      {kIsfPhaseDetails, 15, Block::kPhaseDetails, "phase information"},
      {kIsfReferences, 12, Block::kReferences, "reference"}};
  for (const Heading &heading : kHeadings) {
    if (!line.starts_with(heading.text.substr(0, heading.known))) continue;
    taken = true;
    block_ = heading.block;
    block_begun_ = false;
    magnitude_ = pick_ = -1;
    if (block_ != Block::kOrigins) tensors_.close();
    /* Further columns may follow. */
    if (right_trimmed(line).starts_with(heading.text)) {
      if (right_trimmed(line).size() > heading.text.size()) {
        without(std::string("further columns of the ") + heading.name + " block");
      }
      return true;
    }
    block_ = Block::kOther;
    return refuse(std::string("the columns of the ") + heading.name +
                  " block are not those of ISF");
  }
  return true;
}

void IsfReader::begin(const std::string &line) {
  const std::vector<std::string_view> words = words_of(line, 2);
  Event &event = begin_event();
  event.id = qualified(words[1]);
  event.author = source();
  event.place = record_text(std::string_view(line).substr(
      static_cast<std::size_t>(words[1].data() + words[1].size() - line.data())));
  block_ = Block::kNone;
  origin_ = magnitude_ = pick_ = prime_ = magnitude_origin_ = -1;
  types_.clear();
  centroids_.clear();
  dated_.clear();
  associations_.clear();
  station_magnitudes_.clear();
  origin_by_id_.clear();
  pick_by_id_.clear();
  foreign_.clear();
  tensors_.close();
}

bool IsfReader::take(const std::string &line) {
  bool taken = false;
  if (!in_event()) {
    if (!trimmed(line).empty() && !take_message_line(line, taken)) return false;
    if (taken || trimmed(line).empty()) return true;
    if (is_isf_event(line)) {
      begin(line);
      return true;
    }
    without("lines outside of events");
    return true;
  }
  if (trimmed(line).empty()) {
    if (block_begun_) block_ = Block::kNone;
    tensors_.close();
    return true;
  }
  if (line.starts_with(" (")) return take_comment(line);
  if (!take_heading(line, taken)) return false;
  if (taken) return true;
  block_begun_ = true;
  switch (block_) {
    case Block::kOrigins:
      return take_origin(line);
    case Block::kMagnitudes:
      return take_magnitude(line);
    case Block::kPhases:
      return take_phase(line);
    case Block::kPhaseDetails:
      return take_phase_details(line);
    case Block::kReferences:
      event().comments.push_back(record_text(line));
      return true;
    default:
      without("lines of other blocks");
      return true;
  }
}

bool IsfReader::take_origin(const std::string &line) {
  origin_ = -1;
  tensors_.close();
  Columns columns(line);
  Origin origin;
  const std::string time =
      std::string(columns.text(1, 10)) + " " + std::string(columns.text(12, 22));
  if (!parse_date_text(time, origin.time)) return refuse(fault_text("time", time));
  columns.needed(37, 44, "latitude");
  columns.needed(46, 54, "longitude");
  columns.real(25, 29, "time error", kNotNegative, origin.time_error);
  columns.real(31, 35, "RMS", kNotNegative, origin.rms);
  columns.real(37, 44, "latitude", kLatitudeRange, origin.lat);
  columns.real(46, 54, "longitude", kLongitudeRange, origin.lon);
  columns.real(56, 60, "major axis", kNotNegative, origin.major_axis);
  columns.real(62, 66, "minor axis", kNotNegative, origin.minor_axis);
  columns.real(68, 70, "strike of the ellipse", kStrikes, origin.ellipse_strike);
  columns.real(72, 76, "depth", kDepthRange, origin.depth);
  columns.real(79, 82, "depth error", kNotNegative, origin.depth_error);
  columns.count(84, 87, "Ndef", origin.phases);
  columns.real(94, 96, "gap", kAzimuthRange, origin.gap);
  columns.real(98, 103, "mdist", kDistanceRange, origin.nearest);
  if (!columns.good()) return refuse(columns.problem());
  origin.lon = wrapped_longitude(origin.lon);
  /* Circles have the strike -1. */
  if (origin.ellipse_strike < -1.0) origin.ellipse_strike += 180.0;
  if (origin.depth > -999.0) origin.depth_type = ims_depth_type(columns.at(77));
  if (origin.time_error >= 0.0 || origin.major_axis >= 0.0 ||
      origin.depth_error >= 0.0) {
    origin.confidence = kConfidence;
  }
  if (columns.at(23) == 'f') without("fixed origin times");
  if (columns.at(55) == 'f') without("fixed epicentres");
  if (!columns.blank(89, 92)) without("number of stations (Nsta)");
  if (!columns.blank(105, 110)) without("distance of the farthest station (Mdist)");
  origin.status = ims_status(columns.at(112));
  origin.algorithm = ims_method(columns.at(114));
  const std::string type(columns.text(116, 117));
  if (ims_event_type_says_more(type)) without("suspected, felt or damaging events");
  origin.author = record_text(columns.text(119, 127));
  const std::vector<std::string_view> id = words_of(columns.text(129, line.size()), 1);
  if (!id.empty()) origin.id = qualified(id[0]);

  origin_ = static_cast<std::int64_t>(event().origins.size());
  if (!origin.id.empty() &&
      !origin_by_id_.emplace(origin.id, event().origins.size()).second) {
    without("OrigID that an earlier origin of the event has");
    origin.id.clear();
  }
  event().origins.push_back(std::move(origin));
  types_.push_back(type);
  centroids_.push_back(false);
  return true;
}

bool IsfReader::take_magnitude(const std::string &line) {
  magnitude_ = -1;
  Columns columns(line);
  Magnitude magnitude;
  columns.needed(7, 10, "magnitude");
  columns.real(7, 10, "magnitude", kMagnitudeRange, magnitude.value);
  columns.real(12, 14, "magnitude error", kNotNegative, magnitude.error);
  columns.count(16, 19, "Nsta", magnitude.stations);
  if (!columns.good()) return refuse(columns.problem());
  magnitude.type = record_text(columns.text(1, 5));
  magnitude.author = record_text(columns.text(21, 29));
  if (columns.at(6) == '<' || columns.at(6) == '>') {
    without("magnitudes that are lower or upper bounds");
  }
  const std::vector<std::string_view> id = words_of(columns.text(31, line.size()), 1);
  const auto origin = origin_by_id_.find(id.empty() ? "" : qualified(id[0]));
  magnitude_origin_ = -1;
  if (origin == origin_by_id_.end()) {
    magnitude_ = static_cast<std::int64_t>(foreign_.size());
    foreign_.emplace_back(id.empty() ? "" : qualified(id[0]), std::move(magnitude));
    return true;
  }
  std::vector<Magnitude> &list = event().origins[origin->second].magnitudes;
  magnitude_origin_ = static_cast<std::int64_t>(origin->second);
  magnitude_ = static_cast<std::int64_t>(list.size());
  list.push_back(std::move(magnitude));
  return true;
}

bool IsfReader::take_phase(const std::string &line) {
  pick_ = -1;
  Columns columns(line);
  Pick pick;
  Association association;
  StationMagnitude magnitude;
  columns.needed(1, 5, "station");
  columns.real(7, 12, "distance", kDistanceRange, association.delta);
  columns.real(14, 18, "EvAz", kAzimuthRange, association.esaz);
  columns.real(42, 46, "time residual", kAnyReal, association.time_residual);
  columns.real(48, 52, "azimuth", kAzimuthRange, pick.azimuth);
  columns.real(54, 58, "azimuth residual", kAnyReal, association.azimuth_residual);
  columns.real(60, 65, "slowness", kNotNegative, pick.slowness);
  columns.real(67, 72, "slowness residual", kAnyReal, association.slowness_residual);
  columns.real(78, 82, "SNR", kAnyReal, pick.snr);
  columns.real(84, 92, "amplitude", kNotNegative, pick.amplitude);
  columns.real(94, 98, "period", kNotNegative, pick.period);
  columns.real(110, 113, "magnitude", kMagnitudeRange, magnitude.value);
  const std::string_view time = columns.text(29, 40);
  if (!time.empty() && !read_time_of_day(time, pick.time)) columns.fault("time", time);
  if (!columns.good()) return refuse(columns.problem());
  pick.at.station = record_text(columns.text(1, 5));
  pick.phase = association.phase = record_text(columns.text(20, 27));
  association.time_used = ims_used(columns.at(74), 'T');
  association.azimuth_used = ims_used(columns.at(75), 'A');
  association.slowness_used = ims_used(columns.at(76), 'S');
  set_ims_quality(columns.at(100), columns.at(101), columns.at(102), pick);
  const std::vector<std::string_view> id = words_of(columns.text(115, 122), 1);
  if (!id.empty()) pick.id = qualified(id[0]);
  if (magnitude.value > -999.0) {
    magnitude.type = record_text(columns.text(104, 108));
    magnitude.at = pick.at;
    magnitude.phase = pick.phase;
    if (columns.at(109) == '<' || columns.at(109) == '>') {
      without("magnitudes that are lower or upper bounds");
    }
  }
  if (time.empty()) {
    without("phases without a time");
  } else {
    if (pick.automatic) without("marks of automatic picks");
    pick_ = static_cast<std::int64_t>(event().picks.size());
    if (!pick.id.empty() &&
        !pick_by_id_.emplace(pick.id, event().picks.size()).second) {
      without("ArrID that an earlier phase of the event has");
      pick.id.clear();
    }
    association.pick = pick_;
    event().picks.push_back(std::move(pick));
    dated_.push_back(false);
    associations_.push_back(std::move(association));
  }
  if (magnitude.value > -999.0) {
    magnitude.pick = pick_;
    station_magnitudes_.push_back(std::move(magnitude));
  }
  return true;
}

/* The block that adds network, channel, date and errors to phases, by ArrID. */
bool IsfReader::take_phase_details(const std::string &line) {
  pick_ = -1;
  Columns columns(line);
  const std::vector<std::string_view> id = words_of(columns.text(117, line.size()), 1);
  const auto known = pick_by_id_.find(id.empty() ? "" : qualified(id[0]));
  if (known == pick_by_id_.end()) {
    return refuse(fault_text("ArrID", id.empty() ? "" : id[0]));
  }
  Pick &pick = event().picks[known->second];
  Association &association = associations_[known->second];
  Pick changed = pick;
  double weight = association.weight, midnight = kNoTime;
  columns.real(49, 54, "time error", kNotNegative, changed.time_error);
  columns.real(56, 60, "time weight", kNotNegative, weight);
  columns.real(62, 66, "azimuth error", kNotNegative, changed.azimuth_error);
  columns.real(74, 79, "slowness error", kNotNegative, changed.slowness_error);
  const std::string_view date = columns.text(38, 47);
  if (!date.empty() && !parse_date_text(date, midnight)) columns.fault("date", date);
  if (!columns.good()) return refuse(columns.problem());
  changed.at.network = record_text(columns.text(1, 9));
  changed.at.channel = record_text(columns.text(11, 13));
  changed.author = record_text(columns.text(107, 115));
  if (!columns.blank(29, 36)) changed.phase = record_text(columns.text(29, 36));
  if (!date.empty() && !dated_[known->second]) {
    changed.time += midnight;
    dated_[known->second] = true;
  }
  if (!columns.blank(15, 27)) without("filters of phases");
  if (!columns.blank(68, 72) || !columns.blank(81, 85)) {
    without("weights of azimuths and slownesses");
  }
  if (!columns.blank(87, 105)) without("errors of amplitudes, periods and magnitudes");
  association.weight = weight;
  pick = std::move(changed);
  pick_ = static_cast<std::int64_t>(known->second);
  return true;
}

/* The comments of the thing that the last line was about; null: it was refused. */
std::vector<std::string> *IsfReader::comments() {
  Event &now = event();
  switch (block_) {
    case Block::kOrigins:
      return origin_ < 0 ? nullptr
                         : &now.origins[static_cast<std::size_t>(origin_)].comments;
    case Block::kMagnitudes:
      if (magnitude_ < 0) return nullptr;
      if (magnitude_origin_ < 0) {
        return &foreign_[static_cast<std::size_t>(magnitude_)].second.comments;
      }
      return &now.origins[static_cast<std::size_t>(magnitude_origin_)]
                  .magnitudes[static_cast<std::size_t>(magnitude_)]
                  .comments;
    case Block::kPhases:
    case Block::kPhaseDetails:
      return pick_ < 0 ? nullptr : &now.picks[static_cast<std::size_t>(pick_)].comments;
    default:
      return &now.comments;
  }
}

void IsfReader::put_comment(std::string text, bool continued) {
  std::vector<std::string> *list = comments();
  if (list == nullptr) return without("comments on lines that were refused");
  if (continued && !list->empty()) {
    list->back() += " " + text;
  } else {
    list->push_back(std::move(text));
  }
}

/* The writer's comment (#ID text): the id of the event, origin or phase above, for ids
 * that their columns cannot hold. */
bool IsfReader::take_id(std::string_view text, bool &taken) {
  std::string id = record_text(text);
  taken = true;
  if (id.empty()) return refuse(fault_text("ID", text));
  if (block_ == Block::kNone && event().origins.empty()) {
    event().id = std::move(id);
  } else if (block_ == Block::kOrigins && origin_ >= 0) {
    event().origins[static_cast<std::size_t>(origin_)].id = std::move(id);
  } else if (block_ == Block::kPhases && pick_ >= 0) {
    event().picks[static_cast<std::size_t>(pick_)].id = std::move(id);
  } else {
    taken = false;
  }
  return true;
}

bool IsfReader::take_comment(std::string_view line) {
  const std::string_view comment = right_trimmed(line).substr(1);
  if (block_ == Block::kOrigins && origin_ >= 0) {
    const auto at = static_cast<std::size_t>(origin_);
    if (comment.starts_with("(#PRIME")) {
      prime_ = origin_;
      return true;
    }
    if (comment.starts_with("(#CENTROID")) {
      centroids_[at] = true;
      return true;
    }
    std::string problem;
    switch (tensors_.take(line, event().origins[at], problem)) {
      case IsfTensors::Took::kRefused:
        return refuse(problem);
      case IsfTensors::Took::kYes:
        if (tensors_.without_place() != nullptr) without(tensors_.without_place());
        return true;
      case IsfTensors::Took::kNo:
        break;
    }
  }
  std::string_view text = comment.substr(1);
  if (text.ends_with(')')) text.remove_suffix(1);
  const bool continued = text.starts_with('+');
  if (text.starts_with('+') || text.starts_with('#')) text.remove_prefix(1);
  if (comment.starts_with("(#ID ")) {
    bool taken = false;
    if (!take_id(text.substr(3), taken) || taken) return taken;
  }
  const std::string kept = record_text(text);
  if (!kept.empty()) put_comment(kept, continued);
  return true;
}

void IsfReader::date_picks(Event &event) const {
  const double origin = preferred_origin(event).time;
  const double midnight = std::floor(origin / kDay) * kDay;
  for (std::size_t i = 0; i < event.picks.size(); i++) {
    if (dated_[i]) continue;
    double &time = event.picks[i].time;
    time += midnight;
    if (time < origin - kBeforeOrigin) time += kDay;
    if (time >= origin - kBeforeOrigin + kDay) time -= kDay;
  }
}

bool IsfReader::finish(Event &event) {
  block_ = Block::kNone;
  if (event.origins.empty()) return refuse("the event has no origin that can be used");
  event.preferred =
      prime_ >= 0 ? static_cast<std::size_t>(prime_) : event.origins.size() - 1;
  Origin &preferred = event.origins[event.preferred];
  std::string type = ims_event_type(types_[event.preferred]);
  for (std::size_t i = 0; i < types_.size() && type.empty(); i++) {
    type = ims_event_type(types_[i]);
  }
  event.type = type;
  for (auto &[id, magnitude] : foreign_) {
    if (!id.empty()) without("OrigID of magnitudes that no origin of the event has");
    preferred.magnitudes.push_back(std::move(magnitude));
  }
  /* Numbers with an underscore tie lines of one bulletin together, and are not ids. */
  const std::string local = source() + ":_";
  for (Origin &origin : event.origins) {
    if (origin.id.starts_with(local)) origin.id.clear();
  }
  for (Pick &pick : event.picks) {
    if (pick.id.starts_with(local)) pick.id.clear();
  }
  date_picks(event);
  preferred.associations = std::move(associations_);
  take_station_magnitudes(std::move(station_magnitudes_), preferred);
  for (std::size_t i = 0; i < event.origins.size(); i++) {
    if (!centroids_[i]) continue;
    const Origin &origin = event.origins[i];
    if (origin.tensors.empty()) without("centroids without a moment tensor");
    for (MomentTensor &tensor : event.origins[i].tensors) {
      tensor.time = origin.time;
      tensor.lat = origin.lat;
      tensor.lon = origin.lon;
      tensor.depth = origin.depth;
    }
  }
  return true;
}

}  // namespace ksutil::exchange

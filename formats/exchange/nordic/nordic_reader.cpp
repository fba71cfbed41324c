#include "formats/exchange/nordic/nordic_reader.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <iterator>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kOtherEvent = 600.0;  // s between origins of different events
constexpr Range kYears{0.0, 9999.0};
constexpr Range kMonths{1.0, 12.0};
constexpr Range kDays{1.0, 31.0};
constexpr Range kHours{0.0, 23.0};
constexpr Range kMinutes{0.0, 59.0};
constexpr Range kSeconds{0.0, 60.0};
constexpr Range kAngles{-360.0, 360.0};

/* The time of columns 2 to 15 with the seconds of others. */
struct DateTime {
  double year = -1.0, month = -1.0, day = -1.0, hour = 0.0, minute = 0.0, second = 0.0;

  void read(Columns &columns, std::size_t first_second, std::size_t last_second) {
    columns.needed(2, 10, "date");
    columns.real(2, 5, "year", kYears, year);
    columns.real(7, 8, "month", kMonths, month);
    columns.real(9, 10, "day", kDays, day);
    columns.real(12, 13, "hour", kHours, hour);
    columns.real(14, 15, "minute", kMinutes, minute);
    columns.real(first_second, last_second, "seconds", kSeconds, second);
    if (year < 0.0 || month < 0.0 || day < 0.0)
      columns.fault("date", columns.text(2, 10));
    if (year >= 0.0 && year < 100.0) year += 1900.0;
  }
  double midnight() const {
    const int y = static_cast<int>(year);
    return h2e(y, day_of_year(y, static_cast<int>(month), static_cast<int>(day)), 0, 0,
               0.0);
  }
  double epoch() const { return midnight() + 3600.0 * hour + 60.0 * minute + second; }
};

std::string magnitude_type(char letter) {
  switch (letter) {
    case 'L':
      return "ML";
    case 'b':
      return "mb";
    case 'B':
      return "mB";
    case 's':
      return "Ms";
    case 'S':
      return "MS";
    case 'W':
      return "MW";
    case 'G':
      return "MbLg";
    case 'C':
      return "Mc";
    case ' ':
      return "";
    default:
      return std::string("M") + letter;
  }
}

std::string event_type(char letter) {
  switch (letter) {
    case 'E':
    case 'P':
      return "explosion";
    case 'Q':
      return "earthquake";
    case 'V':
      return "volcanic eruption";
    case 'I':
      return "induced or triggered event";
    case 'X':
      return "landslide";
    default:
      return "";
  }
}

char line_type(const std::string &line) { return line.size() < 80 ? ' ' : line[79]; }

bool has_coordinates(const std::string &line) {
  const Columns columns(line);
  return !columns.blank(24, 30) && !columns.blank(31, 38);
}

/* What lines of a type have that no record has a place for; null: they are read. */
const char *name_of_unread(char type) {
  switch (type) {
    case '2':
      return "macroseismic information (lines 2)";
    case '5':
      return "errors in text (lines 5)";
    case '6':
      return "names of waveform files (lines 6)";
    case '8':
    case '9':
      return "lines 8 and 9";
    case 'M':
      return "moment tensors (lines M)";
    case 'P':
      return "names of pictures (lines P)";
    case 'G':
    case 'D':
    case 'T':
    case 'V':
      return "other lines";
    default:
      return nullptr;
  }
}

}  // namespace

bool is_nordic_header(std::string_view line) {
  if (line.size() < 79 || line[0] != ' ') return false;
  if (line.size() >= 80 && line[79] != '1' && line[79] != ' ') return false;
  const char distance = line[21];
  if (distance != 'L' && distance != 'R' && distance != 'D' && distance != ' ') {
    return false;
  }
  Columns columns(line);
  DateTime time;
  time.read(columns, 17, 20);
  return columns.good() && time.year >= 1000.0 && !columns.blank(12, 15);
}

bool NordicReader::ends_event(const std::string &line) {
  if (trimmed(line).empty()) return true;
  if (!only_headers_ || event().origins.empty() || line_type(line) != '1' ||
      !has_coordinates(line)) {
    return false;
  }
  Columns columns(line);
  DateTime time;
  time.read(columns, 17, 20);
  return columns.good() &&
         std::abs(time.epoch() - event().origins.front().time) > kOtherEvent;
}

/* Editors take the blanks at the ends of lines, and the last newline, away. */
bool NordicReader::is_cut_off(const std::string &line) {
  if (trimmed(line).empty() || line.size() >= kNordicPhaseWidth) return false;
  return !any_trimmed_ || ends_within_value(line, form_);
}

bool NordicReader::take(const std::string &line) {
  if (trimmed(line).empty()) return true;
  const char type = line_type(line);
  if (!in_event()) {
    begin_event();
    form_ = NordicColumns::kOld;
    only_headers_ = true;
    errors_taken_ = false;
    origin_ = -1;
    midnight_ = kNoTime;
    id_.clear();
    agency_.clear();
    type_.clear();
  }
  /* Catalogues may leave the last column of their lines blank. */
  if (type == '1' || (only_headers_ && type == ' ' && is_nordic_header(line))) {
    return take_header(line);
  }
  only_headers_ = false;
  if (const char *name = name_of_unread(type); name != nullptr) {
    without(name);
    return true;
  }
  switch (type) {
    case '3':
      return take_comment(line);
    case '7':
      form_ = heads_new_columns(line) ? NordicColumns::kNew : NordicColumns::kOld;
      return true;
    case 'E':
      return take_errors(line);
    case 'F':
      return take_plane(line);
    case 'H':
      return take_precise(line);
    case 'I':
      return take_id(line);
    case ' ':
    case '4':
      /* A heading without its type, as editors leave it. */
      if (line.starts_with(" STAT ")) {
        form_ = heads_new_columns(line) ? NordicColumns::kNew : NordicColumns::kOld;
        return true;
      }
      return take_phase(line);
    default:
      return refuse(fault_text("type of the line", std::string_view(&type, 1)));
  }
}

void NordicReader::take_magnitudes(Columns &columns, const std::string &agency,
                                   Origin &origin) {
  for (const std::size_t at : {56U, 64U, 72U}) {
    Magnitude magnitude;
    columns.real(at, at + 3, "magnitude", kMagnitudeRange, magnitude.value);
    if (magnitude.value <= -999.0) continue;
    magnitude.type = magnitude_type(columns.at(at + 4));
    magnitude.author = record_text(columns.text(at + 5, at + 7));
    if (magnitude.author.empty()) magnitude.author = agency;
    if (columns.good()) origin.magnitudes.push_back(std::move(magnitude));
  }
}

bool NordicReader::take_header(const std::string &line) {
  Columns columns(line);
  DateTime time;
  time.read(columns, 17, 20);
  Origin origin;
  origin.author = record_text(columns.text(46, 48));
  columns.real(24, 30, "latitude", kLatitudeRange, origin.lat);
  columns.real(31, 38, "longitude", kLongitudeRange, origin.lon);
  columns.real(39, 43, "depth", kDepthRange, origin.depth);
  columns.real(52, 55, "RMS", kNotNegative, origin.rms);
  take_magnitudes(columns, origin.author, origin);
  if (!columns.good()) {
    origin_ = -1;
    return refuse(columns.problem());
  }
  if (columns.at(22) != ' ') without("distance indicators (L, R, D)");
  if (columns.at(11) == 'F') without("fixed origin times");
  if (columns.at(45) == 'F') without("fixed epicentres");
  if (!columns.blank(49, 51)) without("numbers of stations");
  if (columns.at(23) == 'P') without("probable events (type P)");
  if (type_.empty()) type_ = event_type(columns.at(23));
  if (midnight_ <= kNoTime) {
    midnight_ = time.midnight();
    agency_ = origin.author;
  }
  std::vector<Origin> &origins = event().origins;
  if (origin.lat <= -999.0 || origin.lon <= -999.0) {
    const auto own = std::find_if(origins.begin(), origins.end(), [&](const Origin &o) {
      return o.author == origin.author;
    });
    if (own == origins.end()) {
      without("origins without coordinates");
      return true;
    }
    std::move(origin.magnitudes.begin(), origin.magnitudes.end(),
              std::back_inserter(own->magnitudes));
    return true;
  }
  if (columns.blank(12, 15)) return refuse(fault_text("hour and minute", ""));
  origin.time = time.epoch();
  origin.lon = wrapped_longitude(origin.lon);
  if (origin.depth > -999.0) {
    origin.depth_type = columns.at(44) == 'F' ? 'g' : columns.at(44) == 'S' ? 'r' : 'f';
  }
  origin_ = static_cast<std::int64_t>(origins.size());
  origins.push_back(std::move(origin));
  return true;
}

/* The line H: the last origin with more digits. */
bool NordicReader::take_precise(const std::string &line) {
  if (origin_ < 0) return refuse("the line H follows no origin");
  Columns columns(line);
  DateTime time;
  time.read(columns, 17, 22);
  Origin &origin = event().origins[static_cast<std::size_t>(origin_)];
  Origin precise = origin;
  columns.real(24, 32, "latitude", kLatitudeRange, precise.lat);
  columns.real(34, 43, "longitude", kLongitudeRange, precise.lon);
  columns.real(45, 52, "depth", kDepthRange, precise.depth);
  columns.real(54, 59, "RMS", kNotNegative, precise.rms);
  if (!columns.good()) return refuse(columns.problem());
  precise.lon = wrapped_longitude(precise.lon);
  precise.time = time.epoch();
  origin = std::move(precise);
  return true;
}

bool NordicReader::take_errors(const std::string &line) {
  if (!line.starts_with(" GAP=")) return refuse(fault_text("line E", line));
  if (event().origins.empty()) return refuse("the line E follows no origin");
  Columns columns(line);
  Origin &origin = event().origins.front();
  Origin changed = origin;
  double north = -1.0, east = -1.0;
  Covariance &covariance = changed.covariance;
  columns.real(6, 8, "gap", kAzimuthRange, changed.gap);
  columns.real(15, 20, "time error", kNotNegative, changed.time_error);
  columns.real(25, 30, "latitude error", kNotNegative, north);
  columns.real(33, 38, "longitude error", kNotNegative, east);
  columns.real(39, 43, "depth error", kNotNegative, changed.depth_error);
  /* Their x is east and their y is north. */
  columns.real(44, 55, "covariance xy", kAnyReal, covariance.xy);
  columns.real(56, 67, "covariance xz", kAnyReal, covariance.yz);
  columns.real(68, 79, "covariance yz", kAnyReal, covariance.xz);
  if (!columns.good()) return refuse(columns.problem());
  if (errors_taken_) {
    without("further lines E");
    return true;
  }
  errors_taken_ = true;
  if (north >= 0.0) covariance.xx = north * north;
  if (east >= 0.0) covariance.yy = east * east;
  if (changed.depth_error >= 0.0) {
    covariance.zz = changed.depth_error * changed.depth_error;
  }
  if (changed.time_error >= 0.0) {
    covariance.tt = changed.time_error * changed.time_error;
  }
  origin = std::move(changed);
  return true;
}

bool NordicReader::take_id(const std::string &line) {
  const Columns columns(line);
  if (columns.text(58, 60) == "ID:") id_ = record_text(columns.text(61, 74));
  if (columns.text(2, 8) != "ACTION:") return true;
  /* "15- 8-11 13:39" */
  std::string time(line.substr(12, 14));
  std::replace(time.begin(), time.begin() + 8, ' ', '0');
  std::replace(time.begin() + 9, time.end(), ' ', '0');
  if (!parse_date_text(time, event().updated))
    return refuse(fault_text("action", time));
  return true;
}

bool NordicReader::take_plane(const std::string &line) {
  if (event().origins.empty()) return refuse("the line F follows no origin");
  Columns columns(line);
  MomentTensor mechanism;
  columns.needed(1, 10, "strike");
  columns.needed(11, 20, "dip");
  columns.needed(21, 30, "rake");
  columns.real(1, 10, "strike", kAngles, mechanism.plane1[0]);
  columns.real(11, 20, "dip", kAngles, mechanism.plane1[1]);
  columns.real(21, 30, "rake", kAngles, mechanism.plane1[2]);
  if (!columns.good()) return refuse(columns.problem());
  mechanism.author = record_text(columns.text(67, 69));
  mechanism.algorithm = record_text(columns.text(71, 77));
  if (!columns.blank(31, 66)) without("errors of fault planes");
  event().origins.front().tensors.push_back(std::move(mechanism));
  return true;
}

bool NordicReader::take_comment(const std::string &line) {
  const std::string text = record_text(Columns(line).text(2, 79));
  if (text.starts_with("LOCALITY:") && event().place.empty()) {
    event().place = trimmed(std::string_view(text).substr(9));
  } else if (!text.empty()) {
    event().comments.push_back(text);
  }
  return true;
}

/* Adds a phase.  A line that gives azimuth and velocity of a phase that was read at the
 * same station and time adds them to that one. */
void NordicReader::put_phase(const NordicPhase &phase) {
  Event &now = event();
  std::vector<Association> &associations = now.origins.front().associations;
  const std::size_t oldest =
      now.picks.size() - std::min<std::size_t>(now.picks.size(), 8);
  for (std::size_t i = now.picks.size(); i > oldest && !phase.azimuth_of.empty(); i--) {
    Pick &pick = now.picks[i - 1];
    if (pick.phase != phase.azimuth_of || pick.time != phase.pick.time ||
        pick.at.station != phase.pick.at.station) {
      continue;
    }
    pick.azimuth = phase.pick.azimuth;
    pick.slowness = phase.pick.slowness;
    associations[i - 1].azimuth_residual = phase.association.azimuth_residual;
    return;
  }
  now.picks.push_back(phase.pick);
  associations.push_back(phase.association);
  associations.back().pick = static_cast<std::int64_t>(now.picks.size()) - 1;
}

bool NordicReader::take_phase(const std::string &line) {
  any_trimmed_ |= line.size() < kNordicPhaseWidth;
  if (event().origins.empty()) {
    return refuse("the phase belongs to an event without an origin");
  }
  NordicPhase phase;
  std::string problem;
  if (!read_nordic_phase(line, form_, midnight_, phase, problem))
    return refuse(problem);
  for (const char *name : phase.without_place) without(name);
  put_phase(phase);
  return true;
}

bool NordicReader::finish(Event &event) {
  if (event.origins.empty()) return refuse("the event has no origin that can be used");
  const Origin &first = event.origins.front();
  if (id_.empty()) {
    for (const char c : time_text(first.time, 1)) {
      if (std::isdigit(static_cast<unsigned char>(c)) != 0) id_ += c;
    }
  }
  event.id = (agency_.empty() ? "nordic" : agency_) + ":" + id_;
  event.author = first.author;
  event.type = type_;
  return true;
}

}  // namespace ksutil::exchange

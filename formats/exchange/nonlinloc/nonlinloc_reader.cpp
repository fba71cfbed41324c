#include "formats/exchange/nonlinloc/nonlinloc_reader.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <utility>

#include "formats/exchange/text/columns.h"
#include "platform/clock/clock.h"
#include "platform/geo/angle.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kKmPerDegree = 111.195;
constexpr double kConfidence = 0.68;
constexpr double kAnyLow = -1e30, kAnyHigh = 1e30;

/* The texts between quotes of a line. */
std::vector<std::string> quoted(std::string_view line) {
  std::vector<std::string> texts;
  while (texts.size() < 4) {
    const std::size_t begin = line.find('"');
    if (begin == line.npos) break;
    const std::size_t end = line.find('"', begin + 1);
    if (end == line.npos) break;
    texts.push_back(record_text(line.substr(begin + 1, end - begin - 1)));
    line.remove_prefix(end + 1);
  }
  return texts;
}

/* The words of a block that are read or have no meaning for a catalogue. */
constexpr std::array<std::string_view, 5> kControl{"GRID", "SEARCH", "HYPOCENTER",
                                                   "STAT_GEOG", "VPVSRATIO"};

}  // namespace

bool NonLinLocReader::ends_event(const std::string &line) {
  return complete_ || line.starts_with("NLLOC ") || trimmed(line) == "NLLOC";
}

/* The number after a word; false, after refuse(), when it is missing or out of bounds. */
bool NonLinLocReader::number_after(const Words &words, std::string_view word,
                                   double low, double high, double &value) {
  const auto found = std::find(words.begin(), words.end(), word);
  const std::string name(word);
  std::string problem;
  const std::string_view text =
      found == words.end() || found + 1 == words.end() ? std::string_view() : found[1];
  return read_real(text, name.c_str(), low, high, value, problem) || refuse(problem);
}

bool NonLinLocReader::take_header(const std::string &line) {
  const std::vector<std::string> texts = quoted(line);
  refused_ = true;
  if (texts.size() < 2) return refuse(fault_text("NLLOC line", line));
  if (texts[1] != "LOCATED") {
    return refuse("the location is " + texts[1] +
                  (texts.size() > 2 && !texts[2].empty() ? ": " + texts[2] : ""));
  }
  refused_ = complete_ = in_phases_ = in_scatter_ = located_ = global_ = false;
  rotation_ = 0.0;
  Event &now = begin_event();
  now.origins.emplace_back();
  std::string name = texts[0].substr(texts[0].find_last_of('/') + 1);
  const std::size_t grid = name.rfind(".grid");
  if (grid != std::string::npos) name.resize(grid);
  if (!name.empty()) now.id = "nll:" + name;
  origin().depth_type = 'f';
  return true;
}

/* "Author   NLLoc:v6.02.07 21Jun2013 12h53m34" */
void NonLinLocReader::take_signature(const std::string &line) {
  const std::vector<std::string> texts = quoted(line);
  if (texts.empty()) return;
  const std::size_t program = texts[0].find("NLLoc:");
  const std::string author = std::string(trimmed(texts[0].substr(0, program)));
  if (!author.starts_with("obs:")) origin().author = event().author = author;
  if (program == std::string::npos) return;
  const std::vector<std::string_view> words =
      words_of(std::string_view(texts[0]).substr(program));
  origin().algorithm = words[0];
  for (std::size_t i = 1; i + 1 < words.size(); i++) {
    std::string date(words[i]), time(words[i + 1]);
    if (date.starts_with("run:")) date.erase(0, 4);
    if (date.size() != 9 || time.size() != 8) continue;
    date = date.substr(0, 2) + "-" + date.substr(2, 3) + "-" + date.substr(5);
    time[2] = time[5] = ':';
    parse_date_text(date + " " + time, event().updated);
  }
}

bool NonLinLocReader::take_geographic(const Words &words) {
  double year = 0.0, month = 0.0, day = 0.0, hour = 0.0, minute = 0.0, second = 0.0;
  const std::array<std::pair<double *, Range>, 6> parts{{{&year, {1000.0, 9999.0}},
                                                         {&month, {1.0, 12.0}},
                                                         {&day, {1.0, 31.0}},
                                                         {&hour, {0.0, 99.0}},
                                                         {&minute, {0.0, 99.0}},
                                                         {&second, {-1e5, 1e5}}}};
  std::string problem;
  for (std::size_t i = 0; i < parts.size(); i++) {
    const std::string_view text = i + 2 < words.size() ? words[i + 2] : "";
    if (!read_real(text, "origin time", parts[i].second.low, parts[i].second.high,
                   *parts[i].first, problem)) {
      return refuse(problem);
    }
  }
  Origin place;
  if (!number_after(words, "Lat", -90.0, 90.0, place.lat) ||
      !number_after(words, "Long", -180.0, 360.0, place.lon) ||
      !number_after(words, "Depth", kDepthRange.low, kDepthRange.high, place.depth)) {
    return false;
  }
  const int y = static_cast<int>(year);
  origin().time = h2e(y, day_of_year(y, static_cast<int>(month), static_cast<int>(day)),
                      static_cast<int>(hour), static_cast<int>(minute), second);
  origin().lat = place.lat;
  origin().lon = wrapped_longitude(place.lon);
  origin().depth = place.depth;
  located_ = true;
  return true;
}

bool NonLinLocReader::take_quality(const Words &words) {
  double rms = -1.0, phases = -1.0, gap = -1.0, nearest = -1.0;
  if (!number_after(words, "RMS", kAnyLow, kAnyHigh, rms) ||
      !number_after(words, "Nphs", -1.0, 1e9, phases) ||
      !number_after(words, "Gap", -1.0, 360.0, gap) ||
      !number_after(words, "Dist", -1.0, 1e6, nearest)) {
    return false;
  }
  origin().rms = rms < 0.0 ? -1.0 : rms;
  origin().phases = static_cast<std::int64_t>(phases);
  origin().gap = gap;
  origin().nearest = nearest < 0.0 ? -1.0 : nearest;
  /* "Mamp VALUE NUMBER Mdur VALUE NUMBER"; -9.9 stands for none. */
  for (const auto &[word, type] :
       {std::pair<std::string_view, const char *>{"Mamp", "ML"}, {"Mdur", "MD"}}) {
    const auto found = std::find(words.begin(), words.end(), word);
    if (words.end() - found < 3) continue;
    double value = -999.0, stations = -1.0;
    std::string problem;
    if (!read_real(found[1], "magnitude", kMagnitudeRange.low, kMagnitudeRange.high,
                   value, problem) ||
        !read_real(found[2], "readings of a magnitude", 0.0, 1e9, stations, problem)) {
      return refuse(problem);
    }
    if (value <= -9.0) continue;
    Magnitude &magnitude = origin().magnitudes.emplace_back();
    magnitude.type = type;
    magnitude.value = value;
    magnitude.stations = static_cast<std::int64_t>(stations);
    magnitude.author = origin().author;
  }
  return true;
}

/* Their axes are x, y and z; the covariance is turned to north and east when the whole
 * block is known. */
bool NonLinLocReader::take_statistics(const Words &words) {
  /* The words after ExpectX are "Y" and "Z", which the covariance does not have. */
  Covariance covariance;
  if (!number_after(words, "CovXX", kAnyLow, kAnyHigh, covariance.xx) ||
      !number_after(words, "XY", kAnyLow, kAnyHigh, covariance.xy) ||
      !number_after(words, "XZ", kAnyLow, kAnyHigh, covariance.xz) ||
      !number_after(words, "YY", kAnyLow, kAnyHigh, covariance.yy) ||
      !number_after(words, "YZ", kAnyLow, kAnyHigh, covariance.yz) ||
      !number_after(words, "ZZ", kAnyLow, kAnyHigh, covariance.zz)) {
    return false;
  }
  if (covariance.xx < 0.0 || covariance.yy < 0.0 || covariance.zz < 0.0) {
    return refuse("a variance is negative");
  }
  origin().covariance = covariance;
  return true;
}

bool NonLinLocReader::take_transform(const Words &words) {
  global_ = words.size() > 1 && words[1] == "GLOBAL";
  if (std::find(words.begin(), words.end(), "RotCW") == words.end()) return true;
  return number_after(words, "RotCW", -360.0, 360.0, rotation_);
}

bool NonLinLocReader::take_origin_quality(const Words &words) {
  double associated = -1.0, depth_phases = -1.0;
  if (!number_after(words, "assocPhCt", -1.0, 1e9, associated) ||
      !number_after(words, "depthPhCt", -1.0, 1e9, depth_phases)) {
    return false;
  }
  origin().associated = static_cast<std::int64_t>(associated);
  origin().depth_phases = static_cast<std::int64_t>(depth_phases);
  return true;
}

bool NonLinLocReader::take_uncertainty(const Words &words) {
  double minor = -1.0, major = -1.0, strike = -1.0;
  if (!number_after(words, "minHorUnc", kAnyLow, kAnyHigh, minor) ||
      !number_after(words, "maxHorUnc", kAnyLow, kAnyHigh, major) ||
      !number_after(words, "azMaxHorUnc", -360.0, 360.0, strike)) {
    return false;
  }
  if (minor < 0.0 || major < 0.0) return true;
  origin().minor_axis = minor;
  origin().major_axis = major;
  origin().ellipse_strike = strike < 0.0 ? strike + 360.0 : strike;
  origin().confidence = kConfidence;
  return true;
}

/* "FOCALMECH Hyp LAT LON DEPTH Mech DIPDIR DIP RAKE mf MISFIT nObs N" */
bool NonLinLocReader::take_mechanism(const Words &words) {
  double observations = 0.0;
  if (!number_after(words, "nObs", 0.0, 1e9, observations)) return false;
  if (observations <= 0.0) return true;
  const auto at = std::find(words.begin(), words.end(), "Mech");
  if (words.end() - at < 4) return refuse(fault_text("Mech", ""));
  std::array<double, 3> plane{};
  std::string problem;
  for (std::size_t i = 0; i < plane.size(); i++) {
    if (!read_real(at[static_cast<std::ptrdiff_t>(i) + 1], "focal mechanism", -360.0,
                   360.0, plane[i], problem)) {
      return refuse(problem);
    }
  }
  plane[0] = plane[0] < 90.0 ? plane[0] + 270.0 : plane[0] - 90.0;
  MomentTensor &mechanism = origin().tensors.emplace_back();
  mechanism.plane1 = plane;
  mechanism.author = origin().author;
  without("misfits and observations of focal mechanisms");
  return true;
}

/* ID Ins Cmp On Pha FM Date HrMn Sec Err ErrMag Coda Amp Per [PriorWt] > TTpred Res Weight
 * X Y Z SDist SAzim RAz RDip RQual Tcorr */
bool NonLinLocReader::take_phase(const Words &words) {
  const auto arrow = std::find(words.begin(), words.end(), ">");
  const auto before = arrow - words.begin();
  if (before < 14 || words.end() - arrow < 9) {
    return refuse("the phase has fewer values than the format gives");
  }
  const auto word = [&](std::size_t i) {
    return words[i] == "?" ? std::string() : record_text(words[i]);
  };
  Pick pick;
  Association association;
  pick.at.station = word(0);
  pick.at.channel = word(2);
  pick.phase = association.phase = word(4);
  const char onset = words[3][0];
  if (onset == 'i' || onset == 'I') pick.onset = 'i';
  if (onset == 'e' || onset == 'E') pick.onset = 'e';
  const char motion = words[5][0];
  if (std::string_view("cCuU+").find(motion) != std::string_view::npos) {
    pick.first_motion = 'c';
  }
  if (std::string_view("dD-").find(motion) != std::string_view::npos) {
    pick.first_motion = 'd';
  }
  if (pick.at.station.empty()) return refuse(fault_text("station", words[0]));
  double midnight = 0.0, clock = 0.0, second = 0.0, error = -1.0, travel = 0.0;
  double residual = 0.0, weight = 0.0, distance = 0.0, azimuth = 0.0;
  std::string problem;
  if (words[6].size() != 8 || !parse_date_text(words[6], midnight)) {
    return refuse(fault_text("date", words[6]));
  }
  if (!read_real(words[7], "HrMn", 0.0, 9999.0, clock, problem) ||
      !read_real(words[8], "Sec", -1e5, 1e5, second, problem) ||
      !read_real(words[10], "ErrMag", kAnyLow, kAnyHigh, error, problem) ||
      !read_real(arrow[1], "TTpred", kAnyLow, kAnyHigh, travel, problem) ||
      !read_real(arrow[2], "Res", kAnyLow, kAnyHigh, residual, problem) ||
      !read_real(arrow[3], "Weight", 0.0, 1e6, weight, problem) ||
      !read_real(arrow[7], "SDist", kAnyLow, kAnyHigh, distance, problem) ||
      !read_real(arrow[8], "SAzim", -360.0, 360.0, azimuth, problem)) {
    return refuse(problem);
  }
  const double hour = std::floor(clock / 100.0);
  pick.time = midnight + 3600.0 * hour + 60.0 * (clock - 100.0 * hour) + second;
  if (words[9] == "GAU" && error >= 0.0) pick.time_error = error;
  for (const std::size_t i : {11U, 12U, 13U}) {
    double value = -1.0;
    if (!read_real(words[i], "Coda, Amp or Per", kAnyLow, kAnyHigh, value, problem)) {
      return refuse(problem);
    }
    if (value > 0.0) without("codas, amplitudes and periods, whose unit is not given");
  }
  /* Without a predicted time the station is not known: it has no place and no residual. */
  if (travel > 0.0) {
    association.time_residual = residual;
    association.delta =
        std::clamp(global_ ? distance : distance / kKmPerDegree, 0.0, 180.0);
    association.esaz = azimuth < 0.0 ? azimuth + 360.0 : azimuth;
  }
  association.weight = weight;  // the weights of a location average 1
  association.time_used = weight > 0.0 ? 'd' : 'n';
  association.pick = static_cast<std::int64_t>(event().picks.size());
  event().picks.push_back(std::move(pick));
  origin().associations.push_back(std::move(association));
  return true;
}

bool NonLinLocReader::take(const std::string &line) {
  const Words words = words_of(line);
  if (words.empty()) return true;
  const std::string_view word = words[0];
  if (word == "NLLOC") return take_header(line);
  if (!in_event()) {
    if (!refused_) without("lines outside of events");
    if (word == "END_NLLOC") refused_ = false;
    return true;
  }
  if (word == "END_NLLOC") {
    complete_ = true;
    return true;
  }
  if (word == "END_PHASE" || word == "END_SCATTER") {
    in_phases_ = in_scatter_ = false;
    return true;
  }
  if (in_phases_) return take_phase(words);
  if (in_scatter_) return true;
  if (word == "PHASE") {
    in_phases_ = true;
    return true;
  }
  if (word == "SCATTER") {
    in_scatter_ = true;
    without("samples of the density of a location");
    return true;
  }
  if (word == "PUBLIC_ID") {
    if (words.size() > 1) event().id = record_text(words[1]);
    return true;
  }
  if (word == "SIGNATURE") {
    take_signature(line);
    return true;
  }
  if (word == "COMMENT") {
    for (std::string &text : quoted(line)) {
      if (!text.empty()) event().comments.push_back(std::move(text));
    }
    return true;
  }
  if (word == "GEOGRAPHIC") return take_geographic(words);
  if (word == "QUALITY") return take_quality(words);
  if (word == "STATISTICS") return take_statistics(words);
  if (word == "TRANSFORM" || word == "TRANS") return take_transform(words);
  if (word == "QML_OriginQuality") return take_origin_quality(words);
  if (word == "QML_OriginUncertainty") return take_uncertainty(words);
  if (word == "FOCALMECH") return take_mechanism(words);
  if (word == "QML_ConfidenceEllipsoid") {
    without("ellipsoids of confidence");
  } else if (std::find(kControl.begin(), kControl.end(), word) == kControl.end()) {
    without("other lines");
  }
  return true;
}

bool NonLinLocReader::finish(Event &event) {
  if (!located_) return refuse("the location has no line GEOGRAPHIC that can be used");
  if (!complete_) return refuse("the location ends without END_NLLOC: it is cut off");
  Origin &origin = event.origins.front();
  if (event.id.empty()) event.id = "nll:" + time_text(origin.time, 3);
  if (origin.nearest >= 0.0) {
    /* TRANSFORM, which tells the unit, follows QUALITY. */
    if (!global_) origin.nearest /= kKmPerDegree;
    origin.nearest = std::min(origin.nearest, 180.0);
  }
  Covariance &covariance = origin.covariance;
  if (covariance.xx >= 0.0 && global_) {
    without("covariances in degrees");
    covariance = Covariance();
  } else if (covariance.xx >= 0.0) {
    /* North is RotCW clockwise of their y: y points RotCW counter-clockwise of north, and x
     * to its right. */
    const double c = std::cos(radians(-rotation_)), s = std::sin(radians(-rotation_));
    const Covariance own = covariance;
    covariance.xx = c * c * own.yy - 2.0 * s * c * own.xy + s * s * own.xx;
    covariance.yy = s * s * own.yy + 2.0 * s * c * own.xy + c * c * own.xx;
    covariance.xy = s * c * own.yy + (c * c - s * s) * own.xy - s * c * own.xx;
    covariance.xz = c * own.yz - s * own.xz;
    covariance.yz = s * own.yz + c * own.xz;
    origin.depth_error = std::sqrt(own.zz);
  }
  return true;
}

}  // namespace ksutil::exchange

#include "formats/exchange/quakeml/element_values.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "formats/exchange/quakeml/field_attributes.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

bool is_digit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

/* "+hh:mm" or "-hh:mm" at the end of a text with a time of day; 0: there is none. */
bool has_offset(std::string_view text) {
  if (text.size() < 16) return false;
  const std::string_view end = text.substr(text.size() - 6);
  return (end[0] == '+' || end[0] == '-') && is_digit(end[1]) && is_digit(end[2]) &&
         end[3] == ':' && is_digit(end[4]) && is_digit(end[5]) &&
         text.find('T') != text.npos;
}

}  // namespace

std::string one_line(std::string_view text) {
  std::string line;
  bool blank = false;
  for (const char c : text) {
    const bool breaks = static_cast<unsigned char>(c) < ' ' || c == 127;
    if (breaks) {
      blank = true;
      continue;
    }
    if (blank) {
      line.resize(right_trimmed(line).size());
      if (c == ' ') continue;
      if (!line.empty()) line += ' ';
      blank = false;
    }
    line += c;
  }
  return line;
}

bool parse_xml_time(std::string_view text, double &epoch) {
  double seconds = 0.0;
  if (has_offset(text)) {
    const std::string_view offset = text.substr(text.size() - 6);
    const auto two = [&](std::size_t at) {
      return 10.0 * (offset[at] - '0') + (offset[at + 1] - '0');
    };
    seconds = (offset[0] == '-' ? -1.0 : 1.0) * (3600.0 * two(1) + 60.0 * two(4));
    text.remove_suffix(6);
  }
  double time = 0.0;
  if (!parse_date_text(text, time)) return false;
  epoch = time - seconds;
  return true;
}

std::string last_part(std::string_view identifier) {
  const std::size_t slash = identifier.rfind('/');
  if (slash == identifier.npos) return std::string(identifier);
  const std::string_view last = identifier.substr(slash + 1);
  const bool number = std::all_of(last.begin(), last.end(),
                                  [](char c) { return is_digit(c) || c == '.'; });
  const std::size_t before =
      slash == 0 ? identifier.npos : identifier.rfind('/', slash - 1);
  return std::string(number && before != identifier.npos ? identifier.substr(before + 1)
                                                         : last);
}

void ElementValues::refuse(std::string_view path, const std::string &text) const {
  if (!problem_.empty()) return;
  std::string shown = text.substr(0, 60);
  std::replace_if(
      shown.begin(), shown.end(),
      [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 127; }, '?');
  problem_ = element_.name + "/" + std::string(path) + " is '" + shown + "'";
}

ElementValues::Got ElementValues::read(std::string_view path, double &value,
                                       double unit, double low, double high) const {
  const std::string &text = element_.text_of(path);
  if (text.empty()) return Got::kNothing;
  double number = 0.0;
  if (!parse_real(text, number) || !std::isfinite(number) || number * unit < low ||
      number * unit > high) {
    return Got::kFault;
  }
  value = number * unit;
  return Got::kValue;
}

void ElementValues::real(std::string_view path, double &value, double unit, double low,
                         double high) const {
  if (read(path, value, unit, low, high) == Got::kFault) {
    left_out_.add(element_.name + "/" + std::string(path) + " beyond its range");
  }
}

void ElementValues::needed(std::string_view path, double &value, double unit,
                           double low, double high) const {
  const std::string &text = element_.text_of(path);
  double number = 0.0;
  if (parse_real(text, number) && std::isnan(number)) return;
  if (read(path, value, unit, low, high) == Got::kFault) refuse(path, text);
}

void ElementValues::azimuth(std::string_view path, double &value) const {
  constexpr double kCircle = 360.0;
  double degrees = -2.0 * kCircle;
  real(path, degrees, 1.0, -kCircle, 2.0 * kCircle);
  if (degrees < -kCircle) return;
  if (degrees < 0.0) degrees += kCircle;
  value = degrees > kCircle ? degrees - kCircle : degrees;
}

void ElementValues::count(std::string_view path, std::int64_t &value) const {
  double number = -1.0;
  real(path, number, 1.0, 0.0, 1e9);
  if (number >= 0.0) value = std::llround(number);
}

void ElementValues::time(std::string_view path, double &value) const {
  const std::string &text = element_.text_of(path);
  if (text.empty()) return;
  if (!parse_xml_time(text, value)) refuse(path, text);
}

std::string ElementValues::author() const {
  const std::string &agency = element_.text_of("creationInfo/agencyID");
  return one_line(agency.empty() ? element_.text_of("creationInfo/author") : agency);
}

void ElementValues::created(double &latest) const {
  for (const char *path :
       {"creationInfo/creationTime", "creationInfo/modificationTime"}) {
    const std::string &text = element_.text_of(path);
    double when = 0.0;
    if (!text.empty() && !parse_xml_time(text, when)) {
      left_out_.add(std::string(path) + " that is not a time");
    }
    latest = std::max(latest, when);
  }
}

std::string ElementValues::status() const {
  const std::string &status = element_.text_of("evaluationStatus");
  return status.empty() ? element_.text_of("evaluationMode") : status;
}

void ElementValues::comments(std::vector<std::string> &texts) const {
  element_.each("comment", [&](const XmlElement &comment) {
    const std::string &text = comment.text_of("text");
    if (!text.empty()) texts.push_back(text);
  });
}

void ElementValues::field(const char *name, double &value) const {
  const std::string &text = element_.attribute(name);
  double number = 0.0;
  if (text.empty()) return;
  if (!parse_real(text, number) || !std::isfinite(number)) return refuse(name, text);
  value = number;
}

void ElementValues::field(const char *name, std::string &value) const {
  const std::string &text = element_.attribute(name);
  if (!text.empty()) value = text;
}

void ElementValues::field(const char *name, char &value) const {
  const std::string &text = element_.attribute(name);
  if (text.size() == 1 && text.front() > ' ' && text.front() < 127)
    value = text.front();
}

bool ElementValues::covariance(Covariance &c) const {
  const std::string &text = element_.attribute(kCovarianceField);
  if (text.empty()) return false;
  std::string_view rest = text;
  for (double *value :
       {&c.xx, &c.yy, &c.zz, &c.tt, &c.xy, &c.xz, &c.yz, &c.tx, &c.ty, &c.tz}) {
    rest = trimmed(rest);
    const std::size_t end = std::min(rest.find(' '), rest.size());
    double number = 0.0;
    if (!parse_real(rest.substr(0, end), number) || !std::isfinite(number)) {
      refuse(kCovarianceField, text);
      return true;
    }
    *value = number;
    rest.remove_prefix(end);
  }
  return true;
}

ChannelCode ElementValues::channel() const {
  ChannelCode code;
  const XmlElement *waveform = element_.find("waveformID");
  if (waveform == nullptr) return code;
  code.network = waveform->attribute("networkCode");
  code.station = waveform->attribute("stationCode");
  code.location = location_code(waveform->attribute("locationCode"));
  code.channel = waveform->attribute("channelCode");
  /* Two hyphens or blanks stand for nothing. */
  for (std::string *text : {&code.network, &code.channel}) {
    if (*text == "--" || trimmed(*text).empty()) text->clear();
  }
  return code;
}

}  // namespace ksutil::exchange

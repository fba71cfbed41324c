#include "formats/exchange/ndk/ndk_reader.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kDyneCm = 1e-7;  // N m
constexpr const char *kAuthor = "GCMT";

/* Columns of a line as they are counted in the description, from 1. */
std::string_view columns(const std::string &line, std::size_t first, std::size_t last) {
  if (line.size() < first) return {};
  return trimmed(std::string_view(line).substr(first - 1, last - first + 1));
}

bool is_digits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::isdigit(c) != 0;
  });
}

}  // namespace

bool is_ndk_hypocentre(std::string_view line) {
  return line.size() >= 47 && line.size() <= 82 && is_digits(line.substr(5, 4)) &&
         line[9] == '/' && line[12] == '/' && line[18] == ':' && line[21] == ':';
}

bool NdkReader::refuse(const char *name, std::string_view text) {
  std::string shown(text.substr(0, 60));
  std::replace_if(
      shown.begin(), shown.end(),
      [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 127; }, '?');
  problem_ = std::string(name) + " is '" + shown + "'";
  return false;
}

bool NdkReader::real(std::string_view text, const char *name, double &value) {
  double number = 0.0;
  if (!parse_real(text, number) || !std::isfinite(number)) return refuse(name, text);
  value = number;
  return true;
}

/* Numbers with blanks between them. */
bool NdkReader::reals(std::string_view text, const char *name, double *values,
                      std::size_t count) {
  for (std::size_t i = 0; i < count; i++) {
    text = trimmed(text);
    const std::size_t end = std::min(text.find(' '), text.size());
    if (!real(text.substr(0, end), name, values[i])) return false;
    text.remove_prefix(end);
  }
  return true;
}

bool NdkReader::read_hypocentre(Event &event) {
  const std::string &line = text_[0];
  Origin &origin = event.origins.emplace_back();
  origin.author = columns(line, 1, 4);
  const std::string time =
      std::string(columns(line, 6, 15)) + " " + std::string(columns(line, 17, 26));
  if (!parse_date_text(time, origin.time)) return refuse("time", time);
  std::array<double, 2> sizes{};
  if (!real(columns(line, 28, 33), "latitude", origin.lat) ||
      !real(columns(line, 35, 41), "longitude", origin.lon) ||
      !real(columns(line, 43, 47), "depth", origin.depth) ||
      !reals(columns(line, 49, 55), "magnitude", sizes.data(), sizes.size())) {
    return false;
  }
  if (std::abs(origin.lat) > 90.0) return refuse("latitude", columns(line, 28, 33));
  if (std::abs(origin.lon) > 180.0) return refuse("longitude", columns(line, 35, 41));
  /* 0.0 stands for a magnitude that is not given. */
  for (std::size_t i = 0; i < sizes.size(); i++) {
    if (sizes[i] <= 0.0) continue;
    Magnitude &magnitude = origin.magnitudes.emplace_back();
    magnitude.type = i == 0 ? "mb" : "ms";
    magnitude.value = sizes[i];
    magnitude.author = origin.author;
  }
  event.place = columns(line, 57, 80);
  event.id = columns(text_[1], 1, 16);
  if (event.id.empty()) return refuse("name", event.id);
  event.author = kAuthor;
  event.type = "earthquake";
  return true;
}

bool NdkReader::read_centroid(Event &event, MomentTensor &tensor) {
  const std::string &line = text_[2];
  if (!line.starts_with("CENTROID:")) return refuse("centroid", line);
  std::array<double, 8> values{};  // time, latitude, longitude, depth, with errors
  if (!reals(columns(line, 10, 58), "centroid", values.data(), values.size())) {
    return false;
  }
  tensor.time = event.origins[0].time + values[0];
  tensor.lat = values[2];
  tensor.lon = values[4];
  tensor.depth = values[6];
  /* "Q-20060101123000": when it was computed; zeros stand for not known. */
  const std::string_view stamp = columns(line, 65, 80);
  if (stamp.size() == 16 && stamp[1] == '-' && is_digits(stamp.substr(2))) {
    const std::string date(stamp.substr(2));
    parse_date_text(date.substr(0, 8) + "T" + date.substr(8), event.updated);
  }
  return true;
}

bool NdkReader::read_tensor(MomentTensor &tensor) {
  std::array<double, 13> values{};  // exponent, then six elements with their errors
  if (!reals(text_[3], "moment tensor", values.data(), values.size())) return false;
  if (!(values[0] >= 0.0 && values[0] <= 40.0)) return refuse("exponent", text_[3]);
  const double unit = std::pow(10.0, values[0]) * kDyneCm;
  for (std::size_t i = 0; i < tensor.elements.size(); i++) {
    tensor.elements[i] = values[1 + 2 * i] * unit;
  }
  exponent_ = static_cast<int>(values[0]);
  return true;
}

bool NdkReader::read_planes(MomentTensor &tensor) {
  std::array<double, 7> values{};  // moment, strike, dip and rake of both planes
  if (!reals(columns(text_[4], 50, 80), "moment and planes", values.data(),
             values.size())) {
    return false;
  }
  if (!(values[0] > 0.0)) return refuse("moment", columns(text_[4], 50, 56));
  tensor.moment = values[0] * std::pow(10.0, exponent_) * kDyneCm;
  tensor.mw = (std::log10(tensor.moment / kDyneCm) - 16.1) / 1.5;
  if (!reals(columns(text_[4], 4, 48), "axes", tensor.axes.data(),
             tensor.axes.size())) {
    return false;
  }
  for (const std::size_t value : {0U, 3U, 6U}) {
    tensor.axes[value] *= std::pow(10.0, exponent_) * kDyneCm;
  }
  tensor.plane1 = {values[1], values[2], values[3]};
  tensor.plane2 = {values[4], values[5], values[6]};
  return true;
}

namespace {

/* The stations and components of a group like "B:  4    4  40". */
std::pair<std::int64_t, std::int64_t> data_of(std::string_view group) {
  const auto number = [&](std::size_t from, std::size_t count) {
    std::int64_t value = -1;
    if (group.size() < from) return value;
    parse_integer(trimmed(group.substr(from, count)), value);
    return value;
  };
  return {number(2, 3), number(5, 5)};
}

bool is_zero(std::string_view text) {
  double value = 0.0;
  return text.empty() || (parse_real(text, value) && value == 0.0);
}

}  // namespace

/* Body, surface and mantle waves: a station may have several, a component has one. */
void NdkReader::read_data(MomentTensor &tensor) const {
  for (const std::size_t first : {18U, 33U, 48U}) {
    const auto [stations, components] = data_of(
        std::string_view(text_[1]).substr(std::min(first - 1, text_[1].size())));
    tensor.stations = std::max(tensor.stations, stations);
    if (components >= 0) {
      tensor.components = std::max<std::int64_t>(tensor.components, 0) + components;
    }
  }
}

/* Counts what the rows have no fields for. */
void NdkReader::count_rest() {
  const auto count = [&](bool given, const char *name) {
    if (given) unplaced_.add(name);
  };
  bool periods = false;
  for (const std::size_t first : {28U, 43U, 58U}) {
    periods = periods || !is_zero(columns(text_[1], first, first + 3));
  }
  count(periods, "shortest periods of the data");
  count(!columns(text_[1], 63, 68).empty(), "types of sources (CMT)");
  count(!is_zero(columns(text_[1], 76, 80)), "moment rate functions");
  std::array<double, 8> centroid{};
  reals(columns(text_[2], 10, 58), "", centroid.data(), centroid.size());
  count(centroid[1] != 0.0 || centroid[3] != 0.0 || centroid[5] != 0.0 ||
            centroid[7] != 0.0,
        "errors of centroids");
  count(!columns(text_[2], 60, 63).empty(), "types of centroid depths");
  std::array<double, 13> elements{};
  reals(text_[3], "", elements.data(), elements.size());
  bool errors = false;
  for (std::size_t i = 2; i < elements.size(); i += 2) {
    errors = errors || elements[i] != 0.0;
  }
  count(errors, "errors of tensor elements");
  count(!columns(text_[4], 1, 3).empty(), "versions of the program");
}

/* Reads on to the first line of an event; false at the end.  What stands between is
 * refused once. */
bool NdkReader::find_first() {
  if (first_known_) return true;
  while (lines_.next(text_[0])) {
    if (trimmed(text_[0]).empty()) continue;
    if (is_ndk_hypocentre(text_[0])) return first_known_ = true;
    if (problem_.empty()) {
      line_ = lines_.number();
      refuse("hypocentre line", text_[0]);
    }
  }
  return false;
}

NdkReader::Got NdkReader::next(Event &event) {
  problem_.clear();
  const bool found = find_first();
  if (!lines_.problem().empty()) {
    problem_ = lines_.problem();
    return Got::kFailed;
  }
  if (!problem_.empty()) return Got::kRefused;
  if (!found) return Got::kEnd;
  first_known_ = false;
  line_ = lines_.number();
  for (std::size_t i = 1; i < kLines; i++) {
    const bool whole = lines_.next(text_[i]);
    if (whole && !is_ndk_hypocentre(text_[i])) continue;
    if (whole) {
      text_[0] = text_[i];
      first_known_ = true;
    }
    problem_ = "the event has fewer than five lines";
    return Got::kRefused;
  }
  event = Event();
  event.line = line_;
  MomentTensor tensor;
  tensor.author = kAuthor;
  if (!read_hypocentre(event) || !read_centroid(event, tensor) ||
      !read_tensor(tensor) || !read_planes(tensor)) {
    return Got::kRefused;
  }
  read_data(tensor);
  count_rest();
  Magnitude &magnitude = event.origins[0].magnitudes.emplace_back();
  magnitude.type = "mwc";
  magnitude.value = tensor.mw;
  magnitude.author = kAuthor;
  event.origins[0].tensors.push_back(std::move(tensor));
  return Got::kRecord;
}

}  // namespace ksutil::exchange

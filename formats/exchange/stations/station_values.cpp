#include "formats/exchange/stations/station_values.h"

#include <algorithm>
#include <cmath>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kOpen = 9999999999.0;  // the end of times in tables

/* Takes an offset such as +01:00 off a time of day; false when it is not one. */
bool take_offset(std::string_view &text, double &seconds) {
  seconds = 0.0;
  if (text.size() < 17) return true;
  const std::string_view offset = text.substr(text.size() - 6);
  if ((offset[0] != '+' && offset[0] != '-') || offset[3] != ':') return true;
  std::int64_t hours = 0, minutes = 0;
  if (!parse_integer(offset.substr(1, 2), hours) ||
      !parse_integer(offset.substr(4, 2), minutes)) {
    return false;
  }
  seconds = static_cast<double>(hours * 3600 + minutes * 60) *
            (offset[0] == '-' ? -1.0 : 1.0);
  text.remove_suffix(6);
  return true;
}

bool read_time(std::string_view text, double &time) {
  text = trimmed(text);
  double offset = 0.0;
  if (!take_offset(text, offset) || !parse_date_text(text, time)) return false;
  time -= offset;
  return true;
}

}  // namespace

bool read_epoch(std::string_view start, std::string_view end, Epoch &epoch,
                std::string &cause) {
  Epoch read;
  if (!trimmed(start).empty() && !read_time(start, read.start)) {
    cause = "the start '" + std::string(start.substr(0, 40)) + "' is not a time";
    return false;
  }
  if (!trimmed(end).empty() && !read_time(end, read.end)) {
    cause = "the end '" + std::string(end.substr(0, 40)) + "' is not a time";
    return false;
  }
  if (read.end >= kOpen) read.end = kNoTime;
  if (read.end != kNoTime && read.start != kNoTime && read.end < read.start) {
    cause = "the epoch ends before it begins";
    return false;
  }
  epoch = read;
  return true;
}

std::string exchange_time(double time) {
  if (time == kNoTime) return "";
  std::string text = time_text(time, 6);
  while (text.ends_with('0')) text.pop_back();
  if (text.ends_with('.')) text.pop_back();
  return text;
}

std::string fit_place(double lat, double &lon) {
  if (lat != -999.0 && !(std::fabs(lat) <= 90.0)) {
    return "the latitude is not between -90 and 90";
  }
  if (lon == -999.0) return "";
  if (!(lon >= -180.0 && lon <= 360.0))
    return "the longitude is not between -180 and 180";
  if (lon > 180.0) lon -= 360.0;
  return "";
}

bool can_be_code(std::string_view code) {
  return !code.empty() && code != "-" &&
         std::all_of(code.begin(), code.end(), [](char c) {
           return static_cast<unsigned char>(c) >= ' ' && c != 127;
         });
}

}  // namespace ksutil::exchange

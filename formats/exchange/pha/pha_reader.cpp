#include "formats/exchange/pha/pha_reader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "formats/exchange/text/columns.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

struct Value {
  const char *name;
  double low, high;
};

constexpr std::array<Value, 13> kValues{{{"year", 0.0, 9999.0},
                                         {"month", 1.0, 12.0},
                                         {"day", 1.0, 31.0},
                                         {"hour", 0.0, 24.0},
                                         {"minute", 0.0, 60.0},
                                         {"seconds", -100.0, 100.0},
                                         {"latitude", -90.0, 90.0},
                                         {"longitude", -180.0, 360.0},
                                         {"depth", kDepthRange.low, kDepthRange.high},
                                         {"magnitude", -99.0, 12.0},
                                         {"EH", -1.0, 1e6},
                                         {"EZ", -1.0, 1e6},
                                         {"RMS", -1.0, 1e6}}};

}  // namespace

bool is_pha_header(std::string_view line) {
  if (!line.starts_with('#')) return false;
  const std::vector<std::string_view> words = words_of(line.substr(1));
  double value = 0.0;
  return words.size() == kValues.size() + 1 &&
         std::all_of(words.begin(), words.end(), [&](std::string_view word) {
           return parse_real(word, value) && std::isfinite(value);
         });
}

bool PhaReader::take_header(const std::string &line) {
  const std::vector<std::string_view> words =
      words_of(std::string_view(line).substr(1));
  if (words.size() != kValues.size() + 1) return refuse(fault_text("event line", line));
  std::array<double, kValues.size()> v{};
  std::string problem;
  for (std::size_t i = 0; i < v.size(); i++) {
    if (!read_real(words[i], kValues[i].name, kValues[i].low, kValues[i].high, v[i],
                   problem)) {
      return refuse(problem);
    }
  }
  Event &now = begin_event();
  now.id = "pha:" + record_text(words.back());
  Origin &origin = now.origins.emplace_back();
  const int year = static_cast<int>(v[0]) + (v[0] < 100.0 ? 1900 : 0);
  origin.time =
      h2e(year, day_of_year(year, static_cast<int>(v[1]), static_cast<int>(v[2])),
          static_cast<int>(v[3]), static_cast<int>(v[4]), v[5]);
  origin.lat = v[6];
  origin.lon = wrapped_longitude(v[7]);
  origin.depth = v[8];
  if (v[9] > -9.0) origin.magnitudes.emplace_back().value = v[9];
  if (v[10] > 0.0) origin.horizontal_error = v[10];
  if (v[11] > 0.0) origin.depth_error = v[11];
  if (v[12] > 0.0) origin.rms = v[12];
  return true;
}

bool PhaReader::take(const std::string &line) {
  if (trimmed(line).empty()) return true;
  if (line.starts_with('#')) return take_header(line);
  if (!in_event()) return refuse("the phase belongs to an event that was refused");
  const std::vector<std::string_view> words = words_of(line);
  if (words.size() != 4) return refuse(fault_text("phase line", line));
  Pick pick;
  Association association;
  double travel_time = 0.0, weight = 0.0;
  std::string problem;
  if (!read_real(words[1], "travel time", -1e6, 1e6, travel_time, problem) ||
      !read_real(words[2], "weight", -1e6, 1e6, weight, problem)) {
    return refuse(problem);
  }
  Origin &origin = event().origins.front();
  pick.at.station = record_text(words[0]);
  pick.phase = association.phase = record_text(words[3]);
  pick.time = origin.time + travel_time;
  /* A negative weight tells the program to keep the phase. */
  association.weight = std::min(std::abs(weight), 1.0);
  association.time_used = weight == 0.0 ? 'n' : 'd';
  association.pick = static_cast<std::int64_t>(event().picks.size());
  event().picks.push_back(std::move(pick));
  origin.associations.push_back(std::move(association));
  return true;
}

bool PhaReader::finish(Event &) { return true; }

}  // namespace ksutil::exchange

#include "formats/exchange/export/left_out.h"

#include <algorithm>
#include <array>
#include <cfloat>

#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

struct Preference {
  std::string_view type;
  double least = -DBL_MAX, most = DBL_MAX;
};

/* The order in which the event list prefers magnitudes: each type in the range in which it
 * is trusted, then outside of it. */
constexpr std::array<Preference, 18> kPreferences{{{"mww", 7.0},
                                                   {"mwp", 6.0},
                                                   {"mwc", 6.0, 8.0},
                                                   {"mwb", 4.0, 7.0},
                                                   {"mwr", 3.0, 7.0},
                                                   {"mw", 4.0, 7.0},
                                                   {"ml", -1.0, 5.0},
                                                   {"mb", 3.0, 6.0},
                                                   {"ms", 5.0, 7.0},
                                                   {"mww"},
                                                   {"mwp"},
                                                   {"mwc"},
                                                   {"mwb"},
                                                   {"mwr"},
                                                   {"mw"},
                                                   {"ml"},
                                                   {"mb"},
                                                   {"ms"}}};

std::size_t rank_of(const Magnitude &magnitude) {
  const std::string type = lowered(magnitude.type);
  const auto *found = std::find_if(
      kPreferences.begin(), kPreferences.end(), [&](const Preference &preference) {
        return preference.type == type && magnitude.value >= preference.least &&
               magnitude.value <= preference.most;
      });
  return static_cast<std::size_t>(found - kPreferences.begin());
}

}  // namespace

std::int64_t shown_magnitude_index(const Origin &origin, std::int64_t named) {
  const std::vector<Magnitude> &list = origin.magnitudes;
  if (named >= 0 && static_cast<std::size_t>(named) < list.size()) return named;
  /* Of equals the last, as in the event list. */
  std::int64_t best = -1;
  std::size_t rank = kPreferences.size();
  for (std::size_t i = 0; i < list.size(); i++) {
    const std::size_t own = rank_of(list[i]);
    if (own > rank) continue;
    rank = own;
    best = static_cast<std::int64_t>(i);
  }
  return best;
}

const Magnitude *shown_magnitude(const Event &event) {
  const Origin &origin = preferred_origin(event);
  const std::int64_t index = shown_magnitude_index(origin, event.preferred_magnitude);
  return index < 0 ? nullptr : &origin.magnitudes[static_cast<std::size_t>(index)];
}

void LeftOut::add(const char *name, std::size_t count) {
  if (count > 0) counts_.add(name, static_cast<std::int64_t>(count));
}

void LeftOut::add_origin(const Origin &origin, const Places &places) {
  add_if(origin.phases >= 0 && !places.phase_count, "counts of phases");
  add_if((origin.gap >= 0.0 || origin.nearest >= 0.0) && !places.gap_and_nearest,
         "gaps and distances of the nearest station");
  add_if(origin.rms >= 0.0 && !places.rms, "standard errors of observations");
  const bool ellipse = origin.minor_axis >= 0.0 || origin.ellipse_strike >= 0.0;
  add_if((origin.horizontal_error >= 0.0 || ellipse) && !places.horizontal_error,
         "errors of epicentres");
  add_if(ellipse && places.horizontal_error, "axes of error ellipses");
  add_if(origin.depth_error >= 0.0 && !places.depth_error, "errors of depths");
  add_if(origin.time_error >= 0.0, "errors of origin times");
  add_if(is_given(origin.covariance), "covariances of locations");
  add_if(origin.depth_type != 0, "depth types");
  add_if(!origin.status.empty() && !places.status, "states of review");
  add_if(!origin.algorithm.empty(), "location methods");
  add("comments", origin.comments.size());
  add("station magnitudes", origin.station_magnitudes.size());
  add("moment tensors", origin.tensors.size());
}

void LeftOut::add_rest(const Event &event, const Magnitude *magnitude,
                       const Places &places) {
  const Origin &origin = preferred_origin(event);
  add("further origins", event.origins.size() - 1);
  add("further magnitudes", origin.magnitudes.size() - (magnitude == nullptr ? 0 : 1));
  add("arrivals", event.picks.size());
  add("further ids of events", event.aliases.size());
  add_if(!event.name.empty(), "names of events");
  add_if(!event.type.empty() && !places.type, "types of events");
  add_if(!event.place.empty() && !places.place, "names of places");
  add_if(event.updated != 0.0 && !places.updated, "load dates");
  add("comments", event.comments.size());
  add_if(
      !origin.author.empty() && origin.author != event.author && !places.origin_author,
      "authors of origins");
  add_origin(origin, places);
  if (magnitude == nullptr) return;
  add_if(magnitude->error >= 0.0 && !places.magnitude_error, "errors of magnitudes");
  add_if(magnitude->stations >= 0 && !places.magnitude_stations,
         "station counts of magnitudes");
  add_if(!magnitude->author.empty() && magnitude->author != event.author &&
             !places.magnitude_author,
         "authors of magnitudes");
  add("comments", magnitude->comments.size());
}

}  // namespace ksutil::exchange

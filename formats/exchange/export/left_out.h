/* LeftOut: counts what events have and a format has no place for. */
#ifndef KSUTIL_FORMATS_EXCHANGE_EXPORT_LEFT_OUT_H
#define KSUTIL_FORMATS_EXCHANGE_EXPORT_LEFT_OUT_H

#include <string>
#include <vector>

#include "formats/exchange/records.h"
#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

/* Further values that a format of one solution and magnitude an event may hold. */
struct Places {
  bool type = false, place = false, updated = false, status = false;
  bool phase_count = false, gap_and_nearest = false, rms = false;
  bool horizontal_error = false, depth_error = false, magnitude_error = false;
  bool magnitude_stations = false;
  bool origin_author = false, magnitude_author = false;
};

/* The values that feeds of events hold: CSV and GeoJSON with ComCat's names. */
inline constexpr Places kFeedPlaces{.type = true,
                                    .place = true,
                                    .updated = true,
                                    .status = true,
                                    .phase_count = true,
                                    .gap_and_nearest = true,
                                    .rms = true,
                                    .horizontal_error = true,
                                    .depth_error = true,
                                    .magnitude_error = true,
                                    .magnitude_stations = true,
                                    .origin_author = true,
                                    .magnitude_author = true};

class LeftOut {
 public:
  void add(const char *name, std::size_t count = 1);
  void add_if(bool is_there, const char *name) {
    if (is_there) add(name);
  }

  /* Counts what an event has beyond time, position, depth, id, author, the preferred
   * magnitude with its type, and `places`. */
  void add_rest(const Event &event, const Magnitude *magnitude, const Places &places);

  const std::vector<Unplaced> &list() const { return counts_.list(); }

 private:
  void add_origin(const Origin &origin, const Places &places);

  UnplacedCounts counts_;
};

/* The magnitude that stands for an event in formats with a single one: the preferred one if
 * that is named, else the one that comes first in the order of types of the event list;
 * null without magnitudes. */
const Magnitude *shown_magnitude(const Event &event);
/* Its index among the magnitudes of an origin, of which `named` is the preferred one (-1:
 * none is named); -1 without magnitudes. */
std::int64_t shown_magnitude_index(const Origin &origin, std::int64_t named);

}  // namespace ksutil::exchange
#endif

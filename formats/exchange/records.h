/* Records of the exchange formats: what a reader gives and a writer takes.
 *
 * An event owns its origins, an origin the magnitudes and moment tensors computed for it,
 * as event, origin, netmag and mt rows do.  A format that names a preferred origin sets
 * Event::preferred; one with a single solution has one origin.
 * A value that the input does not give keeps the null of its database field: -999.0 or -1
 * for numbers, "" for texts, kNoTime for times.  Texts are UTF-8.  Ids are texts that are
 * unique in their source; only the event must have one. */
#ifndef KSUTIL_FORMATS_EXCHANGE_RECORDS_H
#define KSUTIL_FORMATS_EXCHANGE_RECORDS_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace ksutil::exchange {

inline constexpr double kNoTime = -9999999999.999;

struct Magnitude {
  std::string id, type, author;
  double value = -999.0;
  double error = -1.0;
  std::int64_t stations = -1;
};

/* Elements in N m in the system up, south, east. */
struct MomentTensor {
  std::string id, author;
  double time = kNoTime, lat = -999.0, lon = -999.0, depth = -999.0;  // of the centroid
  std::array<double, 6> elements{-999.0, -999.0, -999.0, -999.0, -999.0, -999.0};
  /* The axes T, N and P: eigenvalue in N m, plunge and azimuth in degrees. */
  std::array<double, 9> axes{-999.0, -999.0, -999.0, -999.0, -999.0,
                             -999.0, -999.0, -999.0, -999.0};
  double moment = -999.0;  // N m
  double mw = -999.0;
  std::array<double, 3> plane1{-999.0, -999.0, -999.0};  // strike, dip, rake, degrees
  std::array<double, 3> plane2{-999.0, -999.0, -999.0};
};

struct Origin {
  std::string id, author;
  double time = kNoTime;
  double lat = -999.0, lon = -999.0;  // degrees
  double depth = -999.0;              // km
  std::int64_t phases = -1;           // used in the location
  double rms = -1.0;                  // s
  double horizontal_error = -1.0;     // km
  double depth_error = -1.0;          // km
  double gap = -1.0;                  // greatest azimuth without station, degrees
  double nearest = -1.0;              // distance of the nearest station, degrees
  std::string status;                 // "reviewed", "automatic", ...
  std::vector<Magnitude> magnitudes;
  std::vector<MomentTensor> tensors;
};

struct Event {
  std::string id, author, type;
  std::string place;     // a description of where it was
  double updated = 0.0;  // epoch seconds; 0: not given
  std::vector<Origin> origins;
  std::size_t preferred = 0;  // of the origins
  std::int64_t line = 0;      // where it stands in the input, from 1
};

/* The preferred origin; the event has at least one. */
inline const Origin &preferred_origin(const Event &event) {
  return event.origins[event.preferred];
}

}  // namespace ksutil::exchange
#endif

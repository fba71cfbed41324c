/* Records of the exchange formats: what a reader gives and a writer takes.
 *
 * An event owns its picks, its origins and its mechanisms without an origin; an origin owns
 * the magnitudes, moment tensors and associations computed for it, as event, arrival,
 * origin, netmag, stamag, mt and assoc rows do.  A format that names a preferred origin sets
 * Event::preferred; one with a single solution has one origin.
 * A value that the input does not give keeps the null of its database field: -999.0 or -1
 * for numbers, "" for texts, kNoTime for times.  Texts are UTF-8.  Ids are texts that are
 * unique in their source, "" where the format has none; only the event must have one.
 * Indices into lists of the same event are -1 where there is nothing to refer to. */
#ifndef KSUTIL_FORMATS_EXCHANGE_RECORDS_H
#define KSUTIL_FORMATS_EXCHANGE_RECORDS_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace ksutil::exchange {

inline constexpr double kNoTime = -9999999999.999;

/* Records of one event, its own and those within them: an event that has more is
 * refused. */
inline constexpr std::size_t kMostRecords = 400000;

/* A station channel as the exchange formats name it. */
struct ChannelCode {
  std::string network, station, location, channel;
};

/* A phase measured at a station: a row of arrival. */
struct Pick {
  std::string id, author;
  ChannelCode at;
  double time = kNoTime;
  double time_error = -1.0;     // s, standard deviation
  std::string phase;            // as first named
  char onset = 0;               // 'i', 'e' or 'w'; 0: not given
  char first_motion = 0;        // 'c' up, 'd' down; 0: not given
  bool automatic = false;       // made by a program, and seen by nobody
  double azimuth = -1.0;        // from station to event, degrees
  double azimuth_error = -1.0;  // degrees
  double slowness = -1.0;       // s/degree
  double slowness_error = -1.0;
  double emergence = -1.0;       // degrees from the vertical
  double rectilinearity = -1.0;  // 0 to 1
  double amplitude = -1.0;       // nm, zero to peak, ground displacement
  double period = -1.0;          // s
  double snr = -1.0;
  std::vector<std::string> comments;
};

/* A pick as part of a solution: a row of assoc. */
struct Association {
  std::string id;
  std::int64_t pick = -1;         // of Event::picks
  std::string phase;              // as associated
  double belief = -1.0;           // trust in the phase, 0 to 1
  double delta = -1.0;            // degrees
  double seaz = -999.0;           // from station to event, degrees
  double esaz = -999.0;           // from event to station, degrees
  double time_residual = -999.0;  // s, observed minus computed
  double azimuth_residual = -999.0;
  double slowness_residual = -999.0;  // s/degree
  double emergence_residual = -999.0;
  /* 'd': used in the location, 'n': not; 0: not given. */
  char time_used = 0, azimuth_used = 0, slowness_used = 0;
  double weight = -1.0;  // in the location; some programs have weights above 1
  std::string earth_model;
};

/* A magnitude from one station: a row of stamag. */
struct StationMagnitude {
  std::string id, author, type;
  ChannelCode at;
  std::int64_t pick = -1;       // of Event::picks
  std::int64_t magnitude = -1;  // of Origin::magnitudes: the one it belongs to
  char used = 0;                // 'd': in that magnitude, 'n': not; 0: not given
  std::string phase;
  double value = -999.0;
  double error = -1.0;
};

struct Magnitude {
  std::string id, type, author;
  double value = -999.0;
  double error = -1.0;
  std::int64_t stations = -1;
  std::vector<std::string> comments;
};

/* Elements in N m in the system up, south, east.  One without elements is a focal
 * mechanism of which only planes or axes are known. */
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
  double double_couple = -999.0, clvd = -999.0, isotropic = -999.0;  // percent
  std::int64_t stations = -1, components = -1;
  double variance_reduction = -999.0;  // percent
  std::string status;                  // "reviewed", "automatic", ...
  std::string algorithm;
  std::int64_t magnitude =
      -1;  // of Origin::magnitudes: the moment magnitude of the tensor
  std::vector<std::string> comments;
};

/* The covariance of a location, lower triangle by columns; -1 on the diagonal: not given.
 * x north (latitude), y east (longitude), z down: km and s. */
struct Covariance {
  double xx = -1.0, yy = -1.0, zz = -1.0, tt = -1.0;
  double xy = -1.0, xz = -1.0, yz = -1.0, tx = -1.0, ty = -1.0, tz = -1.0;
};

inline bool is_given(const Covariance &c) {
  return c.xx >= 0.0 || c.yy >= 0.0 || c.zz >= 0.0 || c.tt >= 0.0;
}

struct Origin {
  std::string id, author;
  std::int64_t orid = -1;  // of the database that it was read from
  double time = kNoTime;
  double lat = -999.0, lon = -999.0;  // degrees
  double depth = -999.0;              // km
  char depth_type = 0;       // as origin.dtype: 'f' free, 'd' from depth phases,
                             // 'g' fixed by an analyst, 'r' restrained; 0: not given
  std::int64_t phases = -1;  // used in the location
  std::int64_t associated = -1;  // phases that belong to it
  std::int64_t depth_phases = -1;
  double rms = -1.0;               // s
  double time_error = -1.0;        // s
  double horizontal_error = -1.0;  // km
  double depth_error = -1.0;       // km
  /* The ellipse of the epicentre: axes in km, strike of the major one in degrees. */
  double major_axis = -1.0, minor_axis = -1.0, ellipse_strike = -1.0;
  bool ellipse_computed = false;  // by an import, from the covariance below
  double confidence = 0.0;        // of the errors above, 0 to 1; 0: not given
  Covariance covariance;
  double gap = -1.0;      // greatest azimuth without station, degrees
  double nearest = -1.0;  // distance of the nearest station, degrees
  std::string status;     // "reviewed", "automatic", ...
  std::string algorithm;  // how it was located
  std::string earth_model;
  std::vector<std::string> comments;
  std::vector<Magnitude> magnitudes;
  std::vector<StationMagnitude> station_magnitudes;
  std::vector<MomentTensor> tensors;
  std::vector<Association> associations;
};

/* A record in the list of one of the origins; origin -1: none is named. */
struct ListPlace {
  std::int64_t origin = -1, index = -1;
};

struct Event {
  std::string id, author;
  /* Further ids of the event: of catalogues of the same source. */
  std::vector<std::string> aliases;
  std::int64_t evid = -1;  // of the database that it was read from
  std::string type;   // the code of origin.etype ("eq", "ex", ...) or the source's word
  std::string name;   // what people call it; "" unless given
  std::string place;  // a description of where it was
  double updated = 0.0;  // epoch seconds; 0: not given
  std::vector<Pick> picks;
  std::vector<Origin> origins;
  std::size_t preferred = 0;  // of the origins
  /* Of the preferred origin's list; -1: none is named, or one of another origin. */
  std::int64_t preferred_magnitude = -1;
  ListPlace distant_magnitude;  // the preferred magnitude when it is another origin's
  ListPlace preferred_tensor;   // of Origin::tensors
  std::vector<std::string> comments;
  std::int64_t line = 0;  // where it stands in the input, from 1
};

/* The preferred origin; the event has at least one. */
inline const Origin &preferred_origin(const Event &event) {
  return event.origins[event.preferred];
}

/* The records of an event: picks, origins, and what the origins own. */
inline std::size_t record_count(const Event &event) {
  std::size_t count = event.picks.size() + event.origins.size();
  for (const Origin &origin : event.origins) {
    count += origin.magnitudes.size() + origin.station_magnitudes.size() +
             origin.tensors.size() + origin.associations.size();
  }
  return count;
}

}  // namespace ksutil::exchange
#endif

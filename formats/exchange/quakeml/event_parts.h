/* EventParts: what stands in the elements of one event, before the ids by which the
 * elements refer to each other are resolved. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_EVENT_PARTS_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_EVENT_PARTS_H

#include <string>
#include <unordered_map>
#include <vector>

#include "formats/exchange/records.h"
#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

struct OriginPart {
  Origin origin;
  std::vector<std::string> picks;  // of its associations
  bool centroid = false;           // of a tensor alone, and no solution of its own
};

struct MagnitudePart {
  Magnitude magnitude;
  std::string origin;
};

struct StationMagnitudePart {
  StationMagnitude magnitude;
  std::string origin, amplitude;
  std::string pick;  // when there is no amplitude
};

struct AmplitudePart {
  std::string id, pick;
  ChannelCode at;
  double value = -1.0;  // nm; -1.0: of another unit, which is named
  std::string unit;
  double period = -1.0, snr = -1.0;
};

struct MechanismPart {
  MomentTensor tensor;
  std::string id;  // of the mechanism: the tensor has one of its own
  std::string triggering, derived, magnitude;
  /* The tensor has no centroid, no moment magnitude: none is taken from what it names. */
  bool no_centroid = false, no_mw = false;
};

/* What a magnitude of a station is for a magnitude. */
struct Contribution {
  std::string magnitude;
  bool counts = true;
};

struct EventParts {
  Event event;  // without the lists
  std::string preferred_origin, preferred_magnitude, preferred_mechanism;
  /* Of bulletins whose events refer to parts outside of them. */
  std::vector<std::string> origin_references, mechanism_references;

  std::vector<Pick> picks;
  std::vector<OriginPart> origins;
  std::vector<MagnitudePart> magnitudes;
  std::vector<StationMagnitudePart> station_magnitudes;
  std::vector<AmplitudePart> amplitudes;
  std::vector<MechanismPart> mechanisms;
  /* By the ids of the magnitudes of stations. */
  std::unordered_map<std::string, Contribution> contributions;
  std::size_t records = 0;

  double updated = 0.0;  // the latest time that a part was made
  std::string problem;   // "" unless the event must be refused
};

/* The event, with the parts that belong together in its lists.  False with the parts'
 * problem set.  `left_out` counts references that lead nowhere. */
bool assemble(EventParts &&parts, Event &event, std::string &problem,
              UnplacedCounts &left_out);

}  // namespace ksutil::exchange
#endif

#include "formats/exchange/quakeml/event_parts.h"

#include <utility>

#include "formats/exchange/quakeml/resource_id.h"

namespace ksutil::exchange {
namespace {

using PlacesById = std::unordered_map<std::string, std::size_t>;

constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

std::size_t place_of(const PlacesById &places, const std::string &id) {
  const auto found = id.empty() ? places.end() : places.find(id);
  return found == places.end() ? kNowhere : found->second;
}

/* Of one event.  What has the id of an earlier one of its kind keeps its place in the
 * list, but references lead to the first. */
class Assembly {
 public:
  Assembly(EventParts &&parts, Event &event, UnplacedCounts &left_out)
      : parts_(std::move(parts)), event_(event), left_out_(left_out) {}

  void run() {
    event_ = std::move(parts_.event);
    event_.updated = parts_.updated;
    event_.picks = std::move(parts_.picks);
    for (std::size_t i = 0; i < event_.picks.size(); i++) {
      if (!event_.picks[i].id.empty()) picks_.emplace(event_.picks[i].id, i);
    }
    join_origins();
    join_magnitudes();
    join_amplitudes();
    join_station_magnitudes();
    join_mechanisms();
    prefer_magnitude();
    prefer_mechanism();
    shorten_ids();
  }

 private:
  struct RecordPlace {
    std::size_t origin = kNowhere, index = kNowhere;
  };

  /* Identifiers without an authority of their own are known by what follows it, as the ids
   * of catalogues without authorities are. */
  void shorten_ids() {
    const auto shorten = [](std::string &id) { id = id_of_resource(id); };
    shorten(event_.id);
    for (Pick &pick : event_.picks) shorten(pick.id);
    for (Origin &origin : event_.origins) {
      shorten(origin.id);
      for (Magnitude &magnitude : origin.magnitudes) shorten(magnitude.id);
      for (MomentTensor &tensor : origin.tensors) shorten(tensor.id);
    }
  }

  void join_origins() {
    const bool all = std::all_of(parts_.origins.begin(), parts_.origins.end(),
                                 [](const OriginPart &part) { return part.centroid; });
    for (OriginPart &part : parts_.origins) {
      if (part.centroid && !all) {
        std::string id = part.origin.id;
        centroids_.emplace(std::move(id), std::move(part.origin));
        continue;
      }
      Origin &origin = event_.origins.emplace_back(std::move(part.origin));
      std::vector<Association> joined;
      for (std::size_t i = 0; i < origin.associations.size(); i++) {
        const std::size_t pick = place_of(picks_, part.picks[i]);
        if (pick == kNowhere) {
          left_out_.add("an arrival whose pick is not there");
          continue;
        }
        origin.associations[i].pick = static_cast<std::int64_t>(pick);
        joined.push_back(std::move(origin.associations[i]));
      }
      origin.associations = std::move(joined);
      if (!origin.id.empty()) origins_.emplace(origin.id, event_.origins.size() - 1);
    }
    const std::size_t preferred = place_of(origins_, parts_.preferred_origin);
    if (preferred != kNowhere) {
      event_.preferred = preferred;
    } else if (!parts_.preferred_origin.empty()) {
      left_out_.add("a preferredOriginID of an origin that is not there");
    }
  }

  std::size_t owner(const std::string &origin_id) const {
    const std::size_t origin = place_of(origins_, origin_id);
    return origin == kNowhere ? event_.preferred : origin;
  }

  void join_magnitudes() {
    for (MagnitudePart &part : parts_.magnitudes) {
      const std::size_t origin = owner(part.origin);
      auto &list = event_.origins[origin].magnitudes;
      if (!part.magnitude.id.empty()) {
        magnitudes_.emplace(part.magnitude.id, RecordPlace{origin, list.size()});
      }
      list.push_back(std::move(part.magnitude));
    }
  }

  RecordPlace magnitude(const std::string &id) const {
    const auto found = id.empty() ? magnitudes_.end() : magnitudes_.find(id);
    return found == magnitudes_.end() ? RecordPlace{} : found->second;
  }

  /* The first amplitude of a pick in nm is the pick's. */
  void join_amplitudes() {
    for (std::size_t i = 0; i < parts_.amplitudes.size(); i++) {
      const AmplitudePart &part = parts_.amplitudes[i];
      if (!part.id.empty()) amplitudes_.emplace(part.id, i);
      const std::size_t at = place_of(picks_, part.pick);
      if (at == kNowhere) {
        left_out_.add("an amplitude without a pick");
        continue;
      }
      Pick &pick = event_.picks[at];
      if (part.value < 0.0) {
        left_out_.add("an amplitude in " + (part.unit.empty() ? "no unit" : part.unit));
      } else if (pick.amplitude >= 0.0) {
        left_out_.add("a further amplitude of a pick");
      } else {
        pick.amplitude = part.value;
        pick.period = part.period;
      }
      if (pick.snr < 0.0) pick.snr = part.snr;
    }
  }

  void join_station_magnitudes() {
    for (StationMagnitudePart &part : parts_.station_magnitudes) {
      StationMagnitude &magnitude = part.magnitude;
      const std::size_t amplitude = place_of(amplitudes_, part.amplitude);
      if (amplitude != kNowhere) {
        const AmplitudePart &measured = parts_.amplitudes[amplitude];
        if (magnitude.at.station.empty()) magnitude.at = measured.at;
        const std::size_t pick = place_of(picks_, measured.pick);
        if (pick != kNowhere) magnitude.pick = static_cast<std::int64_t>(pick);
      }
      if (magnitude.pick < 0) {
        const std::size_t pick = place_of(picks_, part.pick);
        if (pick != kNowhere) magnitude.pick = static_cast<std::int64_t>(pick);
      }
      std::size_t origin = owner(part.origin);
      const auto contribution = parts_.contributions.find(magnitude.id);
      if (!magnitude.id.empty() && contribution != parts_.contributions.end()) {
        const RecordPlace into = this->magnitude(contribution->second.magnitude);
        if (into.origin != kNowhere) {
          if (!contribution->second.counts) magnitude.used = 'n';
          origin = into.origin;
          magnitude.magnitude = static_cast<std::int64_t>(into.index);
          const Magnitude &network = event_.origins[origin].magnitudes[into.index];
          if (magnitude.type.empty()) magnitude.type = network.type;
        }
      }
      event_.origins[origin].station_magnitudes.push_back(std::move(magnitude));
    }
  }

  /* A tensor belongs to the origin that the inversion started from, and has the place and
   * time of the one that it gave. */
  void join_mechanisms() {
    for (MechanismPart &part : parts_.mechanisms) {
      MomentTensor &tensor = part.tensor;
      const std::size_t derived = place_of(origins_, part.derived);
      std::size_t origin = place_of(origins_, part.triggering);
      const auto alone = centroids_.find(part.derived);
      if (derived != kNowhere || alone != centroids_.end()) {
        const Origin &centroid =
            derived != kNowhere ? event_.origins[derived] : alone->second;
        if (!part.no_centroid) {
          tensor.time = centroid.time;
          tensor.lat = centroid.lat;
          tensor.lon = centroid.lon;
          tensor.depth = centroid.depth;
        }
        if (origin == kNowhere && derived != kNowhere) origin = derived;
      }
      const RecordPlace own = magnitude(part.magnitude);
      if (origin == kNowhere) origin = own.origin;
      if (origin == kNowhere) origin = event_.preferred;
      if (own.origin != kNowhere) {
        if (tensor.mw == -999.0 && !part.no_mw) {
          tensor.mw = event_.origins[own.origin].magnitudes[own.index].value;
        }
        if (own.origin == origin) {
          tensor.magnitude = static_cast<std::int64_t>(own.index);
        }
      }
      auto &list = event_.origins[origin].tensors;
      if (!part.id.empty()) {
        mechanisms_.emplace(part.id, RecordPlace{origin, list.size()});
      }
      list.push_back(std::move(tensor));
    }
  }

  void prefer_magnitude() {
    if (parts_.preferred_magnitude.empty()) return;
    const RecordPlace place = magnitude(parts_.preferred_magnitude);
    if (place.origin == event_.preferred) {
      event_.preferred_magnitude = static_cast<std::int64_t>(place.index);
    } else if (place.origin == kNowhere) {
      left_out_.add("a preferredMagnitudeID of a magnitude that is not there");
    } else {
      event_.distant_magnitude = place_in_list(place);
    }
  }

  void prefer_mechanism() {
    if (parts_.preferred_mechanism.empty()) return;
    const auto found = mechanisms_.find(parts_.preferred_mechanism);
    if (found == mechanisms_.end()) {
      left_out_.add("a preferredFocalMechanismID of a mechanism that is not there");
    } else {
      event_.preferred_tensor = place_in_list(found->second);
    }
  }

  static ListPlace place_in_list(const RecordPlace &place) {
    return {static_cast<std::int64_t>(place.origin),
            static_cast<std::int64_t>(place.index)};
  }

  EventParts parts_;
  Event &event_;
  UnplacedCounts &left_out_;
  PlacesById picks_, origins_, amplitudes_;
  std::unordered_map<std::string, Origin> centroids_;
  std::unordered_map<std::string, RecordPlace> magnitudes_, mechanisms_;
};

}  // namespace

bool assemble(EventParts &&parts, Event &event, std::string &problem,
              UnplacedCounts &left_out) {
  problem = parts.problem;
  if (problem.empty() && parts.event.id.empty()) problem = "the event has no publicID";
  if (problem.empty() && parts.origins.empty()) {
    problem = "the event " + parts.event.id.substr(0, 100) + " has no origin";
  }
  if (!problem.empty()) return false;
  Assembly(std::move(parts), event, left_out).run();
  return true;
}

}  // namespace ksutil::exchange

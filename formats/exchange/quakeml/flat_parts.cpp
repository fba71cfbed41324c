#include "formats/exchange/quakeml/flat_parts.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace ksutil::exchange {

template <class Part, class Ids>
void FlatParts::index(const std::vector<Part> &list, Index &index, const Ids &ids) {
  index.taken.assign(list.size(), false);
  for (std::size_t i = 0; i < list.size(); i++) {
    for (const std::string *id : ids(list[i])) {
      if (!id->empty()) index.by_id.emplace(*id, i);
    }
  }
}

/* The texts of the parts are the keys of the index: they are copied, and stay. */
template <class Part>
void FlatParts::take(std::string_view id, std::vector<Part> &from, Index &index,
                     std::vector<Part> &to) {
  const auto [begin, end] = index.by_id.equal_range(id);
  std::vector<std::size_t> places;
  for (auto found = begin; found != end; ++found) {
    if (!index.taken[found->second]) places.push_back(found->second);
  }
  std::sort(places.begin(), places.end());
  for (const std::size_t place : places) {
    if (index.taken[place]) continue;
    index.taken[place] = true;
    to.push_back(from[place]);
  }
  index.by_id.erase(begin, end);
}

FlatParts::FlatParts(EventParts &all) : all_(all) {
  using Ids = std::vector<const std::string *>;
  index(all.origins, origins_, [](const OriginPart &p) { return Ids{&p.origin.id}; });
  index(all.magnitudes, magnitudes_,
        [](const MagnitudePart &p) { return Ids{&p.origin}; });
  index(all.station_magnitudes, station_magnitudes_,
        [](const StationMagnitudePart &p) { return Ids{&p.origin}; });
  index(all.mechanisms, mechanisms_, [](const MechanismPart &p) {
    return Ids{&p.id, &p.triggering, &p.derived};
  });
  index(all.amplitudes, amplitudes_, [](const AmplitudePart &p) {
    return Ids{&p.id, &p.pick};
  });
  index(all.picks, picks_, [](const Pick &p) { return Ids{&p.id}; });
}

void FlatParts::give(EventParts &event) {
  std::vector<std::string> origins = event.origin_references;
  origins.push_back(event.preferred_origin);
  for (const std::string &id : origins) take(id, all_.origins, origins_, event.origins);
  for (const std::string &id : event.mechanism_references) {
    take(id, all_.mechanisms, mechanisms_, event.mechanisms);
  }
  std::vector<std::string> picks;  // in the order of first use
  std::unordered_set<std::string_view> known;
  for (const OriginPart &part : event.origins) {
    const std::string &id = part.origin.id;
    take(id, all_.magnitudes, magnitudes_, event.magnitudes);
    take(id, all_.station_magnitudes, station_magnitudes_, event.station_magnitudes);
    take(id, all_.mechanisms, mechanisms_, event.mechanisms);
    picks.insert(picks.end(), part.picks.begin(), part.picks.end());
  }
  for (const StationMagnitudePart &part : event.station_magnitudes) {
    take(part.amplitude, all_.amplitudes, amplitudes_, event.amplitudes);
    const auto into = all_.contributions.find(part.magnitude.id);
    if (into != all_.contributions.end()) event.contributions.insert(*into);
  }
  for (const AmplitudePart &part : event.amplitudes) picks.push_back(part.pick);
  for (const std::string &id : picks) {
    if (!known.insert(id).second) continue;
    const auto found = picks_.by_id.find(id);
    if (found == picks_.by_id.end()) continue;
    picks_.taken[found->second] = true;
    event.picks.push_back(all_.picks[found->second]);
    take(id, all_.amplitudes, amplitudes_, event.amplitudes);
  }
}

std::int64_t FlatParts::left(const Index &index) {
  return std::count(index.taken.begin(), index.taken.end(), false);
}

void FlatParts::count_rest(UnplacedCounts &left_out) const {
  const auto count = [&](const char *name, std::int64_t number) {
    if (number > 0) left_out.add(name, number);
  };
  count("an origin that no event refers to", left(origins_));
  count("a pick that no event refers to", left(picks_));
  count("a magnitude of no event's origin", left(magnitudes_));
  count("a station magnitude of no event's origin", left(station_magnitudes_));
  count("a mechanism that no event refers to", left(mechanisms_));
  count("an amplitude of no event", left(amplitudes_));
}

}  // namespace ksutil::exchange

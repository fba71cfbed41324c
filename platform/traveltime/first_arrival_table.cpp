#include "platform/traveltime/internal/first_arrival_table.h"

#include <algorithm>
#include <limits>

namespace ksutil::traveltime {
namespace {

/* P-type and S-type. */
struct PhaseNames {
  const char *names[2];
  const char *of(Wave wave) const { return names[wave == Wave::kP ? 0 : 1]; }
};

constexpr PhaseNames kUpgoing{{"p", "s"}};
constexpr PhaseNames kDiffracted{{"Pdiff", "Sdiff"}};

const char *turning_phase(Region region, Wave wave) {
  /* In the order of Region. */
  static constexpr PhaseNames kTurning[] = {{{"Pg", "Sg"}},   {{"Pb", "Sb"}},
                                            {{"Pn", "Sn"}},   {{"P", "S"}},
                                            {{"PKP", "SKS"}}, {{"PKIKP", "SKIKS"}}};
  return kTurning[static_cast<int>(region)].of(wave);
}

}  // namespace

FirstArrivalTable::FirstArrivalTable(const EarthModel &model, Wave wave) : wave_(wave) {
  const Profile profile = make_profile(model, wave);
  sources_ = list_sources(profile, kDeepest);
  for (const Source &source : sources_) depths_.push_back(source.depth);
  for (std::size_t layer = 0; layer <= sources_.back().layer; ++layer) {
    add_own(profile, layer);
  }
  for (std::size_t layer = 1; layer < profile.layers.size(); ++layer) {
    add_deeper(profile, layer);
  }
}

void FirstArrivalTable::add_own(const Profile &profile, std::size_t layer) {
  std::size_t first = 0;
  while (sources_[first].layer != layer) ++first;
  std::vector<RayBranch> branches;
  for (std::size_t i = first; i < sources_.size() && sources_[i].layer == layer; ++i) {
    branches.push_back(trace_own_layer(profile, sources_[i]));
  }
  const Layer &turning = profile.layers[layer];
  own_.push_back({TimeSurface(TimeSurface::Quantity::kTimeOverChord, sources_, first,
                              branches, profile.radius),
                  layer, turning.region, turning.above_core});
}

void FirstArrivalTable::add_deeper(const Profile &profile, std::size_t layer) {
  std::vector<RayBranch> branches;
  trace_deeper_layer(
      profile, layer, sources_,
      [&](const Source &, const RayBranch &branch) { branches.push_back(branch); });
  const Layer &turning = profile.layers[layer];
  deeper_.push_back(
      {TimeSurface(TimeSurface::Quantity::kTime, sources_, 0, branches, profile.radius),
       layer, turning.region, turning.above_core});
}

DepthPosition FirstArrivalTable::locate(double depth) const {
  const auto above = std::upper_bound(depths_.begin(), depths_.end(), depth);
  const auto next =
      std::min<std::ptrdiff_t>(above - depths_.begin(), std::ssize(depths_) - 1);
  DepthPosition at;
  at.index = static_cast<std::size_t>(next - 1);
  at.weight = (depth - depths_[at.index]) / (depths_[at.index + 1] - depths_[at.index]);
  at.depth = depth;
  return at;
}

/* Puts the branch's arrival into `best` if it is earlier. */
void FirstArrivalTable::compare(const Branch &branch, const DepthPosition &at,
                                double delta, double diffraction_end,
                                Arrival &best) const {
  const TimeSurface::Extent extent = branch.surface.extent(at);
  if (delta < extent.first) return;
  Arrival arrival;
  if (branch.diffracts && delta > extent.last) {
    if (delta > diffraction_end) return;
    arrival = {extent.last_time + extent.last_slowness * (delta - extent.last),
               extent.last_slowness, kDiffracted.of(wave_)};
  } else {
    if (!branch.surface.reaches(delta)) return;
    const TimeSurface::Sample sample = branch.surface.sample(at, delta);
    const bool upgoing = delta < extent.horizontal;
    arrival = {sample.time, sample.slowness,
               upgoing ? kUpgoing.of(wave_) : turning_phase(branch.region, wave_)};
  }
  if (arrival.time < best.time) best = arrival;
}

Arrival FirstArrivalTable::find(double delta, double depth) const {
  const DepthPosition at = locate(depth);
  const std::size_t layer = sources_[at.index].layer;
  /* Waves diffracted along the core end where those through the inner core begin. */
  const double diffraction_end = deeper_.back().surface.extent(at).first;
  Arrival best;
  best.time = std::numeric_limits<double>::infinity();
  compare(own_[layer], at, delta, diffraction_end, best);
  for (std::size_t i = layer; i < deeper_.size(); ++i) {
    compare(deeper_[i], at, delta, diffraction_end, best);
  }
  return best;
}

}  // namespace ksutil::traveltime

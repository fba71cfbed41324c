/* Travel times: location programs and queries evaluate them by the million, and the first
 * caller of a model waits for its table. */
#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>
#include <utility>
#include <vector>

#include "platform/traveltime/internal/first_arrival_table.h"
#include "platform/traveltime/traveltime.h"

namespace ksutil::embedded {
extern const char iasp91_tvel[];
}

namespace ksutil::traveltime {
namespace {

/* Distances and depths all over the range, so that no cache holds the nodes. */
std::vector<std::pair<double, double>> random_places() {
  std::mt19937 random(1);
  std::uniform_real_distribution<> delta(0.0, 180.0), depth(0.0, 700.0);
  std::vector<std::pair<double, double>> places(1000000);
  for (auto &place : places) place = {delta(random), depth(random)};
  return places;
}

void BM_FirstArrival(benchmark::State &state) {
  const Wave wave = state.range(0) == 0 ? Wave::kP : Wave::kS;
  const auto places = random_places();
  Arrival arrival;
  first_arrival(Model::kIasp91, wave, 0.0, 0.0, arrival);
  std::size_t i = 0;
  for (auto _ : state) {
    first_arrival(Model::kIasp91, wave, places[i].first, places[i].second, arrival);
    benchmark::DoNotOptimize(arrival);
    if (++i == places.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FirstArrival)->ArgName("S")->Arg(0)->Arg(1);

/* The floor: one look-up between four nodes of a plain table of the same extent. */
void BM_PlainTable(benchmark::State &state) {
  constexpr std::size_t kColumns = 1802;
  const std::vector<double> table(kColumns * 302, 1.0);
  const auto places = random_places();
  std::size_t i = 0;
  for (auto _ : state) {
    const double x = places[i].first * 10.0, z = places[i].second * 300.0 / 700.0;
    const auto column = static_cast<std::size_t>(x), row = static_cast<std::size_t>(z);
    const double u = x - static_cast<double>(column), w = z - static_cast<double>(row);
    const double *a = &table[row * kColumns + column];
    const double *b = a + kColumns;
    benchmark::DoNotOptimize((a[0] * (1 - u) + a[1] * u) * (1 - w) +
                             (b[0] * (1 - u) + b[1] * u) * w);
    if (++i == places.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PlainTable);

void BM_BuildTable(benchmark::State &state) {
  const EarthModel model = parse_tvel(embedded::iasp91_tvel).value();
  for (auto _ : state) {
    const FirstArrivalTable table(model, state.range(0) == 0 ? Wave::kP : Wave::kS);
    benchmark::DoNotOptimize(&table);
  }
}
BENCHMARK(BM_BuildTable)->ArgName("S")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace ksutil::traveltime

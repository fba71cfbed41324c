/* A map of 500 x 500 nodes evaluated at a million points, as for a picture (line by line)
 * and for scattered places, beside GSL's bilinear interpolation with accelerators, on
 * evenly and on unevenly spaced axes. */
#include <benchmark/benchmark.h>
#include <gsl/gsl_interp2d.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "objects/ksgrid.h"

namespace {

constexpr int kNodes = 500, kSide = 1000;
constexpr float kExtent = 100;

/* Coordinates from 0 to the extent; uneven ones crowd at the lower end. */
std::vector<float> axis(bool even) {
  std::vector<float> coords(kNodes);
  for (std::size_t i = 0; i < kNodes; ++i) {
    const float part = static_cast<float>(i) / (kNodes - 1);
    coords[i] = kExtent * (even ? part : part * std::sqrt(part));
  }
  return coords;
}

struct Points {
  std::vector<float> x, y;
};

Points points(bool raster) {
  std::mt19937 random(1);
  std::uniform_real_distribution<float> anywhere(0, kExtent);
  Points all;
  for (int row = 0; row < kSide; ++row) {
    for (int column = 0; column < kSide; ++column) {
      const auto place = [](int k) {
        return kExtent * (static_cast<float>(k) + 0.5F) / kSide;
      };
      all.x.push_back(raster ? place(column) : anywhere(random));
      all.y.push_back(raster ? place(row) : anywhere(random));
    }
  }
  return all;
}

std::vector<float> values() {
  std::mt19937 random(2);
  std::normal_distribution<float> value;
  std::vector<float> all(std::size_t{kNodes} * kNodes);
  for (float &each : all) each = value(random);
  return all;
}

void BM_KsgridBilinear(benchmark::State &state, bool raster, bool even) {
  const std::vector<float> coords = axis(even);
  const std::unique_ptr<KSGrid, int (*)(KSGrid *)> grid(
      ksgrid_create("x", kNodes, coords.data(), "", "", kNodes, coords.data(), "", "",
                    "", "", "map", nullptr),
      ksgrid_free_ksgrid);
  ksgrid_put_ksgrid(grid.get(), 1, values().data(), 0, 1);
  const Points at = points(raster);
  float *out = nullptr;
  int nout = 0;
  for (auto _ : state) {
    ksgrid_eval_ksgrid(grid.get(), 0, static_cast<int>(at.x.size()), at.x.data(),
                       at.y.data(), "bilinear", "none", &out, &nout);
    benchmark::DoNotOptimize(out[nout / 2]);
  }
  std::free(out);
  state.SetItemsProcessed(state.iterations() * std::int64_t{kSide} * kSide);
}

void BM_GslBilinear(benchmark::State &state, bool raster, bool even) {
  const std::vector<float> coords = axis(even), map = values();
  const std::vector<double> x(coords.begin(), coords.end()), z(map.begin(), map.end());
  const Points at = points(raster);
  const std::vector<double> px(at.x.begin(), at.x.end()), py(at.y.begin(), at.y.end());
  std::vector<double> out(px.size());
  gsl_interp2d *const interpolation =
      gsl_interp2d_alloc(gsl_interp2d_bilinear, kNodes, kNodes);
  gsl_interp2d_init(interpolation, x.data(), x.data(), z.data(), kNodes, kNodes);
  gsl_interp_accel *const xaccel = gsl_interp_accel_alloc();
  gsl_interp_accel *const yaccel = gsl_interp_accel_alloc();
  for (auto _ : state) {
    for (std::size_t i = 0; i < px.size(); ++i) {
      out[i] = gsl_interp2d_eval(interpolation, x.data(), x.data(), z.data(), px[i],
                                 py[i], xaccel, yaccel);
    }
    benchmark::DoNotOptimize(out[px.size() / 2]);
  }
  gsl_interp_accel_free(yaccel);
  gsl_interp_accel_free(xaccel);
  gsl_interp2d_free(interpolation);
  state.SetItemsProcessed(state.iterations() * std::int64_t{kSide} * kSide);
}

BENCHMARK_CAPTURE(BM_KsgridBilinear, raster_even, true, true);
BENCHMARK_CAPTURE(BM_GslBilinear, raster_even, true, true);
BENCHMARK_CAPTURE(BM_KsgridBilinear, random_even, false, true);
BENCHMARK_CAPTURE(BM_GslBilinear, random_even, false, true);
BENCHMARK_CAPTURE(BM_KsgridBilinear, raster_uneven, true, false);
BENCHMARK_CAPTURE(BM_GslBilinear, raster_uneven, true, false);
BENCHMARK_CAPTURE(BM_KsgridBilinear, random_uneven, false, false);
BENCHMARK_CAPTURE(BM_GslBilinear, random_uneven, false, false);

}  // namespace

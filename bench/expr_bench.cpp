/* Expressions over records beside the same formulas in C++: what a subset or a sort of a
 * view pays for each record on top of reading it. */
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "platform/expr/expr.h"
#include "platform/geo/geo.h"

namespace {

using namespace ksutil::expr;

struct Origin {
  double lat, lon, depth;
};

std::vector<Origin> origins() {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> lat(20, 60), lon(-130, -100), depth(0, 80);
  std::vector<Origin> all(10000);
  for (Origin &origin : all) origin = {lat(random), lon(random), depth(random)};
  return all;
}

/* The records, one at a time. */
class Cursor final : public Fields, public Record {
 public:
  explicit Cursor(const std::vector<Origin> &all) : all_(all) {}
  bool bind(std::string_view name, int &slot, Type &type) const override {
    type = Type::kReal;
    slot = name == "lat" ? 0 : name == "lon" ? 1 : 2;
    return true;
  }
  bool value(int slot, Value &result) const override {
    const Origin &origin = all_[at];
    result.type = Type::kReal;
    result.null = false;
    result.real = slot == 0 ? origin.lat : slot == 1 ? origin.lon : origin.depth;
    return true;
  }

  std::size_t at = 0;

 private:
  const std::vector<Origin> &all_;
};

void evaluate(benchmark::State &state, const char *text) {
  const std::vector<Origin> all = origins();
  Cursor cursor(all);
  Error error;
  const auto program = Program::compile(text, cursor, error);
  if (program == nullptr) return state.SkipWithError(error.message.c_str());
  Workspace workspace;
  Value value;
  for (auto _ : state) {
    for (cursor.at = 0; cursor.at < all.size(); ++cursor.at) {
      program->evaluate(cursor, workspace, value);
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(all.size()));
}

template <class Formula>
void compute(benchmark::State &state, Formula formula) {
  const std::vector<Origin> all = origins();
  for (auto _ : state) {
    for (const Origin &origin : all) {
      auto value = formula(origin);
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(all.size()));
}

void BM_RangeExpression(benchmark::State &state) {
  evaluate(state, "lat > 30 && depth < 50");
}
void BM_RangePlain(benchmark::State &state) {
  compute(state, [](const Origin &o) { return o.lat > 30 && o.depth < 50; });
}
/* Plain code that reads its fields as the evaluation does. */
void BM_RangeReader(benchmark::State &state) {
  const std::vector<Origin> all = origins();
  Cursor cursor(all);
  const Record *record = &cursor;
  benchmark::DoNotOptimize(record);
  Value value;
  for (auto _ : state) {
    for (cursor.at = 0; cursor.at < all.size(); ++cursor.at) {
      bool inside = record->value(0, value) && !value.null && value.real > 30;
      inside = inside && record->value(2, value) && !value.null && value.real < 50;
      benchmark::DoNotOptimize(inside);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(all.size()));
}
void BM_DistanceExpression(benchmark::State &state) {
  evaluate(state, "distance(lat, lon, 35, -118)");
}
void BM_DistancePlain(benchmark::State &state) {
  compute(state, [](const Origin &o) {
    return ksutil::distance_degrees(o.lat, o.lon, 35, -118);
  });
}
void BM_ArithmeticExpression(benchmark::State &state) {
  evaluate(state, "(lat - 35) * (lat - 35) + (lon + 118) * (lon + 118) + depth / 111");
}
void BM_ArithmeticPlain(benchmark::State &state) {
  compute(state, [](const Origin &o) {
    return (o.lat - 35) * (o.lat - 35) + (o.lon + 118) * (o.lon + 118) + o.depth / 111;
  });
}
BENCHMARK(BM_RangeExpression);
BENCHMARK(BM_RangePlain);
BENCHMARK(BM_RangeReader);
BENCHMARK(BM_DistanceExpression);
BENCHMARK(BM_DistancePlain);
BENCHMARK(BM_ArithmeticExpression);
BENCHMARK(BM_ArithmeticPlain);

}  // namespace

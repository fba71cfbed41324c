/* Interpolation in a curve of 100,000 points beside GSL's linear interpolation with its
 * accelerator, at x values in order and at random.  Both sides alternate within a run; the
 * look-up of the tag, which GSL has nothing like, is a figure of its own. */
#include <benchmark/benchmark.h>
#include <gsl/gsl_interp.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <memory>
#include <random>
#include <vector>

#include "objects/ksvector.h"
#include "objects/vectors/points/internal/point_access.h"
#include "objects/vectors/shared/internal/vector_eval.h"

namespace {

constexpr int kPoints = 100'000, kQuestions = 100'000;

struct GslDeleter {
  void operator()(gsl_interp *interpolation) const { gsl_interp_free(interpolation); }
  void operator()(gsl_interp_accel *accelerator) const {
    gsl_interp_accel_free(accelerator);
  }
};

/* One curve on both sides, and what both are asked. */
class Curve {
 public:
  explicit Curve(bool sorted) : gsl_(gsl_interp_alloc(gsl_interp_linear, kPoints)) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> step(0.5, 1.5);
    vector_ = ksvector_create(kPoints, 1, "bench", tag_);
    for (int i = 0; i < kPoints; i++) {
      x_.push_back((i > 0 ? x_.back() : 0.0) + step(random));
      y_.push_back(step(random));
      ksvector_append(tag_, -1, &y_.back(), nullptr, x_.back());
    }
    gsl_interp_init(gsl_.get(), x_.data(), y_.data(), kPoints);
    std::uniform_real_distribution<double> inside(x_.front(), x_.back());
    for (int i = 0; i < kQuestions; i++) questions_.push_back(inside(random));
    if (sorted) std::sort(questions_.begin(), questions_.end());
  }
  ~Curve() { ksvector_free(tag_); }
  Curve(const Curve &) = delete;
  Curve &operator=(const Curve &) = delete;

  double ask_gsl() {
    double sum = 0.0;
    for (const double x : questions_) {
      sum += gsl_interp_eval(gsl_.get(), x_.data(), y_.data(), x, accelerator_.get());
    }
    return sum;
  }
  double ask_record() {
    double sum = 0.0, y = 0.0;
    for (const double x : questions_) {
      ksutil::vectors::evaluate(*vector_, x, &y);
      sum += y;
    }
    return sum;
  }
  double ask_by_tag() {
    double sum = 0.0, y = 0.0;
    for (const double x : questions_) {
      ksvector_eval(tag_, &y, x);
      sum += y;
    }
    return sum;
  }

 private:
  std::vector<double> x_, y_, questions_;
  KSVector *vector_ = nullptr;
  char tag_[KS_TAG_SIZE];
  std::unique_ptr<gsl_interp, GslDeleter> gsl_;
  std::unique_ptr<gsl_interp_accel, GslDeleter> accelerator_{gsl_interp_accel_alloc()};
};

/* This thread's time on a processor, which others on the machine disturb least. */
double processor_time() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

/* Runs one side; nanoseconds for each question. */
template <class Side>
double time_of(Side side, double &sum) {
  const double start = processor_time();
  sum = side();
  return (processor_time() - start) / kQuestions;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void BM_Eval(benchmark::State &state) {
  Curve curve(state.range(0) != 0);
  std::vector<double> gsl, record, tag, ratio;
  for (auto _ : state) {
    double expected = 0.0, found = 0.0;
    gsl.push_back(time_of([&] { return curve.ask_gsl(); }, expected));
    record.push_back(time_of([&] { return curve.ask_record(); }, found));
    if (std::abs(found - expected) > 1e-6 * expected) state.SkipWithError("differs");
    tag.push_back(time_of([&] { return curve.ask_by_tag(); }, found));
    ratio.push_back(record.back() / gsl.back());
  }
  state.counters["gsl_ns"] = median(gsl);
  state.counters["eval_ns"] = median(record);
  state.counters["by_tag_ns"] = median(tag);
  state.counters["eval_over_gsl"] = median(ratio);
}
BENCHMARK(BM_Eval)->ArgName("sorted")->Arg(1)->Arg(0)->Iterations(21);

}  // namespace

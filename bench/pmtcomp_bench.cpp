/* A step of two workers in lock-step, which a computation pays thousands of times: beside
 * the same step with std::barrier and with an OpenMP parallel region, with an empty body
 * (the cost of the step itself) and with 50 microseconds of work in each worker. */
#include <benchmark/benchmark.h>

#include <array>
#include <barrier>
#include <chrono>
#include <thread>

#include "pipeline/pmtcomp.h"

namespace {

constexpr int kWorkers = 2;

/* Keeps the processor busy for `microseconds`. */
void work(long microseconds) {
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds);
  while (microseconds > 0 && std::chrono::steady_clock::now() < end) {
  }
}

class CompSteps {
 public:
  explicit CompSteps(long microseconds) : comp_(pmtcomp_create()) {
    for (int i = 0; i < kWorkers; ++i) {
      pmtcomp_addthread(
          comp_,
          [](void *, long time, void *, PmtcompThread *, double) -> long {
            work(time);
            return 0;
          },
          nullptr, microseconds, nullptr);
    }
  }
  ~CompSteps() { pmtcomp_destroy(comp_); }
  CompSteps(const CompSteps &) = delete;
  CompSteps &operator=(const CompSteps &) = delete;

  void step() { pmtcomp_processthreads(comp_); }

 private:
  Pmtcomp *comp_;
};

/* The controlling thread meets the workers at the beginning and the end of each step. */
class BarrierSteps {
 public:
  explicit BarrierSteps(long microseconds) {
    for (std::jthread &worker : workers_) {
      worker = std::jthread([this, microseconds] {
        for (barrier_.arrive_and_wait(); !quit_; barrier_.arrive_and_wait()) {
          work(microseconds);
          barrier_.arrive_and_wait();
        }
      });
    }
  }
  ~BarrierSteps() {
    quit_ = true;
    barrier_.arrive_and_wait();
  }
  BarrierSteps(const BarrierSteps &) = delete;
  BarrierSteps &operator=(const BarrierSteps &) = delete;

  void step() {
    barrier_.arrive_and_wait();
    barrier_.arrive_and_wait();
  }

 private:
  std::barrier<> barrier_{kWorkers + 1};
  bool quit_ = false;  // written before, read after a meeting
  std::array<std::jthread, kWorkers> workers_;
};

class OpenMpSteps {
 public:
  explicit OpenMpSteps(long microseconds) : microseconds_(microseconds) {}
  void step() {
#pragma omp parallel num_threads(kWorkers)
    work(microseconds_);
  }

 private:
  long microseconds_;
};

template <class Steps>
void BM_Step(benchmark::State &state) {
  Steps steps(state.range(0));
  for (auto _ : state) steps.step();
}

void bodies(benchmark::internal::Benchmark *bench) {
  bench->ArgName("microseconds")->Arg(0)->Arg(50)->UseRealTime()->MinTime(0.2);
}

BENCHMARK(BM_Step<CompSteps>)->Apply(bodies);
BENCHMARK(BM_Step<BarrierSteps>)->Apply(bodies);
BENCHMARK(BM_Step<OpenMpSteps>)->Apply(bodies);

}  // namespace

/* Waiting beside others that want the processor: hand-overs, time-outs and steps while
 * busy processes or busy threads of the same process run, on one core and on two, each
 * beside the same written with a mutex and condition variables.  A pipeline shares its
 * machine with the work it feeds, so these rows and not the idle ones are what it feels. */
#include <benchmark/benchmark.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <semaphore>
#include <thread>
#include <vector>

#include "bench/queues.h"
#include "pipeline/pmtcomp.h"

namespace {

using Clock = std::chrono::steady_clock;

/* The cores that this thread, and those that it starts, may use for one scope. */
class Cores {
 public:
  explicit Cores(int count) {
    sched_getaffinity(0, sizeof before_, &before_);
    cpu_set_t some;
    CPU_ZERO(&some);
    for (int core = 0, taken = 0; core < CPU_SETSIZE && taken < count; ++core) {
      if (!CPU_ISSET(core, &before_)) continue;
      CPU_SET(core, &some);
      ++taken;
    }
    sched_setaffinity(0, sizeof some, &some);
  }
  ~Cores() { sched_setaffinity(0, sizeof before_, &before_); }
  Cores(const Cores &) = delete;
  Cores &operator=(const Cores &) = delete;

 private:
  cpu_set_t before_;
};

/* Busy processes and busy threads of this process, for one scope. */
class Load {
 public:
  Load(long processes, long threads) {
    for (long i = 0; i < processes; ++i) {
      const pid_t child = fork();
      if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) benchmark::ClobberMemory();
      }
      if (child > 0) children_.push_back(child);
    }
    for (long i = 0; i < threads; ++i) {
      threads_.emplace_back([](std::stop_token stop) {
        while (!stop.stop_requested()) {
        }
      });
    }
  }
  ~Load() {
    for (const pid_t child : children_) kill(child, SIGKILL);
    for (const pid_t child : children_) waitpid(child, nullptr, 0);
  }
  Load(const Load &) = delete;
  Load &operator=(const Load &) = delete;

 private:
  std::vector<pid_t> children_;
  std::vector<std::jthread> threads_;
};

/* The first three arguments of every row: cores, busy processes, busy threads. */
struct Surroundings {
  explicit Surroundings(const benchmark::State &state)
      : cores(static_cast<int>(state.range(0))), load(state.range(1), state.range(2)) {}
  Cores cores;
  Load load;
};

template <class Queue>
void BM_LoadedRoundTrip(benchmark::State &state) {
  const Surroundings surroundings(state);
  Queue there(10), back(10);
  int item = 0;
  std::thread echo([&] {
    for (void *got = there.pop(); got != nullptr; got = there.pop()) back.push(got);
  });
  for (auto _ : state) {
    there.push(&item);
    benchmark::DoNotOptimize(back.pop());
  }
  there.push(nullptr);
  echo.join();
}

template <class Queue>
void BM_LoadedStream(benchmark::State &state) {
  constexpr int kItems = 2000;
  const Surroundings surroundings(state);
  Queue queue(10);
  std::binary_semaphore received(0);
  int item = 0;
  std::thread reader([&] {
    for (int n = 1; queue.pop() != nullptr; ++n) {
      if (n % kItems == 0) received.release();
    }
  });
  for (auto _ : state) {
    for (int i = 0; i < kItems; ++i) queue.push(&item);
    received.acquire();
  }
  queue.push(nullptr);
  reader.join();
  state.SetItemsProcessed(state.iterations() * kItems);
}

/* One wait that times out, of state.range(3) microseconds; `latest` is the longest. */
template <class Wait>
void time_outs(benchmark::State &state, const Wait &wait) {
  const Surroundings surroundings(state);
  double latest = 0.0;
  for (auto _ : state) {
    const auto begin = Clock::now();
    wait(static_cast<double>(state.range(3)) * 1e-6);
    latest =
        std::max(latest, std::chrono::duration<double>(Clock::now() - begin).count());
  }
  state.counters["latest_ms"] = latest * 1e3;
}

void BM_TimeOutFifo(benchmark::State &state) {
  pmtfifo *const fifo = pmtfifo_create(0, 2, 0);
  time_outs(state, [fifo](double seconds) {
    pmtfifo_set_timeout(fifo, seconds > 0.0 ? seconds : 1e-9);
    void *item = nullptr;
    int result = 0;
    /* A release by the change of the mode ends the first wait. */
    while ((result = pmtfifo_pop(fifo, &item)) == 0) {
    }
    benchmark::DoNotOptimize(result);
  });
  pmtfifo_destroy(fifo, nullptr);
}

void BM_TimeOutCondition(benchmark::State &state) {
  std::mutex mutex;
  std::condition_variable data;
  const bool come = false;
  time_outs(state, [&](double seconds) {
    std::unique_lock lock(mutex);
    data.wait_until(lock,
                    std::chrono::system_clock::now() +
                        std::chrono::nanoseconds(static_cast<long>(seconds * 1e9)),
                    [&] { return come; });
  });
}

constexpr int kWorkers = 2;

class CompSteps {
 public:
  CompSteps() : comp_(pmtcomp_create()) {
    for (int i = 0; i < kWorkers; ++i) {
      pmtcomp_addthread(
          comp_,
          [](void *, long, void *, PmtcompThread *, double) -> long { return 0; },
          nullptr, 0, nullptr);
    }
  }
  ~CompSteps() { pmtcomp_destroy(comp_); }
  CompSteps(const CompSteps &) = delete;
  CompSteps &operator=(const CompSteps &) = delete;

  void step() { pmtcomp_processthreads(comp_); }

 private:
  Pmtcomp *comp_;
};

/* Workers that sleep on one condition variable each, and the controlling thread on
 * another. */
class ConditionSteps {
 public:
  ConditionSteps() {
    for (Worker &worker : workers_) {
      worker.thread = std::jthread([this, &worker] {
        for (;;) {
          std::unique_lock lock(mutex_);
          worker.start.wait(lock, [&] { return worker.asked; });
          worker.asked = false;
          if (quit_) return;
          if (--running_ == 0) done_.notify_one();
        }
      });
    }
  }
  ~ConditionSteps() {
    quit_ = true;
    ask();
  }
  ConditionSteps(const ConditionSteps &) = delete;
  ConditionSteps &operator=(const ConditionSteps &) = delete;

  void step() {
    ask();
    std::unique_lock lock(mutex_);
    done_.wait(lock, [this] { return running_ == 0; });
  }

 private:
  struct Worker {
    std::condition_variable start;
    bool asked = false;
    std::jthread thread;
  };

  void ask() {
    const std::lock_guard lock(mutex_);
    running_ = kWorkers;
    for (Worker &worker : workers_) {
      worker.asked = true;
      worker.start.notify_one();
    }
  }

  std::mutex mutex_;
  std::condition_variable done_;
  int running_ = 0;
  std::atomic<bool> quit_ = false;
  std::array<Worker, kWorkers> workers_;
};

template <class Steps>
void BM_LoadedStep(benchmark::State &state) {
  const Surroundings surroundings(state);
  Steps steps;
  for (auto _ : state) steps.step();
}

/* Nobody else, then busy processes and busy threads, on one core and two. */
template <class Add>
void surroundings(const Add &add) {
  for (const int cores : {1, 2}) {
    for (const auto &[processes, threads] :
         {std::array{0, 0}, {1, 0}, {2, 0}, {4, 0}, {0, 1}, {0, 2}, {0, 4}}) {
      add({cores, processes, threads});
    }
  }
}

void loads(benchmark::internal::Benchmark *bench) {
  bench->ArgNames({"cores", "processes", "threads"})->UseRealTime();
  surroundings([bench](std::vector<int64_t> args) { bench->Args(args); });
}

void timed_loads(benchmark::internal::Benchmark *bench) {
  bench->ArgNames({"cores", "processes", "threads", "us"})->UseRealTime();
  for (const int microseconds : {0, 10000}) {
    surroundings([=](std::vector<int64_t> args) {
      args.push_back(microseconds);
      bench->Args(args);
    });
  }
}

BENCHMARK(BM_LoadedRoundTrip<FifoQueue>)->Apply(loads);
BENCHMARK(BM_LoadedRoundTrip<MutexQueue>)->Apply(loads);
BENCHMARK(BM_LoadedStream<FifoQueue>)->Apply(loads);
BENCHMARK(BM_LoadedStream<MutexQueue>)->Apply(loads);
BENCHMARK(BM_TimeOutFifo)->Apply(timed_loads);
BENCHMARK(BM_TimeOutCondition)->Apply(timed_loads);
BENCHMARK(BM_LoadedStep<CompSteps>)->Apply(loads);
BENCHMARK(BM_LoadedStep<ConditionSteps>)->Apply(loads);

}  // namespace

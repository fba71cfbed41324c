/* Threads that wait share their core with threads that work: if waiting gives the processor
 * away, a time-out of a millisecond and a hand-over last as long as the time slices of all
 * others, and a pipeline stands still beside the work that it feeds. */
#include <gtest/gtest.h>
#include <sched.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "pipeline/internal/brief_wait.h"
#include "pipeline/pmtcomp.h"
#include "tests/pipeline/fifo_test_support.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/* Keeps the first core of this thread's set busy with four threads; this thread, and those
 * that it starts, run on it as well, for one scope. */
class BusyCore {
 public:
  BusyCore() {
    sched_getaffinity(0, sizeof before_, &before_);
    int core = 0;
    while (core < CPU_SETSIZE - 1 && !CPU_ISSET(core, &before_)) ++core;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(core, &one);
    sched_setaffinity(0, sizeof one, &one);
    for (int i = 0; i < 4; ++i) {
      threads_.emplace_back([](std::stop_token stop) {
        while (!stop.stop_requested()) {
        }
      });
    }
  }
  ~BusyCore() { sched_setaffinity(0, sizeof before_, &before_); }
  BusyCore(const BusyCore &) = delete;
  BusyCore &operator=(const BusyCore &) = delete;

 private:
  cpu_set_t before_{};
  std::vector<std::jthread> threads_;
};

template <class Work>
Clock::duration time_of(int times, const Work &work) {
  const auto begin = Clock::now();
  for (int i = 0; i < times; ++i) work();
  return Clock::now() - begin;
}

/* What a plain condition variable does in the same place, at the same load. */
class PlainWait {
 public:
  void time_out(milliseconds time) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, time, [] { return false; });
  }

  /* Hands the turn to the other side and waits until it comes back. */
  void swap(int side) {
    std::unique_lock lock(mutex_);
    turn_ = 1 - side;
    changed_.notify_all();
    changed_.wait(lock, [&] { return turn_ == side; });
  }
  void pass(int side) {
    const std::lock_guard lock(mutex_);
    turn_ = 1 - side;
    changed_.notify_all();
  }
  void await(int side) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return turn_ == side; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int turn_ = 0;
};

/* A waiter that yields needs some ten milliseconds for each of the waits below, a sleeping
 * one less than one: 2 s and more against some 10 ms, and as much again for chance. */
constexpr auto kChance = milliseconds(400);

TEST(BusyCore, DelaysTimeOutsNoMoreThanThoseOfAConditionVariable) {
  const BusyCore busy;
  const FifoHandle fifo = new_fifo(0, 2);
  pmtfifo_set_timeout(fifo.get(), 1e-3);
  while (pop(fifo).first == 0) {
  }
  PlainWait plain;
  const auto floor = time_of(20, [&] { plain.time_out(milliseconds(1)); });
  const auto taken = time_of(20, [&] { EXPECT_EQ(pop(fifo).first, 2); });
  EXPECT_LE(taken, 3 * floor + kChance);
}

TEST(BusyCore, DelaysHandOversNoMoreThanThoseOfAConditionVariable) {
  constexpr int kTrips = 200;
  const BusyCore busy;
  PlainWait plain;
  Clock::duration floor{};
  {
    std::jthread other([&] {
      plain.await(1);
      for (int i = 1; i < kTrips; ++i) plain.swap(1);
      plain.pass(1);
    });
    floor = time_of(kTrips, [&] { plain.swap(0); });
  }
  const FifoHandle there = new_fifo(1, 1), back = new_fifo(1, 1);
  std::jthread echo([&] {
    for (int i = 0; i < kTrips; ++i) {
      pmtfifo_push(back.get(), item(pop(there).second));
    }
  });
  const auto taken = time_of(kTrips, [&] {
    pmtfifo_push(there.get(), item(7));
    EXPECT_EQ(pop(back), Popped(1, 7));
  });
  EXPECT_LE(taken, 3 * floor + kChance);
}

TEST(BusyCore, DelaysStepsNoMoreThanSleepers) {
  const BusyCore busy;
  Pmtcomp *const comp = pmtcomp_create();
  for (int i = 0; i < 2; ++i) {
    pmtcomp_addthread(
        comp, [](void *, long, void *, PmtcompThread *, double) -> long { return 0; },
        nullptr, 0, nullptr);
  }
  PlainWait plain;
  const auto floor = time_of(100, [&] { plain.time_out(milliseconds(1)); });
  const auto taken = time_of(100, [&] { EXPECT_EQ(pmtcomp_processthreads(comp), 2); });
  pmtcomp_destroy(comp);
  EXPECT_LE(taken, 3 * floor + kChance);
}

/* How many waits go by before one looks again. */
int skipped(ksutil::BriefWait &wait) {
  int count = 0;
  while (wait.skip()) ++count;
  return count;
}

TEST(BriefWait, LooksAgainOnlyWhereLookingPays) {
  ksutil::BriefWait wait{};
  for (const int waits : {0, 1, 3, 7, 15, 31, 63, 127, 127}) {
    EXPECT_EQ(skipped(wait), waits);
    EXPECT_FALSE(wait.until([] { return false; }));
  }
  EXPECT_EQ(skipped(wait), 127);
  int looks = 0;
  EXPECT_TRUE(wait.until([&] { return ++looks == 3; }));
  EXPECT_EQ(looks, 3);
  EXPECT_EQ(skipped(wait), 0);
  EXPECT_FALSE(wait.until([] { return false; }));
  EXPECT_EQ(skipped(wait), 1);
}

}  // namespace

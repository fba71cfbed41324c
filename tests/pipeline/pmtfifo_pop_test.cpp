/* A reader that is not woken, or woken with the wrong code, is a thread that never ends or
 * ends too early. */
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/pipeline/fifo_test_support.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

TEST(PmtfifoPop, NeverWaitsInModeZero) {
  const FifoHandle fifo = new_fifo(0, 0);
  EXPECT_EQ(pop(fifo), Popped(3, 0));
  pmtfifo_push(fifo.get(), item(5));
  EXPECT_EQ(pmtfifo_data_available(fifo.get()), 1);
  EXPECT_EQ(pop(fifo), Popped(1, 5));
}

TEST(PmtfifoPop, WaitsForAnItemInModeOne) {
  const FifoHandle fifo = new_fifo(0, 1);
  std::future<Popped> reader = pop_async(fifo);
  await_waiting(fifo, 1, 0);
  EXPECT_TRUE(still_waits(reader));
  pmtfifo_push(fifo.get(), item(7));
  EXPECT_EQ(reader.get(), Popped(1, 7));
}

TEST(PmtfifoPop, TimesOutInModeTwo) {
  const FifoHandle fifo = new_fifo(0, 2);
  EXPECT_EQ(pop(fifo), Popped(2, 0)) << "no time was given yet";
  pmtfifo_set_timeout(fifo.get(), 0.2);
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(pop(fifo), Popped(2, 0));
  EXPECT_GE(seconds_since(start), 0.19);
  EXPECT_LT(seconds_since(start), 5.0);
  pmtfifo_set_timeout(fifo.get(), std::nan(""));
  EXPECT_EQ(pop(fifo), Popped(2, 0));
  pmtfifo_push(fifo.get(), item(1));
  EXPECT_EQ(pop(fifo), Popped(1, 1));
}

TEST(PmtfifoPop, TimeOutStartsAgainAfterAFruitlessWakeUp) {
  const FifoHandle fifo = new_fifo(0, 2);
  pmtfifo_set_timeout(fifo.get(), 0.3);
  pmtfifo_push(fifo.get(), item(1));
  EXPECT_EQ(pop(fifo), Popped(1, 1)) << "clears the release of the change of mode";
  const Clock::time_point start = Clock::now();
  std::future<Popped> reader = pop_async(fifo);
  await_waiting(fifo, 1, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  {
    const ksutil::PthreadLock lock(fifo->mutex);
    pthread_cond_signal(&fifo->data);
  }
  EXPECT_EQ(reader.get(), Popped(2, 0));
  EXPECT_GE(seconds_since(start), 0.48);
}

TEST(PmtfifoPop, TakesAnItemThatCameWithTheTimeOut) {
  const FifoHandle fifo = new_fifo(0, 2);
  pmtfifo_set_timeout(fifo.get(), 0.1);
  std::future<Popped> reader = pop_async(fifo);
  await_waiting(fifo, 1, 0);
  {
    /* The reader times out while the lock is held, so it finds the item on its return. */
    const ksutil::PthreadLock lock(fifo->mutex);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    fifo->items.append(item(9));
    fifo->count = 1;
  }
  EXPECT_EQ(reader.get(), Popped(1, 9));
}

TEST(PmtfifoRelease, SendsAWaitingReaderAwayWithoutData) {
  const FifoHandle fifo = new_fifo(0, 1);
  std::future<Popped> reader = pop_async(fifo);
  await_waiting(fifo, 1, 0);
  EXPECT_EQ(pmtfifo_release_block(fifo.get()), 0);
  EXPECT_EQ(reader.get(), Popped(0, 0));
}

TEST(PmtfifoRelease, IsKeptForTheNextPopThatHasToWait) {
  const FifoHandle fifo = new_fifo(0, 1);
  pmtfifo_release_block(fifo.get());
  std::future<Popped> reader = pop_async(fifo);
  await_waiting(fifo, 1, 0);
  EXPECT_TRUE(still_waits(reader)) << "a kept release acts after a wake-up only";
  pmtfifo_push(fifo.get(), item(4));
  EXPECT_EQ(reader.get(), Popped(0, 0));
  EXPECT_EQ(pop(fifo), Popped(1, 4));
}

TEST(PmtfifoRelease, IsForgottenByAPopThatFindsDataAndByATimeOut) {
  const FifoHandle fifo = new_fifo(0, 1);
  pmtfifo_release_block(fifo.get());
  pmtfifo_push(fifo.get(), item(1));
  EXPECT_EQ(pop(fifo), Popped(1, 1));
  EXPECT_EQ(fifo->released, 0);
  pmtfifo_release_block(fifo.get());
  pmtfifo_set_timeout(fifo.get(), 0.01);
  EXPECT_EQ(pop(fifo), Popped(2, 0));
  EXPECT_EQ(fifo->released, 0);
  std::future<Popped> reader = pop_async(fifo);
  reader.wait();
  pmtfifo_set_timeout(fifo.get(), 0.0);
  EXPECT_EQ(pop(fifo), Popped(3, 0));
  pmtfifo_release_block(fifo.get());
  EXPECT_EQ(fifo->released, 0) << "nobody can wait in mode 0";
}

TEST(PmtfifoRelease, BlocksEndsWaitingForGoodAndWakesOneReader) {
  const FifoHandle fifo = new_fifo(0, 1);
  std::future<Popped> first = pop_async(fifo);
  std::future<Popped> second = pop_async(fifo);
  await_waiting(fifo, 2, 0);
  EXPECT_EQ(pmtfifo_release_blocks(fifo.get()), 0);
  await_waiting(fifo, 1, 0);
  EXPECT_EQ(pop(fifo), Popped(3, 0));
  pmtfifo_push(fifo.get(), item(1));
  EXPECT_EQ(pop(fifo), Popped(1, 1)) << "a push in mode 0 wakes nobody";
  EXPECT_TRUE(still_waits(first) || still_waits(second));
  pmtfifo_set_timeout(fifo.get(), -1.0);
  pmtfifo_release_block(fifo.get());
  EXPECT_EQ(first.get(), Popped(0, 0));
  EXPECT_EQ(second.get(), Popped(0, 0));
}

TEST(PmtfifoMode, ChangeReleasesAReaderOfTheOldMode) {
  for (const double timeout : {30.0, 0.0}) {
    const FifoHandle fifo = new_fifo(0, 1);
    std::future<Popped> reader = pop_async(fifo);
    await_waiting(fifo, 1, 0);
    EXPECT_EQ(pmtfifo_set_timeout(fifo.get(), timeout), 0);
    EXPECT_EQ(reader.get(), Popped(0, 0));
    EXPECT_EQ(fifo->block, timeout > 0 ? 2 : 0);
  }
}

TEST(PmtfifoMode, WaitingWithoutLimitDisturbsNobody) {
  const FifoHandle fifo = new_fifo(0, 1);
  std::future<Popped> reader = pop_async(fifo);
  await_waiting(fifo, 1, 0);
  pmtfifo_set_timeout(fifo.get(), -1.0);
  EXPECT_TRUE(still_waits(reader));
  pmtfifo_push(fifo.get(), item(3));
  EXPECT_EQ(reader.get(), Popped(1, 3));
}

TEST(PmtfifoDeadline, CarriesAndStaysWithinTheCalendar) {
  const auto deadline = [](double now, double timeout) {
    const timespec time = ksutil::fifo_deadline(now, timeout);
    EXPECT_GE(time.tv_nsec, 0);
    EXPECT_LT(time.tv_nsec, 1000000000L);
    return std::pair<long, long>(time.tv_sec, time.tv_nsec);
  };
  using Pair = std::pair<long, long>;
  EXPECT_EQ(deadline(10.0, 0.5), Pair(10, 500000000));
  EXPECT_EQ(deadline(1.0, 0.9999999999), Pair(2, 0));
  EXPECT_EQ(deadline(10.25, std::nan("")), Pair(10, 250000000));
  const long latest = 253402300799;
  EXPECT_EQ(deadline(10.0, std::numeric_limits<double>::infinity()), Pair(latest, 0));
  EXPECT_EQ(deadline(10.0, 1e300), Pair(latest, 0));
  EXPECT_EQ(deadline(std::nan(""), 1.0), Pair(0, 0));
}

}  // namespace

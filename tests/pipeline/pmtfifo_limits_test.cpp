/* Capacity and flushes decide what becomes of a pusher's item: a wrong answer loses it, or
 * makes the caller free what the queue still holds. */
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <deque>
#include <random>
#include <vector>

#include "tests/pipeline/fifo_test_support.h"

namespace {

std::vector<long> g_freed;
void note_freed(void *data) { g_freed.push_back(number(data)); }

FifoHandle full_fifo() {
  FifoHandle fifo = new_fifo(2, 0);
  pmtfifo_push(fifo.get(), item(1));
  pmtfifo_push(fifo.get(), item(2));
  return fifo;
}

TEST(PmtfifoLimit, PusherWaitsForRoom) {
  const FifoHandle fifo = full_fifo();
  std::future<int> third = push_async(fifo, 3);
  await_waiting(fifo, 0, 1);
  EXPECT_TRUE(still_waits(third));
  EXPECT_EQ(pmtfifo_data_available(fifo.get()), 2);
  EXPECT_EQ(pop(fifo), Popped(1, 1));
  EXPECT_EQ(third.get(), 0);
  EXPECT_EQ(pop(fifo), Popped(1, 2));
  EXPECT_EQ(pop(fifo), Popped(1, 3));
}

TEST(PmtfifoLimit, UnpopWaitsForRoomToo) {
  const FifoHandle fifo = full_fifo();
  auto third = std::async(std::launch::async,
                          [&] { return pmtfifo_unpop(fifo.get(), item(3)); });
  await_waiting(fifo, 0, 1);
  EXPECT_EQ(pop(fifo), Popped(1, 1));
  EXPECT_EQ(third.get(), 0);
  EXPECT_EQ(pop(fifo), Popped(1, 3));
}

TEST(PmtfifoFlush, SendsOneWaitingPusherAwayWithItsItem) {
  const FifoHandle fifo = full_fifo();
  std::future<int> third = push_async(fifo, 3);
  await_waiting(fifo, 0, 1);
  g_freed.clear();
  EXPECT_EQ(pmtfifo_flush(fifo.get(), note_freed), 0);
  EXPECT_EQ(third.get(), 0);
  EXPECT_EQ(g_freed, std::vector<long>({1, 2}));
  EXPECT_EQ(pmtfifo_data_available(fifo.get()), 0);
  EXPECT_EQ(pop(fifo), Popped(3, 0));
}

TEST(PmtfifoFlush, MarkOutlivesItUntilAPusherHasHadToWait) {
  const FifoHandle fifo = full_fifo();
  pmtfifo_flush(fifo.get(), nullptr);
  EXPECT_EQ(pmtfifo_push(fifo.get(), item(4)), 0);
  EXPECT_EQ(pmtfifo_push(fifo.get(), item(5)), 0);
  std::future<int> gives_up = push_async(fifo, 6);
  await_waiting(fifo, 0, 1);
  EXPECT_EQ(pop(fifo), Popped(1, 4));
  EXPECT_EQ(gives_up.get(), 0);
  EXPECT_EQ(pmtfifo_data_available(fifo.get()), 1) << "the item was taken";
  EXPECT_EQ(pmtfifo_push(fifo.get(), item(7)), 0);
  std::future<int> waits = push_async(fifo, 8);
  await_waiting(fifo, 0, 1);
  EXPECT_EQ(pop(fifo), Popped(1, 5));
  EXPECT_EQ(waits.get(), 0);
  EXPECT_EQ(pmtfifo_data_available(fifo.get()), 2);
}

TEST(PmtfifoFlush, DoesNotWaitForTheFifosOwnLock) {
  const FifoHandle fifo = full_fifo();
  ksutil::PthreadLock lock(fifo->mutex);
  auto flushed = std::async(std::launch::async,
                            [&fifo] { return pmtfifo_flush(fifo.get(), nullptr); });
  EXPECT_EQ(flushed.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  lock.unlock();
  EXPECT_EQ(flushed.get(), 0);
  EXPECT_EQ(pmtfifo_data_available(fifo.get()), 0);
}

TEST(PmtfifoDestroy, HandsEachItemToTheFreeFunctionOnce) {
  for (const int reg : {0, 1}) {
    pmtfifo *const fifo = pmtfifo_create(0, 1, reg);
    for (long i = 1; i <= 3; ++i) pmtfifo_push(fifo, item(i));
    void *data = nullptr;
    pmtfifo_pop(fifo, &data);
    g_freed.clear();
    EXPECT_EQ(pmtfifo_destroy(fifo, note_freed), 0);
    EXPECT_EQ(g_freed, std::vector<long>({2, 3}));
  }
}

TEST(PmtfifoOrder, UnpopGoesBeforeAllOthers) {
  const FifoHandle fifo = new_fifo(0, 0);
  EXPECT_EQ(pmtfifo_unpop(fifo.get(), item(1)), 0);
  pmtfifo_push(fifo.get(), item(2));
  pmtfifo_unpop(fifo.get(), item(3));
  pmtfifo_push(fifo.get(), item(4));
  for (const long expected : {3, 1, 2, 4}) EXPECT_EQ(pop(fifo), Popped(1, expected));
  EXPECT_EQ(pop(fifo), Popped(3, 0));
}

/* Bursts of many chunks, and items put back in front of full and of half-empty ones,
 * beside a plain list. */
TEST(PmtfifoOrder, IsThatOfAListThroughBurstsAndUnpops) {
  std::mt19937 random(20150801);
  const FifoHandle fifo = new_fifo(0, 0);
  std::deque<long> model;
  long next = 1;
  for (int burst = 0; burst < 40; ++burst) {
    const bool growing = burst % 2 == 0;
    for (auto n = random() % 3000; n > 0; --n) {
      const auto choice = random() % 10;
      if (choice == 0) {
        model.push_front(next);
        ASSERT_EQ(pmtfifo_unpop(fifo.get(), item(next++)), 0);
      } else if ((choice < 8) == growing) {
        model.push_back(next);
        ASSERT_EQ(pmtfifo_push(fifo.get(), item(next++)), 0);
      } else if (!model.empty()) {
        ASSERT_EQ(pop(fifo), Popped(1, model.front()));
        model.pop_front();
      }
      ASSERT_EQ(pmtfifo_data_available(fifo.get()), static_cast<int>(model.size()));
    }
  }
  for (; !model.empty(); model.pop_front()) {
    ASSERT_EQ(pop(fifo), Popped(1, model.front()));
  }
  EXPECT_EQ(pop(fifo), Popped(3, 0));
  EXPECT_LE(fifo->items.chunks(), 2) << "the memory of bursts goes back";
}

TEST(PmtfifoNull, IsNoError) {
  void *data = item(1);
  EXPECT_EQ(pmtfifo_pop(nullptr, &data), 3);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(pmtfifo_push(nullptr, data) | pmtfifo_unpop(nullptr, data) |
                pmtfifo_set_timeout(nullptr, 1.0) | pmtfifo_data_available(nullptr) |
                pmtfifo_release_block(nullptr) | pmtfifo_release_blocks(nullptr) |
                pmtfifo_flush(nullptr, nullptr) | pmtfifo_destroy(nullptr, nullptr),
            0);
}

TEST(PmtfifoMemory, ShortageFailsAPushAndLeavesTheFifoInUse) {
  elog_clear_register(0);
  ks_test_fail_alloc(1);
  EXPECT_EQ(pmtfifo_create(0, 0, 0), nullptr);
  EXPECT_EQ(taken_messages(),
            "pmtfifo_create: malloc() error.\nCannot allocate memory\n");
  elog_clear_register(0);
  const FifoHandle fifo = new_fifo(0, 0);
  ks_test_fail_alloc(1);
  EXPECT_EQ(pmtfifo_push(fifo.get(), item(1)), -1);
  EXPECT_EQ(taken_messages(),
            "pmtfifo_push: malloc() error.\nCannot allocate memory\n");
  EXPECT_EQ(pmtfifo_push(fifo.get(), item(2)), 0);
  EXPECT_EQ(pop(fifo), Popped(1, 2));
}

#if !defined(__SANITIZE_THREAD__)
TEST(PmtfifoMemory, ShortageInUnpopLeavesTheFifoLocked) {
  const auto unpop_then_push = [] {
    pmtfifo *const fifo = pmtfifo_create(0, 0, 0);
    ks_test_fail_alloc(1);
    if (pmtfifo_unpop(fifo, item(1)) != -1 ||
        !taken_messages().starts_with("pmtfifo_push: malloc() error.\n")) {
      _exit(2);
    }
    alarm(1);
    pmtfifo_push(fifo, item(2));
    _exit(3);
  };
  EXPECT_EXIT(unpop_then_push(), testing::KilledBySignal(SIGALRM), "");
}
#endif

}  // namespace

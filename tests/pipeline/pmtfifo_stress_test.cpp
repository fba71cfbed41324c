/* Many threads at once: nothing is lost, doubled or left waiting. */
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/pipeline/fifo_test_support.h"

namespace {

constexpr int kProducers = 3;
constexpr int kConsumers = 3;
constexpr long kItems = 4000;  // of each producer
constexpr long kEnd = -2;

struct StressCase {
  const char *name;
  int maxsize, block, reg;
  double timeout;
};
class PmtfifoStress : public testing::TestWithParam<StressCase> {};

TEST_P(PmtfifoStress, EveryItemArrivesOnceAndInItsProducersOrder) {
  const FifoHandle fifo =
      new_fifo(GetParam().maxsize, GetParam().block, GetParam().reg);
  if (GetParam().block == 2) pmtfifo_set_timeout(fifo.get(), GetParam().timeout);
  std::vector<std::vector<long>> taken(kConsumers);
  std::vector<std::thread> consumers;
  for (std::vector<long> &mine : taken) {
    consumers.emplace_back([&fifo, &mine] {
      for (Popped got = pop(fifo); got.second != kEnd; got = pop(fifo)) {
        if (got.first == 1) mine.push_back(got.second);
        if (got.first == 3) std::this_thread::yield();
      }
    });
  }
  std::vector<std::thread> producers;
  for (long p = 0; p < kProducers; ++p) {
    producers.emplace_back([&fifo, p] {
      for (long i = 1; i <= kItems; ++i) {
        EXPECT_EQ(pmtfifo_push(fifo.get(), item(p * kItems + i)), 0);
      }
    });
  }
  for (int i = 0; i < 50; ++i) pmtfifo_release_block(fifo.get());
  for (std::thread &producer : producers) producer.join();
  for (int c = 0; c < kConsumers; ++c) pmtfifo_push(fifo.get(), item(kEnd));
  for (std::thread &consumer : consumers) consumer.join();

  std::vector<int> seen(kProducers * kItems + 1, 0);
  for (const std::vector<long> &mine : taken) {
    std::vector<long> last(kProducers, 0);
    for (const long value : mine) {
      seen[static_cast<std::size_t>(value)]++;
      long &before = last[static_cast<std::size_t>((value - 1) / kItems)];
      EXPECT_LT(before, value);
      before = value;
    }
  }
  EXPECT_EQ(std::count(seen.begin() + 1, seen.end(), 1), kProducers * kItems);
  EXPECT_EQ(pmtfifo_data_available(fifo.get()), 0);
}
INSTANTIATE_TEST_SUITE_P(Modes, PmtfifoStress,
                         testing::Values(StressCase{"Unlimited", 0, 1, 0, 0},
                                         StressCase{"Narrow", 1, 1, 0, 0},
                                         StressCase{"Registered", 10, 1, 1, 0},
                                         StressCase{"Timed", 10, 2, 0, 0.001},
                                         StressCase{"Polling", 10, 0, 0, 0}),
                         [](const auto &test) { return test.param.name; });

TEST(PmtfifoFlushStress, FlushesBesideAWaitingPusher) {
  const FifoHandle fifo = new_fifo(1, 0);
  for (int round = 0; round < 200; ++round) {
    pmtfifo_push(fifo.get(), item(1));
    std::future<int> pusher = push_async(fifo, 2);
    await_waiting(fifo, 0, 1);
    pmtfifo_flush(fifo.get(), nullptr);
    ASSERT_EQ(pusher.get(), 0);
    ASSERT_EQ(pmtfifo_data_available(fifo.get()), 0);
  }
}

}  // namespace

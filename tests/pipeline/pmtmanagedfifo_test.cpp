/* A managed fifo shares each item between its consumers: a wrong count frees what another
 * still reads, a wrong end mark stops a consumer before its data or leaves it waiting. */
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "tests/pipeline/managedfifo_test_support.h"

namespace {

TEST(ManagedFifo, EveryItemReachesEveryConsumerInOrder) {
  const ManagedHandle fifo = new_managed("order", {"left", "right"});
  for (long i = 0; i < 3; ++i) ASSERT_EQ(push_number(fifo.get(), 10 + i, i == 1), 0);
  for (long i = 0; i < 3; ++i) EXPECT_EQ(take(fifo.get(), "left"), Taken(1, 10 + i, i));
  EXPECT_EQ(take(fifo.get(), "left"), Taken(3, -1, -1));
  for (long i = 0; i < 3; ++i) {
    EXPECT_EQ(take(fifo.get(), "right"), Taken(1, 10 + i, i));
  }
}

TEST(ManagedFifo, ConsumersAndProducerHaveBlocksOfTheirOwn) {
  const ManagedHandle fifo = new_managed("copies", {"left", "right"});
  const MallocPtr<long> mine(static_cast<long *>(block_of(5)));
  ASSERT_EQ(pmtmanagedfifo_push(fifo.get(), mine.get(), copy_block, 1), 0);
  *mine = 6;
  void *left = nullptr;
  ASSERT_EQ(pmtmanagedfifo_pop(fifo.get(), "left", &left, nullptr), 1);
  const MallocPtr<long> first(static_cast<long *>(left));
  EXPECT_EQ(*first, 5);
  *first = 7;
  EXPECT_EQ(take(fifo.get(), "right"), Taken(1, 5, 0));
}

TEST(ManagedFifo, ACopyThatComesBackNullIsHandedOn) {
  const ManagedHandle fifo = new_managed("null copies", {"only"});
  ASSERT_EQ(pmtmanagedfifo_push(fifo.get(), block_of(1), no_copy, 0), 0);
  ASSERT_EQ(push_number(fifo.get(), 2), 0);
  EXPECT_EQ(take(fifo.get(), "only"), Taken(1, -1, 0));
  EXPECT_EQ(take(fifo.get(), "only"), Taken(1, 2, 1));
}

TEST(ManagedFifo, LastProducerEndsTheStreamBehindItsData) {
  const ManagedHandle fifo = new_managed("ends", {"left", "right"});
  ASSERT_EQ(pmtmanagedfifo_set_producer(fifo.get(), "a"), 0);
  ASSERT_EQ(pmtmanagedfifo_set_producer(fifo.get(), "b"), 0);
  EXPECT_EQ(pmtmanagedfifo_push_eof(fifo.get(), "a"), 0);
  EXPECT_EQ(pmtmanagedfifo_push_eof(fifo.get(), "a"), 0) << "ended before, b is live";
  EXPECT_EQ(pmtmanagedfifo_push_eof(fifo.get(), "nobody"), 0);
  EXPECT_EQ(take(fifo.get(), "left").result, 3);
  ASSERT_EQ(push_number(fifo.get(), 1), 0);
  EXPECT_EQ(pmtmanagedfifo_push_eof(fifo.get(), "b"), 0);
  for (const char *consumer : {"left", "right"}) {
    EXPECT_EQ(take(fifo.get(), consumer), Taken(1, 1, 0));
    EXPECT_EQ(take(fifo.get(), consumer), Taken(4, -1, -1));
    EXPECT_EQ(take(fifo.get(), consumer).result, 3) << "one mark only";
  }
}

TEST(ManagedFifo, EndMarkWithoutANameIsSentWhileProducersLive) {
  const ManagedHandle fifo = new_managed("nameless end", {"only"});
  EXPECT_EQ(pmtmanagedfifo_push_eof(fifo.get(), "no producers at all"), 0);
  EXPECT_EQ(take(fifo.get(), "only").result, 4);
  ASSERT_EQ(pmtmanagedfifo_set_producer(fifo.get(), "live"), 0);
  EXPECT_EQ(pmtmanagedfifo_push_eof(fifo.get(), nullptr), 0);
  EXPECT_EQ(take(fifo.get(), "only").result, 4);
}

TEST(ManagedFifo, AFullConsumerHoldsBackPushesAndEndMarks) {
  const ManagedHandle fifo = new_managed("paced", {"slow"}, 1);
  ASSERT_NE(pmtmanagedfifo_set_consumer(fifo.get(), "quick", 0, 0), nullptr);
  ASSERT_EQ(push_number(fifo.get(), 1), 0);
  auto second =
      std::async(std::launch::async, [&] { return push_number(fifo.get(), 2); });
  EXPECT_TRUE(still_waits(second));
  EXPECT_EQ(take(fifo.get(), "quick"), Taken(1, 1, 0));
  EXPECT_EQ(take(fifo.get(), "quick").result, 3) << "no consumer runs ahead";
  EXPECT_NE(pmtmanagedfifo_set_consumer(fifo.get(), "late", 0, 0), nullptr)
      << "the fifo stays open to others meanwhile";
  EXPECT_EQ(take(fifo.get(), "slow"), Taken(1, 1, 0));
  EXPECT_EQ(second.get(), 0);
  auto end = std::async(std::launch::async,
                        [&] { return pmtmanagedfifo_push_eof(fifo.get(), nullptr); });
  EXPECT_TRUE(still_waits(end));
  EXPECT_EQ(take(fifo.get(), "slow"), Taken(1, 2, 1));
  EXPECT_EQ(end.get(), 0);
  EXPECT_EQ(take(fifo.get(), "slow").result, 4);
  EXPECT_EQ(take(fifo.get(), "late"), Taken(1, 2, 1));
}

TEST(ManagedFifo, ReaderModesAreThoseOfTheConsumersFifo) {
  const ManagedHandle fifo = new_managed("modes", {"reader"}, 0, 1);
  auto released =
      std::async(std::launch::async, [&] { return take(fifo.get(), "reader"); });
  pmtfifo *const queue = pmtmanagedfifo_get_consumer(fifo.get(), "reader");
  while (released.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    pmtfifo_release_block(queue);
  }
  EXPECT_EQ(released.get(), Taken(0, -1, -1));
  pmtfifo_set_timeout(queue, 0.01);
  EXPECT_EQ(take(fifo.get(), "reader").result, 2);
}

TEST(ManagedFifo, UnreadItemsAreFreedOnceByDestroy) {
  ManagedHandle fifo = new_managed("unread", {"left", "right"});
  for (long i = 0; i < 4; ++i) ASSERT_EQ(push_number(fifo.get(), i, i == 2), 0);
  pmtmanagedfifo_push_eof(fifo.get(), nullptr);
  EXPECT_EQ(take(fifo.get(), "left"), Taken(1, 0, 0));
  pmtmanagedfifo *const husk = fifo.get();
  fifo.reset();
  elog_clear_register(0);
  EXPECT_EQ(pmtmanagedfifo_get("unread"), husk);
  EXPECT_EQ(pmtmanagedfifo_create("unread"), nullptr);
  EXPECT_EQ(take(husk, "left").result, -1);
  EXPECT_EQ(pmtmanagedfifo_set_consumer(husk, "new", 0, 0), nullptr);
  EXPECT_EQ(taken_messages(),
            "pmtmanagedfifo_create: name 'unread' already in use.\n"
            "pmtmanagedfifo_pop: unknown consumer name 'left' in fifo 'unread'.\n"
            "pmtmanagedfifo_set_consumer: fifo 'unread' no longer exists.\n");
  EXPECT_EQ(pmtmanagedfifo_destroy(husk), 0);
}

TEST(ManagedFifo, APushWithoutConsumersGoesNowhereAndTakesItsNumber) {
  const ManagedHandle fifo = new_managed("nobody listens", {});
#if defined(__SANITIZE_ADDRESS__)
  __lsan_disable();  // such an item is lost
#endif
  EXPECT_EQ(push_number(fifo.get(), 1), 0);
#if defined(__SANITIZE_ADDRESS__)
  __lsan_enable();
#endif
  ASSERT_NE(pmtmanagedfifo_set_consumer(fifo.get(), "late", 0, 0), nullptr);
  ASSERT_EQ(push_number(fifo.get(), 2), 0);
  EXPECT_EQ(take(fifo.get(), "late"), Taken(1, 2, 1));
}

/* Consumers of different capacities, producers that end as they are done, and a consumer
 * that joins in the middle: everyone sees one order without gaps, and one end. */
TEST(ManagedFifoStress, ManyProducersAndConsumersShareOneOrder) {
  constexpr long kProducers = 4, kItems = 500;
  struct Seen {
    std::vector<long> values;
    long first_sequence = -1;
  };
  const ManagedHandle fifo(pmtmanagedfifo_create("stress"));
  const auto consume = [&fifo](const std::string &name) {
    Seen seen;
    for (;;) {
      const Taken taken = take(fifo.get(), name.c_str());
      if (taken.result == 4) return seen;
      if (taken.result != 1) continue;
      if (seen.values.empty()) seen.first_sequence = taken.sequence;
      EXPECT_EQ(taken.sequence,
                seen.first_sequence + static_cast<long>(seen.values.size()));
      seen.values.push_back(taken.value);
    }
  };
  std::vector<std::future<Seen>> consumers;
  const auto add_consumer = [&](const char *name, int maxsize) {
    pmtmanagedfifo_set_consumer(fifo.get(), name, maxsize, 1);
    consumers.push_back(std::async(std::launch::async, consume, name));
  };
  add_consumer("unlimited", 0);
  add_consumer("narrow", 2);
  for (long p = 0; p < kProducers; ++p) {
    pmtmanagedfifo_set_producer(fifo.get(), std::to_string(p).c_str());
  }
  std::vector<std::thread> producers;
  for (long p = 0; p < kProducers; ++p) {
    producers.emplace_back([&fifo, p] {
      for (long i = 0; i < kItems; ++i) {
        EXPECT_EQ(push_number(fifo.get(), p * kItems + i, i % 2 == 0), 0);
      }
      EXPECT_EQ(pmtmanagedfifo_push_eof(fifo.get(), std::to_string(p).c_str()), 0);
    });
  }
  add_consumer("late", 10);
  for (std::thread &producer : producers) producer.join();

  const Seen all = consumers[0].get();
  ASSERT_EQ(all.values.size(), static_cast<std::size_t>(kProducers * kItems));
  std::vector<long> next(kProducers, 0);
  for (const long value : all.values) {
    EXPECT_EQ(value % kItems, next[static_cast<std::size_t>(value / kItems)]++);
  }
  EXPECT_EQ(consumers[1].get().values, all.values);
  const Seen late = consumers[2].get();
  EXPECT_TRUE(
      std::equal(late.values.rbegin(), late.values.rend(), all.values.rbegin()));
  for (const char *name : {"unlimited", "narrow", "late"}) {
    EXPECT_EQ(pmtfifo_data_available(pmtmanagedfifo_get_consumer(fifo.get(), name)), 0)
        << "a second end mark";
  }
}

TEST(ManagedFifoStress, OneOfManyEndsSendsTheMark) {
  for (int round = 0; round < 50; ++round) {
    const std::string name = "race " + std::to_string(round);
    const ManagedHandle fifo = new_managed(name.c_str(), {"only"});
    std::vector<std::thread> producers;
    for (const char *producer : {"a", "b", "c"}) {
      pmtmanagedfifo_set_producer(fifo.get(), producer);
    }
    for (const char *producer : {"a", "b", "c"}) {
      producers.emplace_back(
          [&fifo, producer] { pmtmanagedfifo_push_eof(fifo.get(), producer); });
    }
    for (std::thread &producer : producers) producer.join();
    ASSERT_EQ(take(fifo.get(), "only").result, 4);
    ASSERT_EQ(take(fifo.get(), "only").result, 3);
  }
}

}  // namespace

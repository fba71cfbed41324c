/* Servers that start and stop again and again beside a writer: each must hold what is in
 * the files when it starts, and nothing may stay behind: no memory, no descriptor, no
 * thread. */
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdio>
#include <filesystem>
#include <iterator>

#include "tests/stress/stress_support.h"
#include "tests/stress/writer.h"

using namespace stress;

namespace {

long entries_of(const char *folder) {
  return std::distance(std::filesystem::directory_iterator(folder),
                       std::filesystem::directory_iterator());
}

TEST(ServerStarts, LeaveNothingBehind) {
  const Watchdog watchdog("servers that start and stop");
  const unsigned chosen = seed();
  std::mt19937 random(chosen);
  WrittenDatabase database;
  Writer writer(database.name(), database.journal(), chosen, 0);
  const auto start_and_stop = [&] {
    EVServer server(database.name(), 0, 0, -1);
    Witness witness(server);
    server.autoRefreshEvents(0.001);
    EXPECT_TRUE(writer.step());
    if (below(random, 4) == 0) settle(witness);
    if (below(random, 2) == 0) {
      EVEvent event;
      witness.getExpandedEvent(1L, event);
    }
    server.deregisterClient(&witness);  // before it goes: the server runs on
  };
  constexpr int kFirst = 20;  // what is made once is there afterwards
  for (int i = 0; i < kFirst; i++) start_and_stop();
  const long descriptors = entries_of("/proc/self/fd");
  const long threads = entries_of("/proc/self/task");
  const std::size_t memory = mallinfo2().uordblks;
  long started = 0;
  const Deadline deadline;
  while (!deadline.over() && !HasFailure()) {
    start_and_stop();
    started++;
  }
  EXPECT_EQ(entries_of("/proc/self/fd"), descriptors);
  EXPECT_EQ(entries_of("/proc/self/task"), threads);
  const std::size_t left = mallinfo2().uordblks;
  std::printf("%ld servers started, %zu bytes before, %zu after\n", started, memory,
              left);
  EXPECT_GT(started, 0);
  /* The writer keeps its own rows in mind; a server that stayed would be a hundred times
   * as large. */
  EXPECT_LT(left, memory + (1U << 20) + 2048U * static_cast<std::size_t>(started));
  EVServer last(database.name(), 0, 0, -1);
  expect_same_as_fresh(last, database.name());
}

}  // namespace

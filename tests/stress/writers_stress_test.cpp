/* Programs that write at the same time while a server follows them: a lost row is a lost
 * earthquake, an id given twice mixes two of them, and a change that is not told stays off
 * the screens. */
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <unordered_set>

#include "tests/stress/stress_support.h"
#include "tests/stress/writer.h"

using namespace stress;

namespace {

/* Reads under the lock; whatever is shown must hang together at every moment. */
void read_lists(EVServer &server, const std::atomic<bool> &done, unsigned seed) {
  EVClient client(&server);
  std::mt19937 random(seed);
  long events_before = 0;
  while (!done) {
    client.grabEventsLock();
    const auto list = client.eventsList();
    EXPECT_EQ(client.eventsNumber(), list->size());
    EXPECT_GE(list->size(), events_before) << "events have vanished";
    events_before = list->size();
    EVEvent event;
    const EVEvent &chosen =
        *list->ptr(below(random, static_cast<unsigned>(list->size())));
    EXPECT_EQ(client.getExpandedEvent(static_cast<long>(chosen.evid), event), 0);
    EXPECT_EQ(event.evid, chosen.evid);
    client.releaseEventsLock();
    std::unordered_set<int64_t> evids;
    for (const EVEvent &listed : *list) {
      EXPECT_TRUE(evids.insert(listed.evid).second) << "twice: " << listed.evid;
      ASSERT_GE(listed.origins.size(), 1) << listed.evid;
      EXPECT_GE(listed.pref_origin, 0) << listed.evid;
    }
    usleep(3000);
  }
  server.deregisterClient(&client);
}

void expect_all_written(const Table<EVEvent> &events, const Written &written) {
  EXPECT_EQ(static_cast<std::size_t>(events.size()), written.origins.size() + 1);
  std::set<long> evids;
  for (const EVEvent &event : events) {
    const auto evid = static_cast<long>(event.evid);
    EXPECT_TRUE(evids.insert(evid).second) << "twice: " << evid;
    std::set<long> orids;
    for (const EVOrigin &origin : event.origins) {
      const auto orid = static_cast<long>(origin.orid);
      EXPECT_TRUE(orids.insert(orid).second) << "twice: " << orid;
      EXPECT_EQ(origin.magnitudes.size(), 1) << orid;
      if (const auto time = written.times.find(orid); time != written.times.end()) {
        EXPECT_EQ(origin.time, static_cast<double>(time->second)) << orid;
      }
    }
    if (evid == 1) continue;
    const auto found = written.origins.find(evid);
    ASSERT_NE(found, written.origins.end()) << "invented: " << evid;
    EXPECT_EQ(orids, found->second);
  }
}

TEST(Writers, LoseNothingBetweenThemAndAServer) {
  const Watchdog watchdog("a server beside writers");
  const unsigned chosen = seed();
  WrittenDatabase database;
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  server.autoRefreshEvents(0.005);
  server.autoCheckDatabase(0.005);
  std::atomic<bool> done{false};
  std::thread readers[] = {std::thread([&] { read_lists(server, done, chosen + 10); }),
                           std::thread([&] { read_lists(server, done, chosen + 11); })};
  pid_t processes[2];
  for (int i = 0; i < 2; i++) {
    processes[i] = spawn_writer(database.name(), database.journal(),
                                chosen + static_cast<unsigned>(i), i, seconds(),
                                End::after_its_time);
  }
  {
    Writer writer(database.name(), database.journal(), chosen + 2, 2);
    const Deadline deadline;
    while (!deadline.over()) {
      ASSERT_TRUE(writer.step());
      usleep(200);
    }
  }
  for (const pid_t process : processes) EXPECT_EQ(wait_for(process), 0);
  done = true;
  for (std::thread &reader : readers) reader.join();
  settle(witness);

  Written written;
  written.read(database.journal());
  std::printf("%zu events\n", written.origins.size());
  server.grabEventsLock();
  const auto list = server.eventsList();
  server.releaseEventsLock();
  expect_all_written(*list, written);
  for (int i = 0; i < 3; i++) {
    long count = -1;
    Dbptr shared = database.table("origin");
    shared.record = 0;
    EXPECT_EQ(dbgetv(shared, kSharedFields[i], &count, nullptr), 0);
    if (written.counts[i] > 0) {
      EXPECT_EQ(count, written.counts[i]) << kSharedFields[i];
    }
  }
  const std::set<long> told = witness.evids();
  for (const auto &[evid, origins] : written.origins) {
    EXPECT_TRUE(told.contains(evid)) << "not told: " << evid;
  }
  expect_same_as_fresh(server, database.name());
  server.deregisterClient(&witness);
}

}  // namespace

/* Writers that die in the middle of their work: what they were told was written must be
 * there, and neither the database nor the next writer may suffer. */
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "tests/stress/stress_support.h"
#include "tests/stress/writer.h"

using namespace stress;

namespace {

/* Every row whole, its id readable, no id twice. */
void expect_whole(const std::string &database, const char *name, const char *id) {
  Dbptr db;
  ASSERT_EQ(dbopen_noshare(database.c_str(), "r", &db), 0);
  const Dbptr table = dblookup(db, nullptr, name, nullptr, nullptr);
  const auto rows = ksutil::db::table_snapshot(table);
  EXPECT_NE(rows, nullptr);
  if (rows != nullptr) {
    const ksutil::db::IntegerColumn column(rows->layout(), id);
    std::set<int64_t> ids;
    for (long record = 0; record < rows->count(); record++) {
      int64_t value = -1;
      const std::string_view row = rows->row(record);
      EXPECT_TRUE(!row.empty() && column.read(row, value)) << name << " " << record;
      EXPECT_TRUE(ids.insert(value).second) << name << " " << id << " " << value;
    }
  }
  dbclose(db);
}

TEST(KilledWriters, LeaveAWholeDatabase) {
  const Watchdog watchdog("a server beside killed writers");
  const unsigned chosen = seed();
  std::mt19937 random(chosen);
  WrittenDatabase database;
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  server.autoRefreshEvents(0.005);
  int killed = 0;
  const Deadline deadline;
  while (!deadline.over()) {
    const bool amid = below(random, 2) == 0;
    pid_t processes[2];
    for (int i = 0; i < 2; i++) {
      processes[i] =
          spawn_writer(database.name(), database.journal(), any(random), i, 1.0,
                       amid ? End::by_itself_amid_a_write : End::after_its_time);
    }
    if (!amid) usleep(below(random, 200000));
    for (const pid_t process : processes) {
      if (!amid) kill(process, SIGKILL);
      const int end = wait_for(process);
      EXPECT_TRUE(end == 0 || end == -SIGKILL) << end;
      if (end == -SIGKILL) killed++;
    }
    expect_whole(database.name(), "event", "evid");
    expect_whole(database.name(), "origin", "orid");
    expect_whole(database.name(), "netmag", "magid");
  }
  std::printf("%d writers killed\n", killed);
  EXPECT_GT(killed, 0);

  /* A writer that was killed between its bytes and the file's time is seen at the next
   * write. */
  Writer next(database.name(), database.journal(), any(random), 0);
  for (int i = 0; i < 20; i++) ASSERT_TRUE(next.step());
  settle(witness);
  expect_whole(database.name(), "event", "evid");
  Written written;
  written.read(database.journal());
  server.grabEventsLock();
  const auto list = server.eventsList();
  server.releaseEventsLock();
  std::map<long, std::set<long>> listed;
  for (const EVEvent &event : *list) {
    for (const EVOrigin &origin : event.origins) {
      listed[static_cast<long>(event.evid)].insert(static_cast<long>(origin.orid));
    }
  }
  const std::set<long> told = witness.evids();
  for (const auto &[evid, orids] : written.origins) {
    EXPECT_TRUE(told.contains(evid)) << "not told: " << evid;
    for (const long orid : orids) {
      EXPECT_TRUE(listed[evid].contains(orid)) << "lost: " << evid << " " << orid;
    }
  }
  expect_same_as_fresh(server, database.name());
  server.deregisterClient(&witness);
}

}  // namespace

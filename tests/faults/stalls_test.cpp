/* A file server that does not answer for some seconds must not freeze the screens of an
 * observatory: whoever needs nothing from it goes on, and all is as it should be when it
 * answers again.  Each test holds one call up until it has seen what goes on meanwhile. */
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>

#include "events/kseventview.h"
#include "platform/pf/owners.h"
#include "platform/pf/pf.h"
#include "tests/events/bare_server.h"
#include "tests/events/event_database.h"
#include "tests/faults/fault_plan.h"

namespace {

using namespace std::chrono_literals;
using faults::Kind;

constexpr auto kEnough = 60s;  // for anything that does not wait for the disk

/* Holds up the next call of a kind until the end of the scope, or until it is let go. */
class Stall {
 public:
  explicit Stall(Kind kind) {
    constexpr int kLongest = 300'000;  // ms
    const faults::Plan plan{kind, faults::Way::kStall, kLongest, 1};
    ksutil_faults_arm(&plan);
  }
  ~Stall() {
    ksutil_faults_go_on();
    ksutil_faults_arm(nullptr);
  }
  Stall(const Stall &) = delete;
  Stall &operator=(const Stall &) = delete;

  /* Whether the call has come and waits. */
  static bool has_begun() {
    return comes_true([] { return ksutil_faults_counts()->strikes > 0; });
  }
  static void let_go() { ksutil_faults_go_on(); }
};

template <class Work>
auto in_background(Work work) {
  return std::async(std::launch::async, work);
}

template <class Result>
bool is_done(const std::future<Result> &work, std::chrono::seconds within = kEnough) {
  return work.wait_for(within) == std::future_status::ready;
}

class Stalls : public testing::TestWithParam<Kind> {
 protected:
  Stalls() {
    for (long evid = 1; evid <= 5; evid++) {
      database.add_located_event(evid, 1e9 + static_cast<double>(evid));
    }
  }
  ksutil::events::test::EventDatabase database;
};

long listed(EVClient &client) {
  client.grabEventsLock();
  const long size = client.eventsList()->size();
  client.releaseEventsLock();
  return size;
}

TEST_P(Stalls, OfARefreshHoldUpNoReaderOfTheLists) {
  EVServer server(database.name(), 0, 0, -1);
  EVClient asking(&server), reading(&server);
  EVEvent event;
  ASSERT_EQ(reading.getExpandedEvent(1L, event), 0);
  database.add_located_event(6, 2e9);
  {
    const Stall stall(GetParam());
    auto refresh = in_background([&] { return asking.refreshEvents(1); });
    ASSERT_TRUE(Stall::has_begun());
    auto others = in_background([&] {
      EVEvent held;
      const bool known = reading.getExpandedEvent(1L, held) == 0 && held.evid == 1;
      return known && reading.refreshEvents(0) == 0 ? listed(reading) : -1;
    });
    EXPECT_TRUE(is_done(others));
    EXPECT_FALSE(is_done(refresh, 0s));
    Stall::let_go();
    EXPECT_EQ(others.get(), 5) << "the list as it was";
    EXPECT_EQ(refresh.get(), 0);
  }
  EXPECT_EQ(listed(reading), 6);
}

TEST_P(Stalls, DelayTheEndOfAServerNoLongerThanTheCall) {
  auto server = std::make_unique<EVServer>(database.name(), 0, 0, -1);
  EVClient waiting(server.get());
  database.add_located_event(6, 2e9);
  const Stall stall(GetParam());
  server->autoRefreshEvents(0.005);
  ASSERT_TRUE(Stall::has_begun());
  auto command = in_background([&] { return waiting.dbnextid("evid"); });
  auto end = in_background([&] { server.reset(); });
  Stall::let_go();
  EXPECT_TRUE(is_done(end));
  EXPECT_TRUE(is_done(command)) << "answered, or told that the server has gone";
}

TEST_P(Stalls, DelayTheEndOfAnEventViewNoLongerThanTheCall) {
  Pf *made = nullptr;
  ASSERT_EQ(pfcompile(("dbname " + database.name() + "\n").c_str(), &made), 0);
  const std::unique_ptr<Pf, void (*)(Pf *)> pf(made, [](Pf *p) { pffree(p); });
  auto view = std::make_unique<KSEventView>(pf.get());
  database.add_located_event(6, 2e9);
  const Stall stall(GetParam());
  ASSERT_EQ(view->monitorChangesThread(
                0.005, [](int, void *, void *) { return 0; }, nullptr),
            0);
  ASSERT_TRUE(Stall::has_begun());
  auto end = in_background([&] { view.reset(); });
  Stall::let_go();
  EXPECT_TRUE(is_done(end));
}

INSTANTIATE_TEST_SUITE_P(OfCalls, Stalls, testing::Values(faults::kStat, faults::kRead),
                         [](const auto &given) {
                           return std::string(faults::kKindNames[given.param]);
                         });

/* A writer that waits for the disk holds its table, and nothing else. */
TEST(StalledSync, HoldsUpNeitherReadersNorWritersOfOtherTables) {
  const ksutil::test::TempFolder folder;
  const std::string name = folder.write("db", "schema css3.0\nsync yes\n");
  const auto add = [&name](const char *table, const char *field, long value) {
    Dbptr db;
    if (dbopen_noshare(name.c_str(), "r+", &db) != 0) return -2L;
    const long record = dbaddv(dblookup(db, nullptr, table, nullptr, nullptr), field,
                               value, ksutil::test::kEndOfArguments);
    dbclose(db);
    return record;
  };
  ASSERT_EQ(add("origin", "orid", 1), 0);
  const Stall stall(faults::kSync);
  auto writer = in_background([&] { return add("origin", "orid", 2); });
  ASSERT_TRUE(Stall::has_begun());
  auto others = in_background([&] {
    Dbptr db;
    if (dbopen_noshare(name.c_str(), "r", &db) != 0) return -1L;
    Dbptr origin = dblookup(db, nullptr, "origin", nullptr, nullptr);
    origin.record = 0;
    long orid = -1;
    dbgetv(origin, "orid", &orid, ksutil::test::kEndOfArguments);
    dbclose(db);
    return add("event", "evid", 7) == 0 ? orid : -1;
  });
  EXPECT_TRUE(is_done(others));
  EXPECT_FALSE(is_done(writer, 0s));
  Stall::let_go();
  EXPECT_EQ(others.get(), 1);
  EXPECT_EQ(writer.get(), 1);
}

/* Lets calls fail until the end of the scope. */
class Failing {
 public:
  Failing(Kind kind, faults::Way way, int error) {
    const faults::Plan plan{kind, way, error, 1};
    ksutil_faults_arm(&plan);
  }
  ~Failing() { ksutil_faults_arm(nullptr); }
  Failing(const Failing &) = delete;
  Failing &operator=(const Failing &) = delete;
};

TEST(ServerUnderFaults, WithoutDescriptorsKeepsItsListsAndCatchesUp) {
  ksutil::events::test::EventDatabase database;
  database.add_located_event(1, 1e9);
  EVServer server(database.name(), 0, 0, -1);
  EVClient client(&server);
  database.add_located_event(2, 1e9);
  for (const char *table : {"event", "origin"}) {
    std::filesystem::copy_file(database.file(table), database.file(table) + ".new");
    std::filesystem::rename(database.file(table) + ".new", database.file(table));
  }
  {
    const Failing failing(faults::kOpen, faults::Way::kFromThere, EMFILE);
    client.refreshEvents(1);
    EXPECT_EQ(listed(client), 1);
    EXPECT_NE(taken_messages(), "");
    EXPECT_GT(ksutil_faults_counts()->strikes, 0);
  }
  EXPECT_EQ(client.refreshEvents(1), 0);
  EXPECT_EQ(listed(client), 2);
}

TEST(ServerUnderFaults, SeesRowsThatAreWrittenAfterTheClockSteppedBack) {
  ksutil::events::test::EventDatabase database;
  database.add_located_event(1, 1e9);
  EVServer server(database.name(), 0, 0, -1);
  EVClient client(&server);
  const Failing back(faults::kClock, faults::Way::kOnce, 0);
  for (long evid = 2; evid <= 5; evid++) {
    database.add_located_event(evid, 1e9);
    EXPECT_EQ(client.refreshEvents(1), 0);
    EXPECT_EQ(listed(client), evid);
    /* A row that is changed in its place. */
    EXPECT_EQ(dbputv(database.row("origin", 0), "time", 2e9 + static_cast<double>(evid),
                     ksutil::test::kEndOfArguments),
              0);
    EXPECT_EQ(client.refreshEvents(1), 0);
    EVEvent event;
    EXPECT_EQ(client.getExpandedEvent(1L, event), 0);
    ASSERT_EQ(event.origins.size(), 1);
    EXPECT_EQ(event.origins.ptr(0)->time, 2e9 + static_cast<double>(evid));
  }
  EXPECT_GT(ksutil_faults_counts()->strikes, 0);
}

}  // namespace

/* Other programs write to the server in plain SQL, at any time and in any order of their
 * commits: a row that an event server does not see is an earthquake that nobody sees. */
#include <atomic>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "events/evclient.h"
#include "events/evserver.h"
#include "tests/platform/db/conformance/store_backend.h"
#include "tests/postgresql/server_database.h"
#include "tests/stress/stress_support.h"

namespace ksutil::test {
namespace {

using namespace std::chrono_literals;

/* Counts how often a server has reported each event. */
class Ledger : public EVClient {
 public:
  explicit Ledger(EVServer &served) : EVClient(&served), server_(served) {}
  ~Ledger() { server_.deregisterClient(this); }
  void responseCallback(EVResponse response) override {
    const std::lock_guard lock(mutex_);
    for (const long evid : response.changed_evids) changed_[evid]++;
    for (const long evid : response.removed_evids) removed_[evid]++;
  }
  using Counts = std::map<long, int>;
  /* The reports since the last call. */
  Counts changed() { return take(changed_); }
  Counts removed() { return take(removed_); }

 private:
  Counts take(Counts &counts) {
    const std::lock_guard lock(mutex_);
    return std::exchange(counts, {});
  }
  EVServer &server_;
  std::mutex mutex_;
  Counts changed_, removed_;
};

std::string insert_event(long evid) {
  const std::string id = std::to_string(evid), orid = std::to_string(10 * evid);
  return "INSERT INTO origin (orid, evid, lat, lon, depth, time, lddate) VALUES (" +
         orid + ", " + id + ", 10, 20, 33, " + std::to_string(1000000000 + 60 * evid) +
         ", 1000);"
         "INSERT INTO netmag (magid, orid, magtype, magnitude, lddate) VALUES (" +
         id + ", " + orid + ", 'mw', 5.5, 1000);" +
         "INSERT INTO event (evid, prefor, lddate) VALUES (" + id + ", " + orid +
         ", 1000);";
}

class SqlWriters : public testing::Test {
 protected:
  void SetUp() override {
    KSUTIL_SKIP_WITHOUT_POSTGRESQL();
    database_ = std::make_unique<ServerDatabase>();
  }
  void TearDown() override { taken_messages(); }
  std::unique_ptr<ServerDatabase> database_;
};

TEST_F(SqlWriters, EachKindOfStatementIsSeenOnceAndCompletely) {
  Sql sql(database_->connection());
  sql.run("BEGIN;" + insert_event(1) + insert_event(2) + "COMMIT");
  EVServer server(database_->name(), 0, 0, -1);
  Ledger ledger(server);
  const auto refresh = [&] {
    EXPECT_EQ(server.refreshEvents(0), 0) << taken_messages();
    stress::expect_same_as_fresh(server, database_->name());
  };
  refresh();
  ledger.changed();

  sql.run("BEGIN;" + insert_event(3) + "COMMIT");
  refresh();
  EXPECT_EQ(ledger.changed(), (Ledger::Counts{{3, 1}}));
  refresh();
  EXPECT_EQ(ledger.changed(), Ledger::Counts{}) << "seen a second time";

  sql.run("UPDATE origin SET depth = 40 WHERE evid = 2");
  refresh();
  EXPECT_EQ(ledger.changed(), (Ledger::Counts{{2, 1}}));

  sql.run("UPDATE netmag SET magnitude = 6.5 WHERE orid IN (10, 30)");
  refresh();
  EXPECT_EQ(ledger.changed(), (Ledger::Counts{{1, 1}, {3, 1}}));

  sql.run(
      "BEGIN; DELETE FROM event WHERE evid = 1; DELETE FROM origin WHERE evid = 1;" +
      insert_event(4) + "COMMIT");
  refresh();
  EXPECT_EQ(ledger.removed(), (Ledger::Counts{{1, 1}}));
  EXPECT_TRUE(ledger.changed().contains(4));

  std::string origins, events;
  for (long evid = 100; evid < 400; evid++) {
    const std::string id = std::to_string(evid);
    origins +=
        id + "\t" + id + "\t1\t2\t3\t" + std::to_string(2000000000 + evid) + "\n";
    events += id + "\t" + id + "\n";
  }
  sql.run("BEGIN");
  sql.copy_in("origin (orid, evid, lat, lon, depth, time)", origins);
  sql.copy_in("event (evid, prefor)", events);
  sql.run("COMMIT");
  refresh();
  const Ledger::Counts copied = ledger.changed();
  EXPECT_EQ(copied.size(), 300);
  for (const auto &[evid, times] : copied) EXPECT_EQ(times, 1) << evid;

  sql.run("BEGIN;" + insert_event(5) + "UPDATE origin SET lat = 1; ROLLBACK");
  refresh();
  EXPECT_EQ(ledger.changed(), Ledger::Counts{}) << "of a transaction that was undone";

  sql.run("TRUNCATE event, origin, netmag");
  refresh();
  EXPECT_EQ(ledger.removed().size(), 303);
  sql.run("BEGIN;" + insert_event(6) + "COMMIT");
  refresh();
  EXPECT_TRUE(ledger.changed().contains(6));
}

/* The transaction that wrote first commits last. */
TEST_F(SqlWriters, ALateCommitOfAnEarlyRowIsSeen) {
  EVServer server(database_->name(), 0, 0, -1);
  Ledger ledger(server);
  Sql early(database_->connection());
  early.run("BEGIN;" + insert_event(1));
  std::thread later([&] { Sql(database_->connection()).run(insert_event(2)); });
  for (int i = 0; i < 5; i++) {
    EXPECT_EQ(server.refreshEvents(0), 0) << taken_messages();
    std::this_thread::sleep_for(20ms);
  }
  early.run("COMMIT");
  later.join();
  EXPECT_EQ(server.refreshEvents(0), 0);
  const Ledger::Counts seen = ledger.changed();
  EXPECT_TRUE(seen.contains(1));
  EXPECT_TRUE(seen.contains(2));
  stress::expect_same_as_fresh(server, database_->name());
}

TEST_F(SqlWriters, ParallelTransactionsAreAllSeenBesideTheLibrarysOwn) {
  constexpr int kWriters = 4, kEach = 12;
  const stress::Watchdog watchdog("a server beside SQL writers");
  EVServer server(database_->name(), 0, 0, -1);
  Ledger ledger(server);
  server.autoRefreshEvents(0.005);
  std::vector<std::thread> writers;
  for (int writer = 0; writer < kWriters; writer++) {
    writers.emplace_back([&, writer] {
      std::mt19937 random(static_cast<unsigned>(writer));
      Sql sql(database_->connection());
      for (int i = 0; i < kEach; i++) {
        const long evid = 1000 * (writer + 1) + i;
        /* One whole statement list, or one with pauses, now and then undone first. */
        if (random() % 3 == 0) sql.run("BEGIN;" + insert_event(evid) + "ROLLBACK");
        sql.run("BEGIN;" + insert_event(evid));
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 8));
        sql.run("COMMIT");
      }
    });
  }
  writers.emplace_back([&] {
    const auto store = database_->open();
    for (long i = 0; i < kEach; i++) {
      const std::string row = db::conformance::event_row(9000 + i);
      EXPECT_TRUE(store->transaction({"event"}, [&](db::Transaction &step) {
        return step.append(0, row) >= 0;
      })) << taken_messages();
    }
  });
  for (std::thread &writer : writers) writer.join();
  stress::settle(ledger);
  const Ledger::Counts seen = ledger.changed();
  for (int writer = 0; writer < kWriters; writer++) {
    for (int i = 0; i < kEach; i++) {
      EXPECT_TRUE(seen.contains(1000 * (writer + 1) + i)) << writer << ' ' << i;
    }
  }
  stress::expect_same_as_fresh(server, database_->name());
  EXPECT_EQ(Sql(database_->connection()).value("SELECT count(*) FROM event"),
            std::to_string((kWriters + 1) * kEach));
}

TEST_F(SqlWriters, TheirTextsCannotHarmAServer) {
  EVServer server(database_->name(), 0, 0, -1);
  Sql sql(database_->connection());
  sql.run(insert_event(1) + insert_event(2) + insert_event(3));
  sql.run(
      "UPDATE event SET evname = E'two\\nlines', auth = repeat('long', 50)"
      " WHERE evid = 2");
  sql.run("UPDATE origin SET lat = 'NaN', lon = 'Infinity' WHERE evid = 3");
  sql.run("UPDATE netmag SET magnitude = 1e300 WHERE magid = 3");
  const int result = server.refreshEvents(0);
  EXPECT_TRUE(result == 0 || result == 10) << result;
  server.grabEventsLock();
  EXPECT_GE(server.findEvid(1), 0);
  EXPECT_LT(server.findEvid(2), 0) << "its row cannot be read";
  server.releaseEventsLock();
  taken_messages();
  sql.run("UPDATE event SET evname = 'one line', auth = 'me' WHERE evid = 2");
  sql.run("UPDATE origin SET lat = 1, lon = 2 WHERE evid = 3");
  sql.run("UPDATE netmag SET magnitude = 5 WHERE magid = 3");
  EXPECT_EQ(server.refreshEvents(0), 0);
  server.grabEventsLock();
  EXPECT_EQ(server.eventsList()->size(), 3);
  server.releaseEventsLock();
  stress::expect_same_as_fresh(server, database_->name());
}

}  // namespace
}  // namespace ksutil::test

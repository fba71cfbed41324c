/* Servers are restarted, networks break and disks fill up while events are written: what
 * a call has reported as written must be there once, and what it reported as failed must
 * not appear later. */
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <set>
#include <thread>

#include "events/evclient.h"
#include "events/evserver.h"
#include "tests/platform/db/conformance/store_backend.h"
#include "tests/postgresql/server_database.h"
#include "tests/stress/stress_support.h"
#include "tests/support/socket_proxy.h"

namespace ksutil::test {
namespace {

using namespace std::chrono_literals;
using db::conformance::append;
using db::conformance::event_row;
using db::conformance::integer_in;
using db::conformance::origin_row;

/* One step: an event with its origin, both under the id. */
bool add_event(db::DatabaseStore &store, long id) {
  return store.transaction({"origin", "event"}, [&](db::Transaction &step) {
    return step.append(0, origin_row(id, 1.0)) >= 0 &&
           step.append(1, event_row(id, id)) >= 0;
  });
}

/* How many rows of a table have each id. */
std::map<long, int> ids_in(const ServerDatabase &database, const char *table,
                           const char *field) {
  const auto store = database.open("r");
  const auto rows = store->table(table)->snapshot();
  std::map<long, int> ids;
  for (long i = 0; i < rows->count(); i++) ids[integer_in(*rows, field, i)]++;
  return ids;
}

/* What calls have said of the ids that they were to write. */
struct Told {
  std::set<long> written, failed;
};

/* Each id that was told as written is there once, and none that was told as failed. */
void expect_as_told(const ServerDatabase &database, const Told &told) {
  for (const auto &[table, field] :
       {std::pair("event", "evid"), std::pair("origin", "orid")}) {
    const std::map<long, int> ids = ids_in(database, table, field);
    for (const long id : told.written) {
      EXPECT_TRUE(ids.contains(id)) << "lost: " << table << ' ' << id;
    }
    for (const auto &[id, times] : ids) {
      EXPECT_EQ(times, 1) << "twice: " << table << ' ' << id;
      EXPECT_FALSE(told.failed.contains(id)) << "told as failed: " << id;
    }
  }
}

class ServerFailures : public testing::Test {
 protected:
  void SetUp() override {
    KSUTIL_SKIP_WITHOUT_POSTGRESQL();
    /* Seconds after which a server that does not answer is left. */
    setenv("KSUTIL_STORE_TIMEOUT", "3", 1);
    database_ = std::make_unique<ServerDatabase>();
  }
  void TearDown() override {
    unsetenv("KSUTIL_STORE_TIMEOUT");
    taken_messages();
  }
  /* Opens the database again and again: the server may be on its way up. */
  std::unique_ptr<db::DatabaseStore> open_at_last(const std::string &name) {
    for (int i = 0; i < 200; i++) {
      auto store = db::open_store(name, "r+", std::size_t{64} << 20);
      if (store != nullptr) return store;
      std::this_thread::sleep_for(50ms);
    }
    throw std::runtime_error(taken_messages());
  }
  /* Waits until the server has seen everything, once it finds its database again. */
  static void settle_at_last(EVServer &server) {
    EVClient client(&server);
    int good = 0;
    for (int i = 0; i < 500 && good < 2; i++) {
      good = client.refreshEvents(1) == 0 ? good + 1 : 0;
      if (good == 0) std::this_thread::sleep_for(20ms);
    }
    EXPECT_EQ(good, 2) << taken_messages();
    server.deregisterClient(&client);
  }
  std::unique_ptr<ServerDatabase> database_;
};

TEST_F(ServerFailures, AKilledServerLosesNothingAndRepeatsNothing) {
  const stress::Watchdog watchdog("a killed server");
  PostgresqlCluster &cluster = database_->cluster();
  const auto first = database_->open();
  ASSERT_TRUE(add_event(*first, 1));
  EVServer server(database_->name(), 0, 0, -1);
  server.autoRefreshEvents(0.01);
  std::atomic<bool> done{false};
  Told told;
  std::thread writer([&] {
    const auto store = database_->open();
    for (long id = 2; !done; id++) {
      (add_event(*store, id) ? told.written : told.failed).insert(id);
      std::this_thread::sleep_for(2ms);
    }
  });
  for (int round = 0; round < 3; round++) {
    std::this_thread::sleep_for(150ms);
    ASSERT_EQ(cluster.run("kill primary"), "");
    server.grabEventsLock();
    EXPECT_GE(server.eventsList()->size(), 1) << "the last list stays";
    server.releaseEventsLock();
    std::this_thread::sleep_for(100ms);
    ASSERT_EQ(cluster.run("start primary"), "");
  }
  /* The writer comes back by itself. */
  const std::size_t before = told.written.size();
  Sql sql(database_->connection());
  const std::string count = sql.value("SELECT count(*) FROM event");
  sql.wait_until("SELECT count(*) > " + count + " FROM event");
  done = true;
  writer.join();
  EXPECT_GT(told.written.size(), before);
  told.written.insert(1);
  expect_as_told(*database_, told);
  std::printf("%zu steps made, %zu failed\n", told.written.size(), told.failed.size());

  settle_at_last(server);
  stress::expect_same_as_fresh(server, database_->name());
}

/* The connection is cut after every few bytes of what one step sends and receives. */
TEST_F(ServerFailures, ACutAtAnyMomentIsToldAsItIs) {
  const stress::Watchdog watchdog("cut connections");
  SocketProxy proxy(database_->cluster().folder() + "/cut",
                    database_->cluster().host());
  const std::string name =
      database_->name_by_way_of(database_->cluster().folder() + "/cut");
  Told told;
  long id = 0;
  int cuts = 0;
  const auto cut_steps = [&](bool to_server, bool connected) {
    for (long bytes = 0;; bytes += 1 + bytes / 8) {
      /* A store that has been cut off waits before it connects again. */
      const auto store = ServerDatabase::open(name);
      const auto step = [&] {
        id++;
        return (add_event(*store, id) ? told.written : told.failed).insert(id).second;
      };
      if (connected) step();
      proxy.cut_after(to_server ? bytes : -1, to_server ? -1 : bytes);
      step();
      const bool was_cut = proxy.has_cut();
      proxy.cut_after(-1, -1);
      if (!was_cut) return;
      cuts++;
      ASSERT_LT(bytes, 1000000);
    }
  };
  for (const bool to_server : {true, false}) {
    cut_steps(to_server, true);
    cut_steps(to_server, false);
  }
  EXPECT_GT(cuts, 60);
  EXPECT_GT(told.written.size(), told.failed.size());
  expect_as_told(*database_, told);
  std::printf("%d cuts: %zu steps made, %zu failed\n", cuts, told.written.size(),
              told.failed.size());
}

TEST_F(ServerFailures, ACutWhileReadingGivesWholeRowsOrAnError) {
  const stress::Watchdog watchdog("cut readers");
  std::string many;
  for (long i = 0; i < 3000; i++) many += origin_row(i, 1.0);
  ASSERT_EQ(db::conformance::append_all(*database_->open()->table("origin"), many), 0);
  SocketProxy proxy(database_->cluster().folder() + "/cut",
                    database_->cluster().host());
  const std::string name =
      database_->name_by_way_of(database_->cluster().folder() + "/cut");
  auto store = open_at_last(name);
  long whole = 0;
  for (long bytes = 10; bytes < 700000; bytes += bytes / 2) {
    proxy.cut_after(-1, bytes);
    const auto rows = store->table("origin")->snapshot_anew();
    if (rows == nullptr) continue;
    EXPECT_EQ(rows->count(), 3000);
    long read = 0;
    for (long i = 0; i < rows->count(); i++) {
      const std::string_view row = rows->row(i);
      if (row.empty()) continue;
      ASSERT_EQ(row, origin_row(i, 1.0));
      read++;
    }
    EXPECT_TRUE(read == 3000 || !rows->complete());
    whole += read == 3000;
    taken_messages();
  }
  proxy.cut_after(-1, -1);
  for (int i = 0; i < 200; i++) {
    const auto rows = store->table("origin")->snapshot();
    if (rows != nullptr && rows->count() == 3000 && !rows->row(2999).empty()) {
      whole = -1;
      break;
    }
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_EQ(whole, -1) << "it does not come back by itself: " << taken_messages();
}

TEST_F(ServerFailures, TerminatedSessionsAreOpenedAgain) {
  const stress::Watchdog watchdog("terminated sessions");
  EVServer server(database_->name(), 0, 0, -1);
  server.autoRefreshEvents(0.01);
  std::atomic<bool> done{false};
  std::thread killer([&] {
    Sql sql(database_->connection());
    while (!done) {
      sql.value(
          "SELECT count(pg_terminate_backend(pid)) FROM pg_stat_activity"
          " WHERE datname = current_database() AND pid <> pg_backend_pid()");
      std::this_thread::sleep_for(120ms);
    }
  });
  Told told;
  {
    const auto store = open_at_last(database_->name());
    /* How many steps get through depends on the machine: it goes on until ten have. */
    for (long id = 1; told.written.size() < 10; id++) {
      (add_event(*store, id) ? told.written : told.failed).insert(id);
      std::this_thread::sleep_for(5ms);
    }
  }
  done = true;
  killer.join();
  expect_as_told(*database_, told);
  std::printf("%zu steps made, %zu failed\n", told.written.size(), told.failed.size());
  settle_at_last(server);
  stress::expect_same_as_fresh(server, database_->name());
}

/* A reading that fails ends the transaction with what was written before it. */
TEST_F(ServerFailures, ACancelledStatementTakesTheWholeChangeWithIt) {
  const stress::Watchdog watchdog("cancelled statements");
  constexpr long kRows = 150;  // more than wait for the end of the change
  const auto store = database_->open();
  std::atomic<bool> done{false};
  std::thread canceller([&] {
    Sql sql(database_->connection());
    while (!done) {
      sql.value(
          "SELECT count(pg_cancel_backend(pid)) FROM pg_stat_activity"
          " WHERE datname = current_database() AND query LIKE 'COPY (SELECT "
          "ks_record,%'"
          " AND state = 'active'");
    }
  });
  Told told;
  long unread = 0;
  for (long id = 1; id <= 600 && (unread < 5 || told.written.size() < 20); id++) {
    std::string rows;
    for (long i = 0; i < kRows; i++) rows += event_row(id, i);
    const bool made =
        store->table("event")->exclusively([&](db::TableStore::Exclusive &table) {
          if (table.append_all(rows) < 0) return false;
          const auto now = table.snapshot();
          if (now == nullptr) return false;
          for (long i = 0; i < now->count(); i += 16) unread += now->row(i).empty();
          return true;
        });
    (made ? told.written : told.failed).insert(id);
    taken_messages();
  }
  done = true;
  canceller.join();
  const std::map<long, int> ids = ids_in(*database_, "event", "evid");
  for (const long id : told.written)
    EXPECT_EQ(ids.contains(id), true) << "lost: " << id;
  for (const auto &[id, times] : ids) {
    EXPECT_EQ(times, kRows) << id;
    EXPECT_FALSE(told.failed.contains(id)) << "told as failed: " << id;
  }
  std::printf("%zu changes made, %zu failed, %ld rows not read\n", told.written.size(),
              told.failed.size(), unread);
}

/* A writer in SQL waits for the change, and the change for a row of that writer. */
TEST_F(ServerFailures, ADeadlockIsResolvedByMakingTheChangeAgain) {
  const stress::Watchdog watchdog("a deadlock");
  const auto store = database_->open();
  ASSERT_TRUE(add_event(*store, 1));
  Sql sql(database_->connection()), observer(database_->connection());
  sql.run("SET deadlock_timeout = '1min'");  // so that the library's session gives way
  sql.run("BEGIN; SELECT 1 FROM event WHERE evid = 1 FOR UPDATE");
  std::thread inserter;
  int attempts = 0;
  const bool made =
      store->table("event")->exclusively([&](db::TableStore::Exclusive &table) {
        if (++attempts == 1) {
          inserter = std::thread(
              [&] { sql.run("INSERT INTO event (evid) VALUES (7); COMMIT"); });
          observer.wait_until(
              "SELECT count(*) = 1 FROM pg_stat_activity"
              " WHERE wait_event_type = 'Lock' AND query LIKE 'INSERT INTO event%'");
        }
        return table.overwrite(0, event_row(1, 5));
      });
  inserter.join();
  EXPECT_TRUE(made);
  EXPECT_GE(attempts, 2);
  EXPECT_EQ(taken_messages(), "");
  const auto rows = store->table("event")->snapshot();
  ASSERT_EQ(rows->count(), 2);
  EXPECT_EQ(integer_in(*rows, "prefor", 0), 5);
  EXPECT_EQ(integer_in(*rows, "evid", 1), 7);
}

TEST_F(ServerFailures, AServerThatStopsAnsweringIsLeftInTime) {
  const stress::Watchdog watchdog("a server that does not answer");
  setenv("KSUTIL_STORE_TIMEOUT", "0.5", 1);
  const auto store = database_->open();
  ASSERT_TRUE(add_event(*store, 1));
  PostgresqlCluster &cluster = database_->cluster();
  ASSERT_EQ(cluster.run("pause primary"), "");
  const auto begun = std::chrono::steady_clock::now();
  db::Stamp stamp;
  EXPECT_FALSE(store->table("event")->stamp(stamp));
  EXPECT_NE(taken_messages(), "");
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 10s);
  Told told;
  told.written.insert(1);
  (add_event(*store, 2) ? told.written : told.failed).insert(2);
  ASSERT_EQ(cluster.run("resume primary"), "");
  for (long id = 3; id < 300; id++) {
    if (add_event(*store, id)) {
      told.written.insert(id);
      break;
    }
    told.failed.insert(id);
    std::this_thread::sleep_for(50ms);
  }
  EXPECT_EQ(told.written.size(), told.written.contains(2) ? 3 : 2);
  /* What was sent to the server while it slept may only now be carried out. */
  Sql(database_->connection())
      .wait_until(
          "SELECT count(*) = 0 FROM pg_stat_activity WHERE state <> 'idle' AND"
          " datname = current_database() AND pid <> pg_backend_pid()");
  expect_as_told(*database_, told);
}

/* A change within a change has a connection of its own; both lose their answers. */
TEST_F(ServerFailures, EachLostAnswerOfChangesWithinChangesIsTold) {
  const stress::Watchdog watchdog("two lost answers");
  setenv("KSUTIL_STORE_TIMEOUT", "0.5", 1);
  const std::string way = database_->cluster().folder() + "/lost";
  SocketProxy proxy(way, database_->cluster().host());
  const auto store = open_at_last(database_->name_by_way_of(way));
  const bool outer =
      store->table("event")->exclusively([&](db::TableStore::Exclusive &events) {
        const bool inner = store->table("origin")->exclusively(
            [&](db::TableStore::Exclusive &origins) {
              const bool given = origins.append_all(origin_row(1, 1.0)) >= 0;
              proxy.let_in(false);
              proxy.cut_after(-1, 0);
              return given;
            });
        EXPECT_FALSE(inner);
        return events.append_all(event_row(1, 1)) >= 0;
      });
  EXPECT_FALSE(outer);
  taken_messages();
  proxy.cut_after(-1, -1);
  proxy.let_in(true);
  std::string told;
  for (int i = 0; i < 200 && ids_in(*database_, "event", "evid").empty(); i++) {
    db::conformance::append_all(*store->table("event"), event_row(2, 2));
    told += taken_messages();
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_THAT(told, testing::HasSubstr("The change whose answer was lost was made"));
  EXPECT_THAT(told,
              testing::HasSubstr("The change whose answer was lost was not made"));
  EXPECT_EQ(ids_in(*database_, "origin", "orid").count(1), 1U);
  EXPECT_EQ(ids_in(*database_, "event", "evid").count(1), 0U);
}

TEST_F(ServerFailures, AFullDiskOfTheServerLeavesTheTablesAsTheyWere) {
  const stress::Watchdog watchdog("a full disk");
  PostgresqlCluster cluster;
  const std::string refused = cluster.run("small 24");
  if (!refused.empty()) GTEST_SKIP() << "no small file system: " << refused;
  const ServerDatabase full(cluster, "TABLESPACE small");
  const auto store = full.open();
  std::string many;
  for (long i = 0; i < 5000; i++) many += origin_row(i, 1.0);
  db::TableStore &origin = *store->table("origin");
  long whole = 0;
  while (whole < 100 && db::conformance::append_all(origin, many) >= 0) whole++;
  EXPECT_GT(whole, 0);
  EXPECT_LT(whole, 100) << "the disk did not fill up";
  EXPECT_THAT(taken_messages(), testing::HasSubstr("space"));
  EXPECT_FALSE(store->transaction({"event", "origin"}, [&](db::Transaction &step) {
    return step.append(0, event_row(1)) >= 0 && step.append(1, many) >= 0;
  }));
  const auto expect_rows = [&](long count) {
    const auto reader = full.open("r");
    const auto rows = reader->table("origin")->snapshot();
    ASSERT_NE(rows, nullptr) << taken_messages();
    EXPECT_EQ(rows->count(), count);
    EXPECT_EQ(rows->row(whole * 5000 - 1), origin_row(4999, 1.0));
    EXPECT_EQ(reader->table("event")->snapshot()->count(), 0);
  };
  expect_rows(whole * 5000);
  taken_messages();
  ASSERT_EQ(cluster.run("grow 60"), "");
  EXPECT_EQ(db::conformance::append_all(origin, many), whole * 5000)
      << taken_messages();
  expect_rows((whole + 1) * 5000);
}

TEST_F(ServerFailures, NoMessageHoldsAPassword) {
  Sql(database_->connection())
      .try_run("CREATE ROLE guarded LOGIN PASSWORD 'right-secret'");
  const std::string host = database_->cluster().host();
  const TempFolder folder;
  for (const std::string &connection :
       {"host=" + host + " user=guarded password=wrong-secret dbname=postgres",
        "postgresql://guarded:wrong-secret@/postgres?host=" + host,
        "host=" + host + " user=guarded password='wrong-secret",
        "host=" + host + " passwd=wrong-secret"}) {
    const std::string name = folder.write(
        "db", "schema css3.0\nstore postgresql\nconnection " + connection + "\n");
    EXPECT_EQ(db::open_store(name, "r+", 1 << 20), nullptr) << connection;
    const std::string told = taken_messages();
    EXPECT_NE(told, "");
    EXPECT_EQ(told.find("wrong-secret"), std::string::npos) << told;
    std::filesystem::remove(name);
    EXPECT_FALSE(db::create_database({name, "css3.0", "postgresql", connection}));
    EXPECT_EQ(taken_messages().find("wrong-secret"), std::string::npos);
  }
  setenv("PGPASSWORD", "wrong-secret", 1);
  const std::string name =
      folder.write("env", "schema css3.0\nstore postgresql\nconnection host=" + host +
                              " user=guarded dbname=postgres\n");
  EXPECT_EQ(db::open_store(name, "r+", 1 << 20), nullptr);
  unsetenv("PGPASSWORD");
  const std::string told = taken_messages();
  EXPECT_THAT(told, testing::HasSubstr("password"));
  EXPECT_EQ(told.find("wrong-secret"), std::string::npos) << told;
}

/* A cluster of its own with a replica. */
class Replicas : public testing::Test {
 protected:
  void SetUp() override {
    KSUTIL_SKIP_WITHOUT_POSTGRESQL();
    setenv("KSUTIL_STORE_TIMEOUT", "3", 1);
    cluster_ = std::make_unique<PostgresqlCluster>();
    ASSERT_EQ(cluster_->run("replica second"), "");
    database_ = std::make_unique<ServerDatabase>(*cluster_);
    caught_up();
  }
  void TearDown() override {
    unsetenv("KSUTIL_STORE_TIMEOUT");
    taken_messages();
  }
  /* Waits until the replica has what the primary has. */
  void caught_up() {
    const std::string now =
        Sql(cluster_->connection()).value("SELECT pg_current_wal_lsn()");
    Sql(cluster_->connection("postgres", "second"))
        .wait_until("SELECT pg_last_wal_replay_lsn() >= '" + now + "'::pg_lsn");
  }
  std::unique_ptr<PostgresqlCluster> cluster_;
  std::unique_ptr<ServerDatabase> database_;
};

TEST_F(Replicas, AServerOnALaggingReplicaShowsWhatIsThereAndCatchesUp) {
  const std::string name = database_->name_by_way_of(cluster_->host("second"));
  const auto writer = database_->open();
  ASSERT_TRUE(add_event(*writer, 1));
  caught_up();
  EVServer server(name, 0, 0, -1);
  const auto shown = [&] {
    EXPECT_EQ(server.refreshEvents(0), 0) << taken_messages();
    server.grabEventsLock();
    const long events = server.eventsList()->size();
    server.releaseEventsLock();
    return events;
  };
  EXPECT_EQ(shown(), 1);
  Sql second(cluster_->connection("postgres", "second"));
  second.value("SELECT pg_wal_replay_pause()::text");
  for (long id = 2; id <= 9; id++) ASSERT_TRUE(add_event(*writer, id));
  EXPECT_EQ(shown(), 1) << "what the replica has";
  second.value("SELECT pg_wal_replay_resume()::text");
  caught_up();
  EXPECT_EQ(shown(), 9);
  const auto reader = ServerDatabase::open(name, "r+");
  EXPECT_FALSE(add_event(*reader, 99)) << "a replica takes no rows";
  EXPECT_NE(taken_messages(), "");
}

TEST_F(Replicas, WithSeveralHostsWritesFindTheOneThatTakesThem) {
  const stress::Watchdog watchdog("a change of the primary");
  const std::string name = database_->name_by_way_of(cluster_->host("second") + "," +
                                                     cluster_->host("primary"));
  const auto store = ServerDatabase::open(name);
  Told told;
  for (long id = 1; id <= 5; id++) {
    ASSERT_TRUE(add_event(*store, id)) << taken_messages();
    told.written.insert(id);
    /* A writer sees what it has written, wherever it reads. */
    EXPECT_EQ(store->table("event")->snapshot()->count(), id);
  }
  caught_up();
  ASSERT_EQ(cluster_->run("kill primary"), "");
  ASSERT_EQ(cluster_->run("promote second"), "");
  long id = 6;
  for (; id < 300; id++) {
    if (add_event(*store, id)) break;
    told.failed.insert(id);
    std::this_thread::sleep_for(50ms);
  }
  told.written.insert(id);
  const auto rows = ServerDatabase::open(name)->table("event")->snapshot();
  ASSERT_NE(rows, nullptr) << taken_messages();
  std::set<long> ids;
  for (long i = 0; i < rows->count(); i++) ids.insert(integer_in(*rows, "evid", i));
  EXPECT_EQ(ids, told.written);
}

}  // namespace
}  // namespace ksutil::test

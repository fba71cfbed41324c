/* What a network pays for a database server: the first load of an event server, a refresh
 * after a small change, the look that finds nothing new and a bulk copy, each beside flat
 * files and beside plain SQL on the same server; and how long after a commit the callbacks
 * of ten event servers run.  A server of its own is started in a temporary folder.
 * KSUTIL_BENCH_EVENTS sets the size. */
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <thread>

#include "bench/synthetic_catalogue.h"
#include "events/evclient.h"
#include "events/evserver.h"
#include "platform/db/columns.h"
#include "platform/db/store.h"
#include "platform/db/store_plugin.h"
#include "platform/db/values.h"
#include "tests/support/folder.h"
#include "tests/support/postgresql_cluster.h"

namespace {

using namespace ksutil;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kBudget = std::size_t{1} << 30, kPiece = std::size_t{1} << 20;
const std::vector<std::string> kTables{"origerr", "netmag", "mt", "origin", "event"};

long event_count() {
  const char *text = std::getenv("KSUTIL_BENCH_EVENTS");
  return text == nullptr ? 20000 : std::atol(text);
}

/* Adds all rows of one database to another. */
bool copy_rows(const std::string &from, const std::string &to) {
  const auto source = db::open_store(from, "r", kBudget);
  const auto target = db::open_store(to, "r+", kBudget);
  return source != nullptr && target != nullptr &&
         target->transaction(kTables, [&](db::Transaction &step) {
           for (std::size_t table = 0; table < kTables.size(); table++) {
             const auto rows = source->table(kTables[table])->snapshot();
             std::string piece;
             for (long i = 0; i < rows->count(); i++) {
               piece += rows->row(i);
               if (piece.size() < kPiece && i + 1 < rows->count()) continue;
               if (step.append(table, piece) < 0) return false;
               piece.clear();
             }
           }
           return true;
         });
}

/* The servers and the catalogue, in files and on the primary. */
class World {
 public:
  static World &shared() {
    static World world;
    return world;
  }
  std::string files() const { return folder_ / "files"; }
  std::string server() const { return folder_ / "server"; }
  std::string connection() const { return cluster_.connection(database_); }
  /* Another name of the server's database, by way of the replica. */
  std::string replica() const { return folder_ / "replica"; }

  /* An empty database on the server: its name and how it is reached. */
  std::pair<std::string, std::string> make_empty() {
    const std::string database = cluster_.make_database();
    const std::string name = folder_ / ("empty" + database);
    if (!db::create_database(
            {name, "css3.0", "postgresql", cluster_.connection(database)})) {
      throw std::runtime_error("cannot make the tables");
    }
    return {name, cluster_.connection(database)};
  }
  void drop(const std::string &connection) {
    test::Sql(cluster_.connection())
        .run("DROP DATABASE " + connection.substr(connection.rfind('=') + 1) +
             " WITH (FORCE)");
  }

 private:
  World() {
    bench::CatalogueSize size;
    size.events = event_count();
    bench::write_catalogue(files(), size);
    if (!cluster_.run("replica second").empty()) throw std::runtime_error("replica");
    database_ = cluster_.make_database();
    if (!db::create_database({server(), "css3.0", "postgresql", connection()}) ||
        !copy_rows(files(), server())) {
      throw std::runtime_error("cannot fill the server");
    }
    test::Sql(connection()).run("ANALYZE");
    test::write_file(replica(), "schema css3.0\nstore postgresql\nconnection " +
                                    cluster_.connection(database_, "second") + "\n");
  }
  const test::TempFolder folder_;
  test::PostgresqlCluster cluster_;
  std::string database_;
};

enum class Place { kFiles, kServer };

std::string name_of(Place place) {
  return place == Place::kFiles ? World::shared().files() : World::shared().server();
}

void first_load(benchmark::State &state, Place place) {
  const std::string name = name_of(place);
  long events = 0;
  for (auto _ : state) {
    EVServer server(name, 0, 0, -1);
    server.grabEventsLock();
    events = server.eventsList()->size();
    server.releaseEventsLock();
  }
  state.SetItemsProcessed(events * static_cast<long>(state.iterations()));
}
void BM_FirstLoad_Files(benchmark::State &state) { first_load(state, Place::kFiles); }
void BM_FirstLoad_Server(benchmark::State &state) { first_load(state, Place::kServer); }

/* The rows of the same tables, taken from the server and thrown away. */
void BM_FirstLoad_Select(benchmark::State &state) {
  const World &world = World::shared();
  for (auto _ : state) {
    PGconn *const session = PQconnectdb(world.connection().c_str());
    for (const std::string &table : kTables) {
      PQsendQuery(session, ("SELECT * FROM " + table).c_str());
      PQsetSingleRowMode(session);
      while (PGresult *row = PQgetResult(session)) {
        if (PQntuples(row) > 0) benchmark::DoNotOptimize(PQgetvalue(row, 0, 0));
        PQclear(row);
      }
    }
    PQfinish(session);
  }
}

/* One event with its origin is added and one origin moved; then the server refreshes. */
void small_change(benchmark::State &state, Place place) {
  const std::string name = name_of(place);
  static long next_id = 50000000;
  Dbptr db;
  dbopen_noshare(name.c_str(), "r+", &db);
  const auto table = [&](const char *of, long record) {
    Dbptr found = dblookup(db, nullptr, of, nullptr, nullptr);
    found.record = record;
    return found;
  };
  EVServer server(name, 0, 0, -1);
  long count = 0;
  dbquery(table("origin", dbALL), dbq_record_count, &count);
  for (auto _ : state) {
    state.PauseTiming();
    const long id = next_id++;
    db::add_values(table("origin", dbALL),
                   {{"orid", id}, {"evid", id}, {"time", 2e9}, {"lat", 1.0}});
    db::add_values(table("event", dbALL), {{"evid", id}, {"prefor", id}});
    db::put_values(table("origin", count / 2), {{"depth", double(id % 600)}});
    state.ResumeTiming();
    if (server.refreshEvents(0) != 0) state.SkipWithError("refresh");
  }
  dbclose(db);
}
void BM_SmallChange_Files(benchmark::State &state) {
  small_change(state, Place::kFiles);
}
void BM_SmallChange_Server(benchmark::State &state) {
  small_change(state, Place::kServer);
}

void idle(benchmark::State &state, Place place) {
  EVServer server(name_of(place), 0, 0, -1);
  for (auto _ : state) server.refreshEvents(0);
}
void BM_Idle_Files(benchmark::State &state) { idle(state, Place::kFiles); }
void BM_Idle_Server(benchmark::State &state) { idle(state, Place::kServer); }

/* The shortest question that an SQL client can ask about the tables. */
void BM_Idle_Select(benchmark::State &state) {
  PGconn *const session = PQconnectdb(World::shared().connection().c_str());
  for (auto _ : state) {
    PQclear(PQexec(session, "SELECT name, version, row_count FROM ks_tables"));
  }
  PQfinish(session);
}

void BM_BulkCopy_Files(benchmark::State &state) {
  World &world = World::shared();
  for (auto _ : state) {
    const test::TempFolder folder;
    db::create_database({folder / "copy", "css3.0", "", ""});
    if (!copy_rows(world.files(), folder / "copy")) state.SkipWithError("copy");
  }
}
void BM_BulkCopy_Server(benchmark::State &state) {
  World &world = World::shared();
  for (auto _ : state) {
    state.PauseTiming();
    const auto [name, connection] = world.make_empty();
    state.ResumeTiming();
    if (!copy_rows(world.files(), name)) state.SkipWithError("copy");
    state.PauseTiming();
    world.drop(connection);
    state.ResumeTiming();
  }
}
/* The same rows through COPY into tables without triggers and without an index. */
void BM_BulkCopy_Select(benchmark::State &state) {
  World &world = World::shared();
  for (auto _ : state) {
    state.PauseTiming();
    const auto [name, connection] = world.make_empty();
    test::Sql sql(connection);
    std::map<std::string, std::string> lines;
    for (const std::string &table : kTables) {
      sql.run("CREATE TABLE plain_" + table + " (LIKE " + table + ")");
      test::Sql source(world.connection());
      lines[table] = source.value(
          "SELECT string_agg(t.line, E'\\n') || E'\\n' FROM"
          " (SELECT array_to_string(ARRAY(SELECT"
          " coalesce(value, '\\N') FROM"
          " json_each_text(row_to_json(o))), E'\\t') AS line"
          " FROM " +
          table + " o) t");
    }
    state.ResumeTiming();
    for (const std::string &table : kTables) {
      if (!lines[table].empty()) sql.copy_in("plain_" + table, lines[table]);
    }
    state.PauseTiming();
    world.drop(connection);
    state.ResumeTiming();
  }
}

/* Notes when each event is reported. */
class Clocked : public EVClient {
 public:
  explicit Clocked(EVServer &served) : EVClient(&served), server_(served) {}
  ~Clocked() { server_.deregisterClient(this); }
  void responseCallback(EVResponse response) override {
    const Clock::time_point now = Clock::now();
    const std::lock_guard lock(mutex_);
    for (const long evid : response.changed_evids) seen_.emplace(evid, now);
  }
  std::map<long, Clock::time_point> seen() {
    const std::lock_guard lock(mutex_);
    return seen_;
  }

 private:
  EVServer &server_;
  std::mutex mutex_;
  std::map<long, Clock::time_point> seen_;
};

double quantile(std::vector<double> &values, double share) {
  if (values.empty()) return 0.0;
  const auto place = static_cast<std::ptrdiff_t>(share * double(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + place, values.end());
  return values[static_cast<std::size_t>(place)];
}

/* Ten event servers that look every 20 ms, half of them on the replica, beside three
 * writers of 20 events a second each. */
void BM_CommitToCallback(benchmark::State &state) {
  constexpr int kServers = 10, kWriters = 3;
  constexpr long kEach = 60;
  World &world = World::shared();
  for (auto _ : state) {
    std::vector<std::unique_ptr<EVServer>> servers;
    std::vector<std::unique_ptr<Clocked>> clients;
    for (int i = 0; i < kServers; i++) {
      servers.push_back(std::make_unique<EVServer>(
          i % 2 == 0 ? world.server() : world.replica(), 0, 0, -1));
      clients.push_back(std::make_unique<Clocked>(*servers.back()));
      servers.back()->autoRefreshEvents(0.02);
    }
    static long next_id = 70000000;
    const long first = next_id;
    next_id += kWriters * kEach;
    std::map<long, Clock::time_point> committed;
    std::mutex mutex;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kWriters; writer++) {
      writers.emplace_back([&, writer] {
        const auto store = db::open_store(world.server(), "r+", kBudget);
        const db::Relation &origin = *store->schema()->find("origin");
        const db::Relation &event = *store->schema()->find("event");
        for (long i = 0; i < kEach; i++) {
          const long id = first + writer * kEach + i;
          std::string child = db::null_record(origin), parent = db::null_record(event);
          db::write_integer(*origin.find("orid"), id, child);
          db::write_integer(*origin.find("evid"), id, child);
          db::write_real(*origin.find("time"), 2e9, child);
          db::write_integer(*event.find("evid"), id, parent);
          db::write_integer(*event.find("prefor"), id, parent);
          store->transaction({"origin", "event"}, [&](db::Transaction &step) {
            return step.append(0, child) >= 0 && step.append(1, parent) >= 0;
          });
          const Clock::time_point now = Clock::now();
          {
            const std::lock_guard lock(mutex);
            committed[id] = now;
          }
          std::this_thread::sleep_for(50ms);
        }
      });
    }
    for (std::thread &writer : writers) writer.join();
    std::this_thread::sleep_for(1s);
    std::vector<double> by_place[2];
    long missing = 0;
    for (int i = 0; i < kServers; i++) {
      const auto seen = clients[static_cast<std::size_t>(i)]->seen();
      for (const auto &[id, time] : committed) {
        const auto found = seen.find(id);
        if (found == seen.end()) {
          missing++;
          continue;
        }
        by_place[i % 2].push_back(
            std::chrono::duration<double, std::milli>(found->second - time).count());
      }
    }
    clients.clear();
    servers.clear();
    state.counters["primary_median_ms"] = quantile(by_place[0], 0.5);
    state.counters["primary_p99_ms"] = quantile(by_place[0], 0.99);
    state.counters["replica_median_ms"] = quantile(by_place[1], 0.5);
    state.counters["replica_p99_ms"] = quantile(by_place[1], 0.99);
    state.counters["missing"] = double(missing);
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (!test::PostgresqlCluster::available()) {
    std::puts("PostgreSQL's programs are not installed: nothing is measured");
    return 0;
  }
  const auto add = [](const char *name, void (*function)(benchmark::State &)) {
    return benchmark::RegisterBenchmark(name, function)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  };
  add("BM_FirstLoad_Server", BM_FirstLoad_Server);
  add("BM_FirstLoad_Files", BM_FirstLoad_Files);
  add("BM_FirstLoad_Select", BM_FirstLoad_Select);
  add("BM_SmallChange_Server", BM_SmallChange_Server)->Iterations(20);
  add("BM_SmallChange_Files", BM_SmallChange_Files)->Iterations(20);
  add("BM_Idle_Server", BM_Idle_Server);
  add("BM_Idle_Files", BM_Idle_Files);
  add("BM_Idle_Select", BM_Idle_Select);
  add("BM_BulkCopy_Server", BM_BulkCopy_Server)->Iterations(1);
  add("BM_BulkCopy_Files", BM_BulkCopy_Files)->Iterations(1);
  add("BM_BulkCopy_Select", BM_BulkCopy_Select)->Iterations(1);
  add("BM_CommitToCallback", BM_CommitToCallback)->Iterations(1);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

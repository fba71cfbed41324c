/* How the event server grows with its catalogue: loading, a refresh after one new event,
 * memory, and the sorted lists that displays ask for; 10,000 to 1,000,000 events of one
 * origin and one magnitude each.  KSUTIL_BENCH_EVENTS sets the largest size. */
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "bench/catalogues.h"
#include "events/evclient.h"
#include "events/evserver.h"
#include "platform/db/db.h"

namespace {

using namespace ksutil;
using bench::Catalogues;

/* One server for each size, with a client. */
struct Served {
  explicit Served(long events)
      : path(Catalogues::path(events)), server(path, 0, 0, -1), client(&server) {
    dbopen_noshare(path.c_str(), "r+", &db);
  }
  ~Served() {
    server.deregisterClient(&client);
    dbclose(db);
  }

  static Served &of(long events) {
    static std::map<long, std::unique_ptr<Served>> served;
    std::unique_ptr<Served> &found = served[events];
    if (found == nullptr) found = std::make_unique<Served>(events);
    return *found;
  }

  std::string path;
  EVServer server;
  EVClient client;
  Dbptr db = dbinvalid();
};

void BM_Load(benchmark::State &state) {
  const std::string path = Catalogues::path(state.range(0));
  for (auto _ : state)
    benchmark::DoNotOptimize(EVServer(path, 0, 0, -1).eventsNumber());
}

void BM_Refresh(benchmark::State &state) {
  Served &served = Served::of(state.range(0));
  static long id = 10000000;
  for (auto _ : state) {
    state.PauseTiming();
    id++;
    dbaddv(dblookup(served.db, "", "origin", "", ""), "orid", id, "evid", id, "lat",
           10.0, "lon", 20.0, "time", 1.4e9, static_cast<char *>(nullptr));
    dbaddv(dblookup(served.db, "", "event", "", ""), "evid", id, "prefor", id,
           static_cast<char *>(nullptr));
    state.ResumeTiming();
    if (served.server.refreshEvents(0) != 0) state.SkipWithError("refresh failed");
  }
  served.server.grabEventsLock();
  state.counters["bytes_per_event"] =
      static_cast<double>(served.server.getEventsSize()) /
      static_cast<double>(served.server.eventsNumber());
  served.server.releaseEventsLock();
}

void BM_SortByQuery(benchmark::State &state) {
  Served &served = Served::of(state.range(0));
  served.server.grabEventsLock();
  Table<EVEvent> events = served.server.getEvents();
  served.server.releaseEventsLock();
  for (auto _ : state) {
    int status = -1;
    benchmark::DoNotOptimize(served.client.sort(&events, "lat", 0, &status));
    if (status != 0) state.SkipWithError("the query does not parse");
  }
}

/* The floor: the same order from values that are in an array already. */
void BM_SortArray(benchmark::State &state) {
  Served &served = Served::of(state.range(0));
  std::vector<double> values;
  served.server.grabEventsLock();
  Table<EVEvent> events = served.server.getEvents();
  served.server.releaseEventsLock();
  std::vector<EVQueryToken> query;
  served.client.parse_query("lat", query);
  for (EVEvent &event : events) {
    int type = 0;
    alignas(double) char value[EV_VALUE_SIZE];
    double number = 0.0;
    if (served.client.getValue(&event, query, &type, value) == 0) {
      std::copy_n(value, sizeof number, reinterpret_cast<char *>(&number));
    }
    values.push_back(number);
  }
  for (auto _ : state) {
    std::vector<int> order(values.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&values](int a, int b) {
      return values[static_cast<std::size_t>(a)] < values[static_cast<std::size_t>(b)];
    });
    benchmark::DoNotOptimize(order.data());
  }
}

void sizes(benchmark::internal::Benchmark *each) {
  const char *text = std::getenv("KSUTIL_BENCH_EVENTS");
  const long largest = text == nullptr ? 1000000 : std::atol(text);
  each->ArgName("events")->Unit(benchmark::kMillisecond)->UseRealTime();
  for (const long events : {10000L, 100000L, 1000000L}) {
    if (events <= std::max(largest, 10000L)) each->Arg(events);
  }
}
BENCHMARK(BM_Load)->Apply(sizes);
BENCHMARK(BM_Refresh)->Apply(sizes);
BENCHMARK(BM_SortByQuery)->Apply(sizes);
BENCHMARK(BM_SortArray)->Apply(sizes);

}  // namespace

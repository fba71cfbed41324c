/* What a display waits for that shows the phases of an event: the first expanded event,
 * for which the tables of phases are indexed; later ones; and the refresh after another
 * phase has come in.  20 arrivals an event. */
#include <benchmark/benchmark.h>
#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/catalogues.h"
#include "bench/memory.h"
#include "events/evclient.h"
#include "events/evserver.h"
#include "platform/db/db.h"
#include "platform/stock/files.h"
#include "platform/stock/fingerprint.h"

namespace {

using namespace ksutil;
using bench::Catalogues;

constexpr int kArrivals = 20;
const char *const kPhaseTables[] = {".assoc", ".arrival"};

double phase_bytes(const std::string &path) {
  double bytes = 0.0;
  for (const char *table : kPhaseTables) {
    bytes += static_cast<double>(std::filesystem::file_size(path + table));
  }
  return bytes;
}

/* One server for each size, and a handle that changes its tables. */
struct Expanding {
  explicit Expanding(long count)
      : events(count),
        path(Catalogues::path(count, kArrivals)),
        server(path, 0, 0, -1),
        client(&server) {
    dbopen_noshare(path.c_str(), "r+", &db);
  }
  ~Expanding() {
    server.deregisterClient(&client);
    dbclose(db);
  }
  static Expanding &of(long events) {
    static std::map<long, std::unique_ptr<Expanding>> known;
    std::unique_ptr<Expanding> &found = known[events];
    if (found == nullptr) found = std::make_unique<Expanding>(events);
    return *found;
  }
  bool expand(long id) {
    EVEvent event;
    return server.getExpandedEvent(&client, id, event) == 0 &&
           event.origins.size() > 0 &&
           event.origins.ptr(0)->associations.size() >= kArrivals;
  }

  const long events;
  const std::string path;
  EVServer server;
  EVClient client;
  Dbptr db = dbinvalid();
  long evid = 0;  // of the last later expansion
};

/* Includes building the indexes of the two tables. */
void BM_FirstExpansion(benchmark::State &state) {
  Expanding &expanding = Expanding::of(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    expanding.server.freeHooks();
    expanding.server.freeVectors();
    expanding.server.refreshEvents(1);
    state.ResumeTiming();
    if (!expanding.expand(expanding.events / 2)) state.SkipWithError("not expanded");
  }
  std::unique_ptr<Expanding> fresh;
  const bench::AddedMemory added =
      bench::added_memory([&] { fresh = std::make_unique<Expanding>(state.range(0)); },
                          [&] {
                            for (long evid = 1; evid <= 50; evid++) {
                              fresh->expand(1 + evid * 7919 % fresh->events);
                            }
                          });
  const double bytes = phase_bytes(expanding.path);
  state.counters["table_MiB"] = bytes / 1048576.0;
  state.counters["added_of_tables"] = added.after * 1048576.0 / bytes;
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
}

/* Reads a file in pieces and calls use(piece) for each. */
template <class Use>
void read_pieces(const std::string &path, std::vector<char> &piece, Use use) {
  const FileHandle file = open_file(path, O_RDONLY);
  ssize_t got;
  for (off_t at = 0; (got = read_at(file.get(), piece.data(), piece.size(), at)) > 0;
       at += got) {
    use(std::string_view(piece.data(), static_cast<std::size_t>(got)));
  }
}

/* One reading of the two tables, as the floor of indexing them. */
void BM_PhaseRead(benchmark::State &state) {
  const std::string path = Catalogues::path(state.range(0), kArrivals);
  std::vector<char> piece(std::size_t{1} << 19);
  for (auto _ : state) {
    for (const char *table : kPhaseTables) {
      read_pieces(path + table, piece,
                  [](std::string_view text) { benchmark::DoNotOptimize(text.data()); });
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(phase_bytes(path)) *
                          state.iterations());
}

/* Reading one table and fingerprinting its rows, as the floor of noticing a change. */
void BM_PhaseFingerprint(benchmark::State &state) {
  const std::string path = Catalogues::path(state.range(0), kArrivals);
  const Fingerprint fingerprint;
  std::vector<char> piece(std::size_t{1} << 19);
  for (auto _ : state) {
    read_pieces(path + ".arrival", piece, [&](std::string_view text) {
      for (std::size_t row = 0; row < text.size(); row += 200) {
        benchmark::DoNotOptimize(fingerprint(text.substr(row, 200)));
      }
    });
  }
}

/* Events far apart, none of them in the cache of expanded events. */
void BM_LaterExpansion(benchmark::State &state) {
  Expanding &expanding = Expanding::of(state.range(0));
  expanding.expand(1);
  for (auto _ : state) {
    expanding.evid = (expanding.evid + 7919) % expanding.events;
    if (!expanding.expand(expanding.evid + 1)) state.SkipWithError("not expanded");
  }
}

void BM_AppendedArrival(benchmark::State &state) {
  Expanding &expanding = Expanding::of(state.range(0));
  expanding.expand(1);
  long arid = 100 * expanding.events;
  for (auto _ : state) {
    state.PauseTiming();
    dbaddv(dblookup(expanding.db, "", "arrival", "", ""), "sta", "ANMO", "arid", ++arid,
           "time", 1.4e9, static_cast<char *>(nullptr));
    state.ResumeTiming();
    if (expanding.server.refreshEvents(0) != 0) state.SkipWithError("refresh failed");
  }
}

void sizes(benchmark::internal::Benchmark *each) {
  const char *text = std::getenv("KSUTIL_BENCH_EVENTS");
  const long largest = text == nullptr ? 300000 : std::atol(text);
  each->ArgName("events")->Unit(benchmark::kMillisecond)->UseRealTime();
  for (const long events : {3000L, 30000L, 300000L}) {
    if (events <= std::max(largest, 3000L)) each->Arg(events);
  }
}
BENCHMARK(BM_PhaseRead)->Apply(sizes);
BENCHMARK(BM_PhaseFingerprint)->Apply(sizes);
BENCHMARK(BM_FirstExpansion)->Apply(sizes);
BENCHMARK(BM_LaterExpansion)->Apply(sizes);
BENCHMARK(BM_AppendedArrival)->Apply(sizes);

}  // namespace

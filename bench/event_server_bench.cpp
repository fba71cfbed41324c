/* What an application of the event server waits for: the first load of a catalogue, the
 * refresh after a small change, the look that finds nothing new. */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/loaders.h"
#include "bench/memory.h"
#include "bench/synthetic_catalogue.h"
#include "events/evserver.h"
#include "platform/db/db.h"
#include "platform/stock/files.h"
#include "platform/stock/fingerprint.h"

namespace {

using namespace ksutil;

/* KSUTIL_BENCH_EVENTS sets another size. */
long event_count() {
  const char *text = std::getenv("KSUTIL_BENCH_EVENTS");
  return text == nullptr ? 100000 : std::atol(text);
}

/* The catalogue in a scratch folder, made once and removed at the end. */
class Catalogue {
 public:
  static const Catalogue &shared() {
    static const Catalogue catalogue;
    return catalogue;
  }
  ~Catalogue() { std::filesystem::remove_all(folder_); }

  std::string path() const { return folder_ + "/catalogue"; }
  std::string sqlite_path() const { return folder_ + "/catalogue.sqlite"; }

  /* A copy that a benchmark may change. */
  std::string copy(const std::string &name) const {
    const std::string to = folder_ + "/" + name;
    for (const auto &file : std::filesystem::directory_iterator(folder_)) {
      const std::string from = file.path().filename();
      if (from.rfind("catalogue", 0) != 0 || from.ends_with(".sqlite")) continue;
      std::filesystem::copy_file(file.path(), to + from.substr(9),
                                 std::filesystem::copy_options::overwrite_existing);
    }
    return to;
  }

 private:
  Catalogue() {
    char folder[] = "/tmp/ksutil-bench-XXXXXX";
    folder_ = mkdtemp(folder);
    bench::CatalogueSize size;
    size.events = event_count();
    bench::write_catalogue(path(), size);
    bench::make_sqlite(path(), sqlite_path());
  }
  std::string folder_;
};

/* `peak` keeps the load's memory from round to round. */
void first_load(benchmark::State &state, double &peak,
                const std::function<void()> &load) {
  for (auto _ : state) load();
  if (peak == 0.0) peak = bench::added_memory([] {}, load).peak;
  state.counters["peak_MiB"] = peak;
  state.counters["table_MiB"] =
      static_cast<double>(bench::catalogue_bytes(Catalogue::shared().path())) /
      1048576.0;
}

void BM_FirstLoad_Server(benchmark::State &state) {
  const std::string path = Catalogue::shared().path();
  static double peak = 0.0;
  first_load(state, peak, [&path] { const EVServer server(path, 0, 0, -1); });
}
BENCHMARK(BM_FirstLoad_Server)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FirstLoad_Sqlite(benchmark::State &state) {
  const std::string path = Catalogue::shared().sqlite_path();
  static double peak = 0.0;
  first_load(state, peak,
             [&path] { benchmark::DoNotOptimize(bench::load_with_sqlite(path)); });
}
BENCHMARK(BM_FirstLoad_Sqlite)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FirstLoad_Floor(benchmark::State &state) {
  const std::string path = Catalogue::shared().path();
  static double peak = 0.0;
  first_load(state, peak,
             [&path] { benchmark::DoNotOptimize(bench::load_with_floor(path)); });
}
BENCHMARK(BM_FirstLoad_Floor)->Unit(benchmark::kMillisecond)->UseRealTime();

/* A server on a catalogue that another handle changes. */
struct Changing {
  Changing() : path(Catalogue::shared().copy("changing")) {
    dbopen_noshare(path.c_str(), "r+", &db);
    server = std::make_unique<EVServer>(path, 0, 0, -1);
  }
  ~Changing() {
    server.reset();
    dbclose(db);
  }

  /* One new event with an origin, and another depth for an origin that is there. */
  void change(long i) {
    const long evid = event_count() + 10 + i, orid = 10 * event_count() + i;
    dbaddv(dblookup(db, "", "event", "", ""), "evid", evid, "prefor", orid,
           static_cast<char *>(nullptr));
    dbaddv(dblookup(db, "", "origin", "", ""), "orid", orid, "evid", evid, "lat", 10.0,
           "lon", 20.0, "time", 1.4e9, static_cast<char *>(nullptr));
    Dbptr row = dblookup(db, "", "origin", "", "");
    row.record = (i * 7919) % event_count();
    dbputv(row, "depth", static_cast<double>(i % 600), static_cast<char *>(nullptr));
  }

  std::string path;
  Dbptr db = dbinvalid();
  std::unique_ptr<EVServer> server;
};

void BM_SmallChange_Refresh(benchmark::State &state) {
  static Changing changing;
  static long changes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    changing.change(changes++);
    state.ResumeTiming();
    if (changing.server->refreshEvents(0) != 0) state.SkipWithError("refresh failed");
  }
  if (changing.server->eventsNumber() != event_count() + changes) {
    state.SkipWithError("the list does not hold the new events");
  }
}
BENCHMARK(BM_SmallChange_Refresh)->Unit(benchmark::kMillisecond)->UseRealTime();

/* Comparing the two changed tables with a copy; with their bytes in memory already
 * (read 0), or read from the file system first (read 1). */
void BM_SmallChange_Memcmp(benchmark::State &state) {
  const std::string path = Catalogue::shared().path();
  std::vector<std::string> copies(2), fresh(2);
  const char *const tables[] = {".event", ".origin"};
  for (std::size_t t = 0; t < 2; t++) {
    read_file(path + tables[t], std::size_t{1} << 32, copies[t]);
    fresh[t] = copies[t];
  }
  for (auto _ : state) {
    for (std::size_t t = 0; t < 2; t++) {
      if (state.range(0) != 0) {
        const FileHandle file = open_file(path + tables[t], O_RDONLY);
        read_at(file.get(), fresh[t].data(), fresh[t].size(), 0);
      }
      benchmark::DoNotOptimize(
          std::memcmp(copies[t].data(), fresh[t].data(), copies[t].size()));
      benchmark::ClobberMemory();
    }
  }
}
BENCHMARK(BM_SmallChange_Memcmp)
    ->ArgName("read")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/* Fingerprints of the rows of the two changed tables, read from the file system: the
 * floor of a refresh that keeps no old rows. */
void BM_SmallChange_Fingerprint(benchmark::State &state) {
  const std::string path = Catalogue::shared().path();
  const Fingerprint fingerprint;
  std::vector<char> piece(std::size_t{1} << 19);
  for (auto _ : state) {
    for (const char *table : {".event", ".origin"}) {
      const FileHandle file = open_file(path + table, O_RDONLY);
      ssize_t got;
      for (off_t at = 0;
           (got = read_at(file.get(), piece.data(), piece.size(), at)) > 0; at += got) {
        const std::string_view text(piece.data(), static_cast<std::size_t>(got));
        for (std::size_t row = 0; row < text.size(); row += 200) {
          benchmark::DoNotOptimize(fingerprint(text.substr(row, 200)));
        }
      }
    }
  }
}
BENCHMARK(BM_SmallChange_Fingerprint)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Idle_Refresh(benchmark::State &state) {
  EVServer server(Catalogue::shared().path(), 0, 0, -1);
  for (auto _ : state) benchmark::DoNotOptimize(server.refreshEvents(0));
}
BENCHMARK(BM_Idle_Refresh)->Unit(benchmark::kMicrosecond)->UseRealTime();

/* One fstat for each table that the refresh looks at. */
void BM_Idle_Fstat(benchmark::State &state) {
  const std::string path = Catalogue::shared().path();
  const char *const tables[] = {".event", ".origin", ".origerr", ".netmag", ".mt"};
  constexpr int kLooks = 9;
  std::vector<FileHandle> files;
  for (int i = 0; i < kLooks; i++) {
    files.push_back(open_file(path + tables[i % 5], O_RDONLY));
  }
  struct stat status {};
  for (auto _ : state) {
    for (const FileHandle &file : files) {
      benchmark::DoNotOptimize(fstat(file.get(), &status));
    }
  }
}
BENCHMARK(BM_Idle_Fstat)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

/* Matches by id, which a server makes for every row of a table: warm look-ups beside
 * std::unordered_multimap, and the building of an index beside that of the map.  Both
 * sides hold 600,000 netmag rows with three for each orid. */
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/db/db.h"
#include "platform/db/key_index.h"
#include "platform/db/schema.h"

namespace {

using namespace ksutil::db;

constexpr long kRows = 600000, kIds = 200000;

/* The table, the database open on it, and what both sides look up. */
class Netmags {
 public:
  Netmags() {
    char path[] = "/tmp/ksutil_bench_XXXXXX";
    directory_ = mkdtemp(path);
    const std::string name = directory_ + "/bench";
    std::ofstream(name) << "schema css3.0\n";
    const auto schema = Schema::load("css3.0");
    const Relation &netmag = *schema->find("netmag");
    std::ofstream file(name + ".netmag");
    std::string row = null_record(netmag);
    std::mt19937 random(1);
    for (long i = 0; i < kRows; ++i) {
      const long orid = 1 + static_cast<long>(random() % kIds);
      write_integer(*netmag.find("orid"), orid, row);
      file << row;
      map.emplace(orid, static_cast<int>(i));
    }
    file.close();
    dbopen_noshare(name.c_str(), "r", &db);
    table = dblookup(db, nullptr, "netmag", nullptr, nullptr);
    snapshot = table_snapshot(table);
    for (int i = 0; i < 1 << 16; ++i) {
      ids.push_back(1 + static_cast<long>(random() % kIds));
    }
  }
  ~Netmags() {
    dbclose(db);
    std::filesystem::remove_all(directory_);
  }
  Netmags(const Netmags &) = delete;
  Netmags &operator=(const Netmags &) = delete;

  Dbptr db, table;
  std::shared_ptr<const Snapshot> snapshot;
  std::unordered_multimap<std::int64_t, int> map;
  std::vector<std::int64_t> ids;

 private:
  std::string directory_;
};

Netmags &netmags() {
  static Netmags instance;
  return instance;
}

void BM_LookUpInMap(benchmark::State &state) {
  const Netmags &data = netmags();
  std::size_t i = 0;
  long sum = 0;
  for (auto _ : state) {
    const auto [first, last] = data.map.equal_range(data.ids[i++ & 0xffff]);
    for (auto at = first; at != last; ++at) sum += at->second;
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LookUpInMap);

void BM_LookUpInKeyIndex(benchmark::State &state) {
  const Netmags &data = netmags();
  KeyIndex index("orid");
  index.follow(data.snapshot);
  std::size_t i = 0;
  long sum = 0;
  for (auto _ : state) {
    for (const long row : index.find(data.ids[i++ & 0xffff])) sum += row;
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LookUpInKeyIndex);

/* The whole call, with the key in a scratch record and one look at the table's file. */
void BM_Dbmatches(benchmark::State &state) {
  const Netmags &data = netmags();
  const Dbptr key = dblookup(data.db, nullptr, "netmag", nullptr, "dbSCRATCH");
  dbputv(key, "orid", 17L, nullptr);
  Tbl *pattern = newtbl(1);
  char orid[] = "orid";
  pushtbl(pattern, orid);
  Hook *hook = nullptr;
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        dbmatches(key, data.table, &pattern, &pattern, &hook, nullptr));
  }
  state.SetItemsProcessed(state.iterations());
  free_hook(&hook);
  freetbl(pattern, nullptr);
}
BENCHMARK(BM_Dbmatches);

void BM_BuildMap(benchmark::State &state) {
  const Netmags &data = netmags();
  const IntegerColumn orid(data.snapshot->layout(), "orid");
  for (auto _ : state) {
    std::unordered_multimap<std::int64_t, int> map;
    for (long row = 0; row < data.snapshot->count(); ++row) {
      std::int64_t id;
      if (orid.read(data.snapshot->row(row), id))
        map.emplace(id, static_cast<int>(row));
    }
    benchmark::DoNotOptimize(map.size());
  }
}
BENCHMARK(BM_BuildMap)->Unit(benchmark::kMillisecond);

void BM_BuildKeyIndex(benchmark::State &state) {
  const Netmags &data = netmags();
  for (auto _ : state) {
    KeyIndex index("orid");
    index.follow(data.snapshot);
    benchmark::DoNotOptimize(index.find(1).empty());
  }
}
BENCHMARK(BM_BuildKeyIndex)->Unit(benchmark::kMillisecond);

}  // namespace

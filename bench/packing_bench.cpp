/* What memory for row texts costs: packing and unpacking blocks of rows, whole and row by
 * row, beside LZ4 and a plain copy of the same bytes. */
#include <benchmark/benchmark.h>
#include <lz4.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/synthetic_catalogue.h"
#include "platform/db/internal/packed_rows.h"
#include "platform/stock/files.h"

namespace {

using namespace ksutil;

constexpr std::size_t kBlockBytes = std::size_t{1} << 19;
/* LZ4 unpacks from the beginning of a block only: small blocks for single rows. */
constexpr std::size_t kSmallBlockBytes = std::size_t{1} << 14;

/* A table of the synthetic catalogue, in blocks of whole rows. */
struct Rows {
  explicit Rows(const char *table) {
    char folder[] = "/tmp/ksutil-bench-XXXXXX";
    const std::string path = mkdtemp(folder);
    bench::CatalogueSize size;
    size.events = 20000;
    bench::write_catalogue(path + "/catalogue", size);
    read_file(path + "/catalogue." + table, std::size_t{1} << 30, text);
    std::filesystem::remove_all(path);
    length = text.find('\n') + 1;
  }
  std::vector<std::string_view> blocks(std::size_t bytes) const {
    std::vector<std::string_view> result;
    const std::size_t step = bytes / length * length;
    for (std::size_t at = 0; at < text.size(); at += step) {
      result.push_back(std::string_view(text).substr(at, step));
    }
    return result;
  }

  std::string text;
  std::size_t length;
};

/* Range 0: the table with the widest rows; 1: the one with the most. */
const Rows &rows(const benchmark::State &state) {
  static const Rows origin("origin"), netmag("netmag");
  return state.range(0) == 0 ? origin : netmag;
}

void finish(benchmark::State &state, std::size_t bytes, std::size_t packed) {
  state.SetBytesProcessed(state.iterations() * static_cast<long>(bytes));
  if (packed > 0) {
    state.counters["ratio"] = static_cast<double>(bytes) / static_cast<double>(packed);
  }
}

std::vector<std::unique_ptr<const db::PackedRows>> packed_rows(const Rows &rows) {
  std::vector<std::unique_ptr<const db::PackedRows>> packed;
  for (const std::string_view block : rows.blocks(kBlockBytes)) {
    packed.push_back(db::PackedRows::pack(block));
  }
  return packed;
}

std::string lz4_packed(std::string_view block) {
  const auto size = static_cast<int>(block.size());
  std::string packed(static_cast<std::size_t>(LZ4_compressBound(size)), '\0');
  const int bytes = LZ4_compress_default(block.data(), packed.data(), size,
                                         static_cast<int>(packed.size()));
  packed.resize(static_cast<std::size_t>(bytes));
  return packed;
}

void lz4_unpack(const std::string &packed, char *to, std::size_t size) {
  benchmark::DoNotOptimize(LZ4_decompress_safe(
      packed.data(), to, static_cast<int>(packed.size()), static_cast<int>(size)));
}

void BM_Pack_Rows(benchmark::State &state) {
  const Rows &table = rows(state);
  std::size_t packed = 0;
  for (auto _ : state) {
    packed = 0;
    for (const auto &block : packed_rows(table)) packed += block->memory();
  }
  finish(state, table.text.size(), packed);
}

void BM_Pack_Lz4(benchmark::State &state) {
  const Rows &table = rows(state);
  std::size_t packed = 0;
  for (auto _ : state) {
    packed = 0;
    for (const std::string_view block : table.blocks(kBlockBytes)) {
      packed += lz4_packed(block).size();
    }
  }
  finish(state, table.text.size(), packed);
}

void BM_Pack_Memcpy(benchmark::State &state) {
  std::string to(kBlockBytes, '\0');
  for (auto _ : state) {
    for (const std::string_view block : rows(state).blocks(kBlockBytes)) {
      std::memcpy(to.data(), block.data(), block.size());
      benchmark::ClobberMemory();
    }
  }
  finish(state, rows(state).text.size(), 0);
}

void BM_Unpack_Rows(benchmark::State &state) {
  const auto packed = packed_rows(rows(state));
  std::string to(kBlockBytes, '\0');
  for (auto _ : state) {
    for (const auto &block : packed) block->unpack(0, block->size(), to.data());
    benchmark::ClobberMemory();
  }
  finish(state, rows(state).text.size(), 0);
}

void BM_Unpack_Lz4(benchmark::State &state) {
  std::vector<std::string> packed;
  for (const auto block : rows(state).blocks(kBlockBytes)) {
    packed.push_back(lz4_packed(block));
  }
  std::string to(kBlockBytes, '\0');
  for (auto _ : state) {
    for (const std::string &block : packed) lz4_unpack(block, to.data(), to.size());
    benchmark::ClobberMemory();
  }
  finish(state, rows(state).text.size(), 0);
}

/* One row of the table, at random. */
void BM_Row_Rows(benchmark::State &state) {
  const Rows &table = rows(state);
  const auto packed = packed_rows(table);
  std::minstd_rand random;
  std::string to(table.length, '\0');
  for (auto _ : state) {
    const db::PackedRows &block = *packed[random() % packed.size()];
    const std::size_t row = random() % (block.size() / table.length);
    block.unpack(row * table.length, table.length, to.data());
    benchmark::ClobberMemory();
  }
}

void BM_Row_Lz4(benchmark::State &state) {
  const Rows &table = rows(state);
  std::vector<std::string> packed;
  for (const auto block : table.blocks(kSmallBlockBytes)) {
    packed.push_back(lz4_packed(block));
  }
  std::minstd_rand random;
  std::string to(kSmallBlockBytes, '\0');
  for (auto _ : state) {
    lz4_unpack(packed[random() % packed.size()], to.data(), to.size());
    benchmark::ClobberMemory();
  }
}

void BM_Row_Memcpy(benchmark::State &state) {
  const Rows &table = rows(state);
  std::minstd_rand random;
  std::string to(table.length, '\0');
  for (auto _ : state) {
    const std::size_t row = random() % (table.text.size() / table.length);
    std::memcpy(to.data(), &table.text[row * table.length], table.length);
    benchmark::ClobberMemory();
  }
}

BENCHMARK(BM_Pack_Rows)->ArgName("netmag")->Arg(0)->Arg(1);
BENCHMARK(BM_Pack_Lz4)->ArgName("netmag")->Arg(0)->Arg(1);
BENCHMARK(BM_Pack_Memcpy)->ArgName("netmag")->Arg(0)->Arg(1);
BENCHMARK(BM_Unpack_Rows)->ArgName("netmag")->Arg(0)->Arg(1);
BENCHMARK(BM_Unpack_Lz4)->ArgName("netmag")->Arg(0)->Arg(1);
BENCHMARK(BM_Row_Rows)->ArgName("netmag")->Arg(0)->Arg(1);
BENCHMARK(BM_Row_Lz4)->ArgName("netmag")->Arg(0)->Arg(1);
BENCHMARK(BM_Row_Memcpy)->ArgName("netmag")->Arg(0)->Arg(1);

}  // namespace

/* A refresh of a plot: its vectors (of two columns) are made and then freed, from the cache
 * beside the zeroing of as many arrays alone, which no allocator can save, and beside arrays
 * from malloc with memset.  Figures are for one vector. */
#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "objects/ksvector2.h"

namespace {

constexpr int kVectors = 16;  // curves of a plot

std::size_t array_bytes(int npts) {
  ksvector2 *const vector = ksvector2_find_space(npts, 1, 0);
  const int bytes = vector->size;
  ksvector2_free_vector(vector);
  return static_cast<std::size_t>(bytes);
}

/* Tells the time of one vector. */
void count_vectors(benchmark::State &state) {
  state.SetItemsProcessed(state.iterations() * kVectors);
}

void BM_CreateAndFree(benchmark::State &state) {
  const int npts = static_cast<int>(state.range(0));
  ksvector2_set_cache(1L << 30);
  std::array<ksvector2 *, kVectors> vectors;
  const auto refresh = [&] {
    for (ksvector2 *&each : vectors) each = ksvector2_create(npts, 1, "plot", nullptr);
    benchmark::ClobberMemory();
    for (ksvector2 *each : vectors) ksvector2_free_vector(each);
  };
  for (int i = 0; i < 2; ++i) refresh();  // the first one fills the cache
  for (auto _ : state) refresh();
  count_vectors(state);
}

void BM_CreateAndFreeTagged(benchmark::State &state) {
  const int npts = static_cast<int>(state.range(0));
  ksvector2_set_cache(1L << 30);
  std::array<char[KS_TAG_SIZE], kVectors> tags;
  const auto refresh = [&] {
    for (char *tag : tags) ksvector2_create(npts, 1, "plot", tag);
    benchmark::ClobberMemory();
    for (const char *tag : tags) ksvector2_free(tag);
  };
  for (int i = 0; i < 2; ++i) refresh();
  for (auto _ : state) refresh();
  count_vectors(state);
}

void BM_ZeroingAlone(benchmark::State &state) {
  const std::size_t bytes = array_bytes(static_cast<int>(state.range(0)));
  std::array<std::unique_ptr<char[]>, kVectors> arrays;
  for (auto &each : arrays) each.reset(new char[bytes]());  // all pages in memory
  for (auto _ : state) {
    for (const auto &each : arrays) std::memset(each.get(), 0, bytes);
    benchmark::ClobberMemory();
  }
  count_vectors(state);
}

void BM_MallocAndMemset(benchmark::State &state) {
  const std::size_t bytes = array_bytes(static_cast<int>(state.range(0)));
  std::array<void *, kVectors> arrays;
  const auto refresh = [&] {
    for (void *&each : arrays) each = std::memset(std::malloc(bytes), 0, bytes);
    benchmark::ClobberMemory();
    for (void *each : arrays) std::free(each);
  };
  for (int i = 0; i < 2; ++i) refresh();
  for (auto _ : state) refresh();
  count_vectors(state);
}

void sizes(benchmark::internal::Benchmark *each) {
  each->ArgName("npts")->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000);
}
BENCHMARK(BM_CreateAndFree)->Apply(sizes);
BENCHMARK(BM_CreateAndFreeTagged)->Apply(sizes);
BENCHMARK(BM_ZeroingAlone)->Apply(sizes);
BENCHMARK(BM_MallocAndMemset)->Apply(sizes);

}  // namespace

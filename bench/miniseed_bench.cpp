/* Windows of a day's miniSEED file, which a display asks for one after another: a day of one
 * channel at 100 Hz in records of 4096 bytes, from the page cache, beside the bare libmseed
 * on the same file, which also decodes only the records of the window. */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <libmseed.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/trace/miniseed.h"

namespace {

constexpr double kStart = 1.0e9, kRate = 100.0;

/* The file, made once and removed at the end.  KSUTIL_BENCH_FILES, which tests set, makes
 * it short. */
class Day {
 public:
  Day() : seconds(std::getenv("KSUTIL_BENCH_FILES") == nullptr ? 86400 : 3600) {
    char path_text[] = "/tmp/ksutil_bench_XXXXXX";
    directory_ = mkdtemp(path_text);
    path = directory_ + "/day";
    std::vector<std::int32_t> counts(static_cast<std::size_t>(seconds * kRate));
    std::uint32_t noise = 1;
    for (std::size_t i = 0; i < counts.size(); ++i) {
      noise = noise * 1664525U + 1013904223U;
      counts[i] =
          static_cast<std::int32_t>(noise >> 22) + static_cast<std::int32_t>(i % 5000);
    }
    ksutil::Segment segment;
    segment.time = kStart;
    segment.samprate = kRate;
    segment.samples = ksutil::Segment::Counts(counts);
    const ksutil::MiniseedCodes codes{"XX", "ABC", "00", "HHZ", 'D'};
    ksutil::MiniseedContents contents;
    if (!ksutil::miniseed_append(path, segment, codes, 4096) ||
        !ksutil::miniseed_list(path, contents)) {
      std::abort();
    }
    piece = contents.pieces.at(0);
  }
  ~Day() { std::filesystem::remove_all(directory_); }
  Day(const Day &) = delete;
  Day &operator=(const Day &) = delete;

  const int seconds;
  std::string path;
  ksutil::MiniseedPiece piece;

 private:
  std::string directory_;
};

const Day &day() {
  static const Day made;
  return made;
}

/* The middle of the day, `length` seconds or all of it. */
void window(std::int64_t length, double &start, double &end) {
  const double seconds = day().seconds;
  const double wanted = length == 0 ? seconds : static_cast<double>(length);
  start = kStart + (seconds - wanted) / 2;
  end = start + wanted;
}

void BM_WindowKsutil(benchmark::State &state) {
  double start, end;
  window(state.range(0), start, end);
  const auto first = static_cast<std::int64_t>((start - kStart) * kRate);
  const auto count = static_cast<std::int64_t>((end - start) * kRate);
  std::vector<std::int32_t> samples;
  for (auto _ : state) {
    if (!ksutil::miniseed_read(day().path, day().piece, first, count, samples)) {
      std::abort();
    }
    benchmark::DoNotOptimize(samples.data());
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_WindowKsutil)
    ->ArgName("s")
    ->Arg(60)
    ->Arg(600)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond);

void BM_WindowLibmseed(benchmark::State &state) {
  double start, end;
  window(state.range(0), start, end);
  const auto from = static_cast<hptime_t>(start * HPTMODULUS),
             to = static_cast<hptime_t>(end * HPTMODULUS);
  for (auto _ : state) {
    std::vector<std::int32_t> samples;
    MSFileParam *file = nullptr;
    MSRecord *record = nullptr;
    while (ms_readmsr_r(&file, &record, day().path.c_str(), 0, nullptr, nullptr, 1, 0,
                        0) == MS_NOERROR) {
      if (record->starttime >= to) break;
      if (msr_endtime(record) < from) continue;
      if (msr_unpack_data(record, !ms_bigendianhost(), 0) < 0) std::abort();
      const auto *const values = static_cast<const std::int32_t *>(record->datasamples);
      samples.insert(samples.end(), values, values + record->numsamples);
    }
    ms_readmsr_r(&file, &record, nullptr, 0, nullptr, nullptr, 0, 0, 0);
    benchmark::DoNotOptimize(samples.data());
  }
  state.SetItemsProcessed(state.iterations() *
                          static_cast<std::int64_t>((end - start) * kRate));
}
BENCHMARK(BM_WindowLibmseed)
    ->ArgName("s")
    ->Arg(60)
    ->Arg(600)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond);

/* The whole day in pieces of 65,536 samples, one call each, as a display fills its cache.
 * `before` runs before each call. */
template <class Before>
void read_in_chunks(benchmark::State &state, const Before &before) {
  constexpr std::int64_t kChunk = 65536;
  const std::int64_t nsamp = day().piece.nsamp;
  std::vector<std::int32_t> samples;
  for (auto _ : state) {
    for (std::int64_t at = 0; at < nsamp; at += kChunk) {
      before();
      if (!ksutil::miniseed_read(day().path, day().piece, at,
                                 std::min(kChunk, nsamp - at), samples)) {
        state.SkipWithError("not read");
        return;
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * nsamp);
}

void BM_DayInChunks(benchmark::State &state) {
  read_in_chunks(state, [] {});
}
BENCHMARK(BM_DayInChunks)->Unit(benchmark::kMillisecond);

/* With another time of change before each call, so that every call walks from the first
 * record: nothing that is remembered of the file holds any more. */
void BM_DayInChunksForgotten(benchmark::State &state) {
  timespec times[2] = {{1000, 0}, {1000, 0}};
  read_in_chunks(state, [&times] {
    times[1].tv_sec++;
    utimensat(AT_FDCWD, day().path.c_str(), times, 0);
  });
}
BENCHMARK(BM_DayInChunksForgotten)->Unit(benchmark::kMillisecond);

void BM_ListKsutil(benchmark::State &state) {
  ksutil::MiniseedContents contents;
  for (auto _ : state) {
    if (!ksutil::miniseed_list(day().path, contents)) std::abort();
  }
}
BENCHMARK(BM_ListKsutil)->Unit(benchmark::kMillisecond);

void BM_ListLibmseed(benchmark::State &state) {
  for (auto _ : state) {
    MSTraceList *traces = nullptr;
    if (ms_readtracelist(&traces, day().path.c_str(), 0, -1, -1, 0, 1, 0, 0) !=
        MS_NOERROR) {
      std::abort();
    }
    mstl_free(&traces, 0);
  }
}
BENCHMARK(BM_ListLibmseed)->Unit(benchmark::kMillisecond);

}  // namespace

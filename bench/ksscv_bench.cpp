/* Drawing a long window: the envelope of a channel on 1,000 columns, when nothing has been
 * read (cold) and when it has (warm), beside reading every sample for it; and reading with
 * several threads beside one.
 *
 * The channel has day files at 100 Hz of 4-byte integers, in the page cache.  The floor reads
 * them with read(2) into one buffer, turns the bytes round and keeps two numbers a column. */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/db.h"
#include "waveforms/ksscv.h"

namespace {

constexpr double kStart = 1.6e9, kRate = 100.0, kDay = 86400.0;
constexpr int kColumns = 1000;
constexpr auto kSamplesPerDay = static_cast<long>(kRate * kDay);

/* A month; a twentieth of a day with KSUTIL_BENCH_FILES, as when benchmarks are tested. */
bool is_small() { return std::getenv("KSUTIL_BENCH_FILES") != nullptr; }
int day_count() { return is_small() ? 1 : 30; }
long samples_per_file() { return is_small() ? kSamplesPerDay / 20 : kSamplesPerDay; }
double window_length() {
  return day_count() * static_cast<double>(samples_per_file()) / kRate;
}

class Archive {
 public:
  Archive() {
    char path[] = "/tmp/ksutil_bench_XXXXXX";
    directory_ = mkdtemp(path);
    name = directory_ + "/db";
    dbcreate(name.c_str(), "css3.0");
    dbopen_noshare(name.c_str(), "r+", &db);
    const Dbptr table = dblookup(db, nullptr, "wfdisc", nullptr, nullptr);
    std::vector<std::uint32_t> samples(static_cast<std::size_t>(samples_per_file()));
    for (int day = 0; day < day_count(); day++) {
      for (std::size_t i = 0; i < samples.size(); i++) {
        samples[i] = __builtin_bswap32(static_cast<std::uint32_t>(
            (i * 7919 + static_cast<std::size_t>(day)) % 4001));
      }
      const std::string file = std::to_string(day);
      files.push_back(directory_ + "/" + file);
      std::ofstream(files.back(), std::ios::binary)
          .write(reinterpret_cast<const char *>(samples.data()),
                 static_cast<std::streamsize>(samples.size() * sizeof samples[0]));
      const double length = static_cast<double>(samples_per_file()) / kRate;
      const double time = kStart + day * length;
      dbaddv(table, "sta", "AAA", "chan", "HHZ", "time", time, "endtime",
             time + length - 1.0 / kRate, "nsamp", samples_per_file(), "samprate",
             kRate, "datatype", "s4", "dir", ".", "dfile", file.c_str(), "foff", 0L,
             static_cast<char *>(nullptr));
    }
  }
  ~Archive() {
    dbclose(db);
    std::filesystem::remove_all(directory_);
  }
  Archive(const Archive &) = delete;
  Archive &operator=(const Archive &) = delete;

  std::string name;
  std::vector<std::string> files;
  Dbptr db = dbinvalid();

 private:
  std::string directory_;
};

const Archive &archive() {
  static const Archive one;
  return one;
}

struct Close {
  void operator()(ksscv *view) const { ksscv_close(view); }
};
using ViewPtr = std::unique_ptr<ksscv, Close>;

ViewPtr open_view(int threads) {
  const ksscv_options options{64L << 20, threads, -1.0, 0};
  ViewPtr view(ksscv_open(archive().db, &options));
  const char *const sta = "AAA", *const chan = "HHZ";
  ksscv_set_channels(view.get(), 1, &sta, &chan);
  return view;
}

void show(ksscv *view, double tstart, double length) {
  ksscv_set_window(view, tstart, tstart + length, kColumns);
}

/* Asks for the envelope, which must be complete. */
void draw(ksscv *view) {
  ksscv_data *data = nullptr;
  if (ksscv_get(view, 0, KSSCV_ENVELOPE, 0, &data) != 0 ||
      data->state != KSSCV_COMPLETE || data->max[kColumns / 2] < 3900) {
    std::abort();
  }
  benchmark::DoNotOptimize(data->min[0]);
  ksscv_free_data(data);
}

void BM_EnvelopeCold(benchmark::State &state) {
  archive();
  for (auto _ : state) {
    const ViewPtr view = open_view(static_cast<int>(state.range(0)));
    show(view.get(), kStart, window_length());
    ksscv_wait(view.get(), 1000.0);
    draw(view.get());
  }
}
BENCHMARK(BM_EnvelopeCold)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_EnvelopeReadingAll(benchmark::State &state) {
  const Archive &all = archive();
  std::vector<std::uint32_t> samples(static_cast<std::size_t>(samples_per_file()));
  for (auto _ : state) {
    std::vector<std::int32_t> min(kColumns, INT32_MAX), max(kColumns, INT32_MIN);
    const auto total = static_cast<std::size_t>(samples_per_file()) * all.files.size();
    std::size_t at = 0;
    for (const std::string &file : all.files) {
      const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
      const auto bytes = static_cast<ssize_t>(samples.size() * sizeof samples[0]);
      if (::read(fd, samples.data(), samples.size() * sizeof samples[0]) != bytes) {
        std::abort();
      }
      ::close(fd);
      for (std::size_t i = 0; i < samples.size();) {
        const std::size_t column = at * kColumns / total;
        const std::size_t next = ((column + 1) * total + kColumns - 1) / kColumns;
        const std::size_t end = std::min(i + (next - at), samples.size());
        std::int32_t low = min[column], high = max[column];
        at += end - i;
        for (; i < end; i++) {
          const auto value = static_cast<std::int32_t>(__builtin_bswap32(samples[i]));
          low = std::min(low, value);
          high = std::max(high, value);
        }
        min[column] = low;
        max[column] = high;
      }
    }
    benchmark::DoNotOptimize(min.data());
    benchmark::DoNotOptimize(max.data());
  }
}
BENCHMARK(BM_EnvelopeReadingAll)->Unit(benchmark::kMillisecond)->UseRealTime();

/* A display that pans over what has been read: a new window and its envelope. */
void BM_EnvelopeWarm(benchmark::State &state) {
  const ViewPtr view = open_view(2);
  show(view.get(), kStart, window_length());
  ksscv_wait(view.get(), 1000.0);
  const double part = 1.0 / static_cast<double>(state.range(0));
  double shift = 0.0;
  show(view.get(), kStart, window_length() * part);
  ksscv_wait(view.get(), 1000.0);
  for (auto _ : state) {
    shift = shift > 0 ? 0.0 : 1.0;
    show(view.get(), kStart + shift, window_length() * part - 1.0);
    draw(view.get());
  }
}
BENCHMARK(BM_EnvelopeWarm)
    ->ArgName("part")
    ->Arg(1)
    ->Arg(4)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

}  // namespace

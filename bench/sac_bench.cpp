/* Reading SAC files, which an analyst's program does by the thousand: 2,000 files of
 * 100,000 samples from the page cache, beside the plain read(2) of the same bytes.
 *
 * One after another: each record is freed before the next is read, beside one buffer that
 * serves all files.  All at once: the records are kept, beside a new buffer for each. */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "formats/kssac.h"
#include "platform/stock/memory.h"

namespace {

/* KSUTIL_BENCH_FILES sets another number. */
int file_count() {
  const char *text = std::getenv("KSUTIL_BENCH_FILES");
  return text == nullptr ? 500 : std::atoi(text);
}

constexpr long kSamples = 100000;
constexpr std::size_t kBytes = KSSAC_HEADER_SIZE + kSamples * sizeof(float);

struct FreeKssac {
  void operator()(KSSac *kssac) const { kssac_free_kssac(kssac); }
};
using KssacPtr = std::unique_ptr<KSSac, FreeKssac>;

/* The files, made once and removed at the end. */
class Files {
 public:
  Files() {
    char path[] = "/tmp/ksutil_bench_XXXXXX";
    directory_ = mkdtemp(path);
    const KssacPtr kssac(kssac_create(nullptr, nullptr));
    std::vector<float> samples(kSamples);
    for (int i = 0; i < file_count(); ++i) {
      for (std::size_t k = 0; k < samples.size(); ++k) {
        samples[k] =
            static_cast<float>((k * 7919 + static_cast<std::size_t>(i)) % 4001);
      }
      kssac_putdata_kssac(kssac.get(), kSamples, samples.data(), "V", 1e9 + i, 100.0);
      names.push_back(directory_ + "/" + std::to_string(i) + ".sac");
      kssac_write_to_file_kssac(kssac.get(), names.back().c_str());
    }
  }
  ~Files() { std::filesystem::remove_all(directory_); }
  Files(const Files &) = delete;
  Files &operator=(const Files &) = delete;

  std::vector<std::string> names;

 private:
  std::string directory_;
};

const std::vector<std::string> &file_names() {
  static const Files files;
  return files.names;
}

/* A page-aligned buffer, into which the kernel copies a page cache fastest; some other
 * places cost it half as much again. */
using Buffer = ksutil::MallocPtr<char>;
Buffer new_buffer() {
  constexpr std::size_t kPage = 4096;
  return Buffer(static_cast<char *>(
      std::aligned_alloc(kPage, (kBytes + kPage - 1) / kPage * kPage)));
}

void read_plainly(const std::string &name, char *to) {
  const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (::read(fd, to, kBytes) != static_cast<ssize_t>(kBytes)) std::abort();
  ::close(fd);
}

KssacPtr read_record(const std::string &name) {
  KssacPtr kssac(kssac_read_from_file_kssac(name.c_str(), nullptr, nullptr));
  if (kssac == nullptr || kssac->image->npts_data != kSamples) std::abort();
  return kssac;
}

void BM_OneAfterAnotherPlain(benchmark::State &state) {
  const std::vector<std::string> &names = file_names();
  const Buffer buffer = new_buffer();
  for (auto _ : state) {
    for (const std::string &name : names) read_plainly(name, buffer.get());
  }
}
BENCHMARK(BM_OneAfterAnotherPlain)->Unit(benchmark::kMillisecond);

void BM_OneAfterAnotherKssac(benchmark::State &state) {
  const std::vector<std::string> &names = file_names();
  for (auto _ : state) {
    for (const std::string &name : names) read_record(name);
  }
}
BENCHMARK(BM_OneAfterAnotherKssac)->Unit(benchmark::kMillisecond);

void BM_AllAtOncePlain(benchmark::State &state) {
  const std::vector<std::string> &names = file_names();
  for (auto _ : state) {
    std::vector<Buffer> buffers;
    for (const std::string &name : names) {
      buffers.push_back(new_buffer());
      read_plainly(name, buffers.back().get());
    }
  }
}
BENCHMARK(BM_AllAtOncePlain)->Unit(benchmark::kMillisecond);

void BM_AllAtOnceKssac(benchmark::State &state) {
  const std::vector<std::string> &names = file_names();
  for (auto _ : state) {
    std::vector<KssacPtr> records;
    for (const std::string &name : names) records.push_back(read_record(name));
  }
}
BENCHMARK(BM_AllAtOnceKssac)->Unit(benchmark::kMillisecond);

}  // namespace

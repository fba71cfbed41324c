/* Picks the onset of the first arrival on seismograms in SAC files.
 *
 * One thread reads the files and sends the seismograms through a managed fifo to two
 * consumers: one picks onsets, a batch at a time, on worker threads in lock-step and writes
 * them to a file; the other finds the largest amplitude of each seismogram.
 *
 * Usage: pick_onsets [-o RESULTS] FILE.sac...
 * Writes one line per seismogram to RESULTS, or to standard output, in the order of the
 * files: file, sta, chan, time of the onset ("-": none) and the ratio there.  The largest
 * amplitude goes to standard error.
 *
 * An onset is where the mean energy of the last second first exceeds six times that of
 * the ten seconds before; `kswave pick` does the same to the waveforms of a database. */
#include <ksutil.h>
#include <ksutil/cxx/waveforms/signal.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

struct FreeBlock {
  void operator()(void *block) const { std::free(block); }
};

/* What travels: one malloc block, the samples behind this head. */
struct Seismogram {
  char file[1024];
  char sta[9], chan[9];
  double time, samprate;  // of the first sample, epoch seconds; 1/s
  long nsamp;

  float *samples() { return reinterpret_cast<float *>(this + 1); }
  std::size_t bytes() const {
    return sizeof *this + static_cast<std::size_t>(nsamp) * sizeof(float);
  }
};
using SeismogramBlock = std::unique_ptr<Seismogram, FreeBlock>;

/* The consumers' copies. */
void *copy_seismogram(void *data) {
  const auto *const seismogram = static_cast<const Seismogram *>(data);
  void *const copy = std::malloc(seismogram->bytes());
  if (copy != nullptr) std::memcpy(copy, data, seismogram->bytes());
  return copy;
}

/* A seismogram as a block; null after a message. */
SeismogramBlock pack(const char *file, KSSac *sac) {
  Seismogram head{};
  float *read = nullptr;
  const int result =
      kssac_getdata_kssac(sac, &head.nsamp, &head.time, &head.samprate, &read, nullptr);
  const std::unique_ptr<float, FreeBlock> samples(read);
  if (result < 0 || head.nsamp < 1 ||
      kssac_gethdr_kssac(sac, "KSTNM", head.sta, "KCMPNM", head.chan,
                         static_cast<char *>(nullptr)) < 0) {
    return nullptr;
  }
  std::snprintf(head.file, sizeof head.file, "%s", file);
  SeismogramBlock block(static_cast<Seismogram *>(std::malloc(head.bytes())));
  if (block == nullptr) return nullptr;
  *block = head;
  std::copy_n(samples.get(), head.nsamp, block->samples());
  return block;
}

/* The producer: sends what can be read, then the end of the stream.  All records of SAC
 * files are made and freed on this thread. */
void read_files(std::span<char *> files, pmtmanagedfifo *fifo, long *unreadable) {
  for (const char *file : files) {
    KSSac *const sac = kssac_read_from_file_either_order(file, nullptr, nullptr);
    SeismogramBlock block = sac == nullptr ? nullptr : pack(file, sac);
    kssac_free_kssac(sac);
    if (block != nullptr &&
        pmtmanagedfifo_push(fifo, block.get(), copy_seismogram, 0) == 0) {
      block.release();  // the fifo has it now
      continue;
    }
    elog_complain(0, "no seismogram in %s.\n", file);
    ++*unreadable;
  }
  pmtmanagedfifo_push_eof(fifo, "reader");
}

/* The consumer's next seismogram; null at the end of the stream. */
SeismogramBlock next(pmtmanagedfifo *fifo, const char *consumer) {
  void *data = nullptr;
  while (pmtmanagedfifo_pop(fifo, consumer, &data, nullptr) == 1) {
    if (data != nullptr) return SeismogramBlock(static_cast<Seismogram *>(data));
  }
  return nullptr;
}

void find_largest(pmtmanagedfifo *fifo, float *largest) {
  while (const SeismogramBlock seismogram = next(fifo, "amplitude")) {
    for (const float sample : std::span(seismogram->samples(),
                                        static_cast<std::size_t>(seismogram->nsamp))) {
      *largest = std::max(*largest, std::fabs(sample));
    }
  }
}

/* One piece of a batch; nobody but its worker touches it during a step. */
struct Work {
  SeismogramBlock seismogram;
  double onset = 0, ratio = 0;  // epoch seconds; ratio 0: none
};

void pick(Work &work) {
  Seismogram &seismogram = *work.seismogram;
  ksutil::OnsetSearch search;
  search.sta = 1.0;
  search.lta = 10.0;
  search.ratio = 6.0;
  search.most = 1;
  const auto onsets = ksutil::find_onsets(
      std::span<const float>(seismogram.samples(),
                             static_cast<std::size_t>(seismogram.nsamp)),
      seismogram.samprate, search);
  if (onsets.empty()) return;
  work.onset =
      seismogram.time + static_cast<double>(onsets[0].sample) / seismogram.samprate;
  work.ratio = onsets[0].ratio;
}

/* One worker's step: the batch's piece of its own number, when there is one. */
long pick_step(void *batch_pointer, long, void *, PmtcompThread *self, double) {
  auto &batch = *static_cast<std::vector<Work> *>(batch_pointer);
  const auto mine = static_cast<std::size_t>(pmtcomp_thread_index(self));
  if (mine < batch.size()) pick(batch[mine]);
  return 0;
}

/* Picks and writes a batch; false when that fails. */
bool process(Pmtcomp *workers, std::vector<Work> &batch, std::FILE *results) {
  if (pmtcomp_processthreads(workers) != pmtcomp_nthreads(workers)) return false;
  for (const Work &work : batch) {
    const Seismogram &seismogram = *work.seismogram;
    const std::string onset =
        work.ratio > 0 ? ksutil::time_text(work.onset) : std::string("-");
    const std::string line =
        ksutil::format_text("%s %s %s %s %.1f\n", seismogram.file, seismogram.sta,
                            seismogram.chan, onset.c_str(), work.ratio);
    if (std::fputs(line.c_str(), results) < 0) return false;
  }
  batch.clear();
  return true;
}

struct Closer {
  void operator()(pmtmanagedfifo *fifo) const { pmtmanagedfifo_destroy(fifo); }
  void operator()(Pmtcomp *workers) const { pmtcomp_destroy(workers); }
  void operator()(std::FILE *file) const { std::fclose(file); }
};

/* The consumer of this thread; false when results are missing. */
bool pick_all(pmtmanagedfifo *fifo, std::FILE *results) {
  constexpr std::size_t kWorkers = 2;
  std::vector<Work> batch;
  const std::unique_ptr<Pmtcomp, Closer> workers(pmtcomp_create());
  for (std::size_t i = 0; i < kWorkers; i++) {
    if (pmtcomp_addthread(workers.get(), pick_step, &batch, 0, nullptr) < 0) {
      return false;
    }
  }
  bool good = true;
  while (SeismogramBlock seismogram = next(fifo, "picks")) {
    batch.push_back({std::move(seismogram)});
    if (batch.size() == kWorkers) good = process(workers.get(), batch, results) && good;
  }
  return process(workers.get(), batch, results) && good;
}

/* 0, or -1 when something could not be read or written. */
int run(std::span<char *> files, std::FILE *results) {
  /* Few seismograms are in memory at a time: the reader waits for the slower consumer. */
  const std::unique_ptr<pmtmanagedfifo, Closer> fifo(
      pmtmanagedfifo_create("seismograms"));
  if (fifo == nullptr || pmtmanagedfifo_set_producer(fifo.get(), "reader") < 0 ||
      pmtmanagedfifo_set_consumer(fifo.get(), "picks", 4, 1) == nullptr ||
      pmtmanagedfifo_set_consumer(fifo.get(), "amplitude", 4, 1) == nullptr) {
    return -1;
  }
  long unreadable = 0;
  float largest = 0;
  std::thread reader(read_files, files, fifo.get(), &unreadable);
  std::thread amplitude(find_largest, fifo.get(), &largest);
  const bool good = pick_all(fifo.get(), results);
  reader.join();
  amplitude.join();
  std::fputs(ksutil::format_text("largest amplitude %g\n", largest).c_str(), stderr);
  return good && unreadable == 0 ? 0 : -1;
}

}  // namespace

int main(int argc, char **argv) {
  const char *output = nullptr;
  int option = 0;
  bool usable = true;
  while ((option = getopt(argc, argv, "o:")) != -1) {
    if (option == 'o') output = optarg;
    usable = usable && option == 'o';
  }
  if (!usable || optind == argc) {
    std::fputs("usage: pick_onsets [-o RESULTS] FILE.sac...\n", stderr);
    return 2;
  }
  std::unique_ptr<std::FILE, Closer> opened;
  if (output != nullptr) {
    opened.reset(std::fopen(output, "w"));
    if (opened == nullptr) {
      elog_complain(1, "cannot write %s.\n", output);
      return 1;
    }
  }
  std::FILE *const results = opened == nullptr ? stdout : opened.get();
  const int result = run(std::span(argv + optind, argv + argc), results);
  const bool written = std::fflush(results) == 0 && std::ferror(results) == 0;
  if (result < 0 || !written) elog_complain(0, "some results are missing.\n");
  return result < 0 || !written ? 1 : 0;
}

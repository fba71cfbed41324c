/* Predicts when the P wave of every origin of a database reaches a station.
 *
 * One thread reads the origins and sends them through a managed fifo to two consumers:
 * one predicts the arrivals, a batch at a time, on two worker threads in lock-step and
 * prints them; the other keeps count of what went by.
 *
 * Usage: predict_arrivals DATABASE LATITUDE LONGITUDE
 * Prints a line per origin, in the order of the table: orid, distance in degrees, phase
 * ("-" when the depth has no travel time) and arrival time; then the count. */
#include <ksutil.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <numbers>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Origin {
  long orid = 0;
  double lat = 0, lon = 0, depth = 0, time = 0;  // degrees, km, epoch seconds
};

/* Consumers get blocks of malloc, which they free. */
struct FreeBlock {
  void operator()(Origin *block) const { std::free(block); }
};
using OriginBlock = std::unique_ptr<Origin, FreeBlock>;

void *copy_origin(void *origin) {
  auto *const copy = static_cast<Origin *>(std::malloc(sizeof(Origin)));
  if (copy != nullptr) *copy = *static_cast<Origin *>(origin);
  return copy;
}

/* The producer: sends every origin, then the end of the stream, whatever happens. */
void read_origins(Dbptr table, pmtmanagedfifo *fifo) {
  long count = 0;
  if (dbquery(table, dbq_record_count, &count) < 0) count = 0;
  for (table.record = 0; table.record < count; table.record++) {
    Origin origin;
    if (dbgetv(table, "orid", &origin.orid, "lat", &origin.lat, "lon", &origin.lon,
               "depth", &origin.depth, "time", &origin.time,
               static_cast<char *>(nullptr)) < 0 ||
        pmtmanagedfifo_push(fifo, &origin, copy_origin, 1) < 0) {
      elog_complain(0, "cannot read origin record %ld.\n", table.record);
    }
  }
  pmtmanagedfifo_push_eof(fifo, "reader");
}

/* The consumer's next origin; null at the end of the stream. */
OriginBlock next_origin(pmtmanagedfifo *fifo, const char *consumer) {
  void *data = nullptr;
  while (pmtmanagedfifo_pop(fifo, consumer, &data, nullptr) == 1) {
    if (data != nullptr) return OriginBlock(static_cast<Origin *>(data));
  }
  return nullptr;
}

struct Summary {
  long count = 0;
  double deepest = 0;  // km
};

void summarise(pmtmanagedfifo *fifo, Summary &summary) {
  while (const OriginBlock origin = next_origin(fifo, "summary")) {
    summary.count++;
    if (origin->depth > summary.deepest) summary.deepest = origin->depth;
  }
}

/* What the workers share.  In a step each works on origins of its own, and nobody else
 * touches the batch, so that no lock is needed. */
struct Batch {
  double lat = 0, lon = 0;  // of the station, degrees
  std::vector<Origin> origins;
  std::vector<std::string> lines;
};

std::string predict(const Batch &batch, const Origin &origin) {
  constexpr double kDegree = std::numbers::pi / 180.0;
  double delta = 0;
  dist(kDegree * origin.lat, kDegree * origin.lon, kDegree * batch.lat,
       kDegree * batch.lon, &delta, nullptr);
  delta /= kDegree;
  using namespace ksutil::traveltime;
  Arrival arrival;
  if (!first_arrival(Model::kIasp91, Wave::kP, delta, origin.depth, arrival)) {
    return ksutil::format_text("%8ld %8.3f - -\n", origin.orid, delta);
  }
  return ksutil::format_text("%8ld %8.3f %-6s %s\n", origin.orid, delta, arrival.phase,
                             ksutil::time_text(origin.time + arrival.time).c_str());
}

/* One worker's step: every kWorkers-th origin of the batch, from its own number on. */
constexpr std::size_t kWorkers = 2;
long predict_step(void *batch_pointer, long, void *, PmtcompThread *self, double) {
  Batch &batch = *static_cast<Batch *>(batch_pointer);
  for (auto i = static_cast<std::size_t>(pmtcomp_thread_index(self));
       i < batch.origins.size(); i += kWorkers) {
    batch.lines[i] = predict(batch, batch.origins[i]);
  }
  return 0;
}

/* Predicts and prints a full or last batch; false when a worker failed. */
bool process(Pmtcomp *workers, Batch &batch) {
  batch.lines.assign(batch.origins.size(), "");
  if (pmtcomp_processthreads(workers) != kWorkers) return false;
  for (const std::string &line : batch.lines) std::fputs(line.c_str(), stdout);
  batch.origins.clear();
  return true;
}

bool predict_all(pmtmanagedfifo *fifo, Pmtcomp *workers, Batch &batch) {
  constexpr std::size_t kBatch = 64;
  bool good = true;
  while (const OriginBlock origin = next_origin(fifo, "prediction")) {
    batch.origins.push_back(*origin);
    if (batch.origins.size() == kBatch) good = process(workers, batch) && good;
  }
  return process(workers, batch) && good;
}

struct DestroyFifo {
  void operator()(pmtmanagedfifo *fifo) const { pmtmanagedfifo_destroy(fifo); }
};
struct DestroyWorkers {
  void operator()(Pmtcomp *workers) const { pmtcomp_destroy(workers); }
};

int run(Dbptr origins, double lat, double lon) {
  /* Capacities keep the reader from running ahead by more than a batch or so. */
  const std::unique_ptr<pmtmanagedfifo, DestroyFifo> fifo(
      pmtmanagedfifo_create("origins"));
  if (fifo == nullptr || pmtmanagedfifo_set_producer(fifo.get(), "reader") < 0 ||
      pmtmanagedfifo_set_consumer(fifo.get(), "prediction", 100, 1) == nullptr ||
      pmtmanagedfifo_set_consumer(fifo.get(), "summary", 100, 1) == nullptr) {
    return -1;
  }
  Batch batch{lat, lon, {}, {}};
  const std::unique_ptr<Pmtcomp, DestroyWorkers> workers(pmtcomp_create());
  for (std::size_t i = 0; i < kWorkers; i++) {
    if (pmtcomp_addthread(workers.get(), predict_step, &batch, 0, nullptr) < 0) {
      return -1;
    }
  }

  Summary summary;
  std::thread reader(read_origins, origins, fifo.get());
  std::thread counter(summarise, fifo.get(), std::ref(summary));
  const bool good = predict_all(fifo.get(), workers.get(), batch);
  reader.join();
  counter.join();
  std::printf("%ld origins, the deepest at %.1f km\n", summary.count, summary.deepest);
  return good ? 0 : -1;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fputs("usage: predict_arrivals DATABASE LATITUDE LONGITUDE\n", stderr);
    return 2;
  }
  double lat = 0, lon = 0;
  if (!ksutil::parse_real(argv[2], lat) || !ksutil::parse_real(argv[3], lon)) {
    std::fputs("predict_arrivals: latitude and longitude are numbers in degrees\n",
               stderr);
    return 2;
  }
  Dbptr db;
  if (dbopen(argv[1], "r", &db) < 0) {
    elog_complain(0, "cannot open database %s.\n", argv[1]);
    return 1;
  }
  const Dbptr origins = dblookup(db, nullptr, "origin", nullptr, nullptr);
  const int result = origins.table == dbINVALID ? -1 : run(origins, lat, lon);
  if (result < 0) elog_complain(0, "failed.\n");
  dbclose(db);
  return result < 0 ? 1 : 0;
}

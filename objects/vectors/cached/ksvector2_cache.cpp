/* ksvector2_cache: allocates records and arrays, and keeps freed records for later ones. */
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <tuple>
#include <vector>

#include "objects/vectors/cached/internal/vector2.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

namespace {

using namespace ksutil::vector2;
using ksutil::fail, ksutil::fail_errno;

const char kIdent[8] = "ksvec2";
const int kLeastCapacity = 100;
const long kSurplusLimit = 100000000;  // a record with more spare room is not used

struct Counters {
  long mallocs, reallocs, frees, strdups;
};

/* A free record with its search key.  The keys are in one array because the records are
 * scattered over memory. */
struct Entry {
  int tsamp;
  int ny;  // nyalloc; 0 for a time-sampled record, which does not use it
  int nalloc;
  long since;  // grows with each entry
  ksvector2 *record;

  auto key() const { return std::tie(tsamp, ny, nalloc, since); }
};

Entry entry_of(int tsamp, int ny, int nalloc) {
  const int kind = tsamp != 0 ? 1 : 0;
  return {kind, kind != 0 ? 0 : ny, nalloc, 0, nullptr};
}
Entry entry_of(ksvector2 *record) {
  Entry entry = entry_of(record->tsamp, record->nyalloc, record->nalloc);
  entry.record = record;
  return entry;
}

struct Cache {
  /* Ascending by key; null: no cache.  Never freed: destructors of other static objects may
   * still free vectors. */
  std::vector<Entry> *free;
  long bytes;  // sum of the records' heap_size
  long max_bytes;
  long entries_ever;
};

Counters counters;
Cache cache;
bool verbose;

using Place = std::vector<Entry>::iterator;

/* The first entry that is not before the given one. */
Place position(const Entry &wanted) {
  return std::lower_bound(
      cache.free->begin(), cache.free->end(), wanted,
      [](const Entry &a, const Entry &b) { return a.key() < b.key(); });
}

/* Whether the cache has a suitable record; `best` is then the record of the same kind with
 * the least sufficient capacity, the earliest of equal ones. */
bool find_match(int npts, int ny, int tsamp, Place &best) {
  if (cache.free == nullptr) return false;
  const Entry wanted = entry_of(tsamp, ny, npts);
  best = position(wanted);
  return best != cache.free->end() && best->tsamp == wanted.tsamp &&
         best->ny == wanted.ny &&
         static_cast<long>(best->nalloc) - npts < kSurplusLimit;
}

ksvector2 *take_from_cache(Place entry, int npts, int ny) {
  ksvector2 *const vector = entry->record;
  cache.free->erase(entry);
  vector->npts = 0;
  vector->ny = vector->tsamp != 0 ? 1 : ny;
  vector->name[0] = '\0';
  vector->time = vector->dt = 0;
  std::memset(vector->data, 0, static_cast<std::size_t>(vector->size));
  cache.bytes -= vector->heap_size;
  if (verbose) {
    std::printf("used cache %d bytes %d %d for %d %d\n", vector->heap_size,
                vector->nalloc, vector->nyalloc, npts, ny);
  }
  return vector;
}

ksvector2 *make_record(int npts, int ny, int tsamp) {
  const double capacity = std::fmax(std::trunc(1.2 * npts), kLeastCapacity);
  const int bytes = array_bytes(capacity, tsamp != 0 ? 1 : ny + 1.0);
  if (bytes < 0) {
    errno = ENOMEM;
    return nullptr;
  }
  auto *const vector = static_cast<ksvector2 *>(zeroed(1, sizeof(ksvector2)));
  if (vector == nullptr) return nullptr;
  vector->data = static_cast<double *>(zeroed(1, static_cast<std::size_t>(bytes)));
  if (vector->data == nullptr) {
    release(vector);
    return nullptr;
  }
  std::memcpy(vector->ident, kIdent, sizeof kIdent);
  vector->tsamp = tsamp != 0 ? 1 : 0;
  vector->ny = vector->nyalloc = tsamp != 0 ? 1 : ny;
  vector->nalloc = static_cast<int>(capacity);
  vector->size = bytes;
  vector->heap_size = static_cast<int>(sizeof(ksvector2)) + bytes;
  return vector;
}

void free_labels(ksvector2 &vector) {
  if (vector.labels == nullptr) return;
  for (int i = 0; i < vector.nalloc; ++i) release(vector.labels[i]);
  release(vector.labels);
  vector.labels = nullptr;
}

bool in_cache(ksvector2 *vector) {
  const Entry wanted = entry_of(vector);
  for (auto each = position(wanted); each != cache.free->end(); ++each) {
    if (each->record == vector) return true;
    if (each->nalloc != wanted.nalloc) return false;
  }
  return false;
}

/* False when memory is short. */
bool add_to_cache(ksvector2 *vector) {
  Entry entry = entry_of(vector);
  entry.since = ++cache.entries_ever;
  try {
    cache.free->insert(position(entry), entry);
  } catch (const std::bad_alloc &) {
    return false;
  }
  cache.bytes += vector->heap_size;
  return true;
}

/* Puts the record into the cache if there is room; true if the cache holds it now. */
bool keep(ksvector2 *vector) {
  if (cache.free == nullptr) return false;
  if (in_cache(vector)) {
    if (verbose) {
      std::printf("leaving %d bytes %d %d in cache\n", vector->heap_size,
                  vector->nalloc, vector->nyalloc);
    }
    return true;
  }
  if (cache.bytes + vector->heap_size > cache.max_bytes) return false;
  if (!add_to_cache(vector)) return false;
  if (verbose) {
    std::printf("Adding %d bytes %d %d to cache\n", vector->heap_size, vector->nalloc,
                vector->nyalloc);
  }
  return true;
}

}  // namespace

namespace ksutil::vector2 {

void *zeroed(std::size_t count, std::size_t size) {
  ++counters.mallocs;
  return ks_calloc(count, size);
}

void *resized(void *block, std::size_t bytes) {
  ++counters.reallocs;
  return ks_realloc(block, bytes);
}

char *duplicate(const char *text) {
  ++counters.strdups;
  return ks_strdup(text);
}

void release(void *block) {
  if (block == nullptr) return;
  ++counters.frees;
  std::free(block);
}

bool is_vector(const ksvector2 *vector) {
  return vector != nullptr && std::memcmp(vector->ident, kIdent, sizeof kIdent) == 0;
}

int array_bytes(double count, double values_per_point) {
  const double bytes = count * values_per_point * static_cast<double>(sizeof(double));
  const double limit = INT_MAX - static_cast<double>(sizeof(ksvector2));
  return bytes >= 0 && bytes <= limit ? static_cast<int>(bytes) : -1;
}

void destroy_vector(ksvector2 *vector) {
  free_labels(*vector);
  if (keep(vector)) return;
  if (verbose) {
    std::printf("Freeing %d bytes %d %d\n", vector->heap_size, vector->nalloc,
                vector->nyalloc);
  }
  release(vector->data);
  release(vector);
}

bool set_label(ksvector2 &vector, int i, const char *label) {
  const bool some = label != nullptr && label[0] != '\0';
  if (vector.labels == nullptr) {
    if (!some) return true;
    if (ksvector2_make_lblbuf(&vector) != 0) return false;
  }
  char *&slot = vector.labels[i];
  const std::size_t before = slot == nullptr ? 0 : std::strlen(slot);
  const std::size_t after = some ? std::strlen(label) : 0;
  const std::size_t rest = static_cast<std::size_t>(vector.heap_size) - before;
  if (after > INT_MAX - rest) {
    errno = ENOMEM;
    return false;
  }
  char *const copy = some ? duplicate(label) : nullptr;
  if (some && copy == nullptr) return false;
  release(slot);
  slot = copy;
  vector.heap_size = static_cast<int>(rest + after);
  return true;
}

}  // namespace ksutil::vector2

int ksvector2_set_cache(long max_bytes) {
  if (cache.free == nullptr) cache.free = new (std::nothrow) std::vector<Entry>;
  if (cache.free == nullptr) return fail_errno("ksvector2_set_cache", "newtbl() error");
  cache.max_bytes = max_bytes;
  return 0;
}

void ksvector2_set_verbose(int on) { verbose = on != 0; }

void ksvector2_get_counters(long *mallocs, long *reallocs, long *frees, long *strdups) {
  if (mallocs != nullptr) *mallocs = counters.mallocs;
  if (reallocs != nullptr) *reallocs = counters.reallocs;
  if (frees != nullptr) *frees = counters.frees;
  if (strdups != nullptr) *strdups = counters.strdups;
}

ksvector2 *ksvector2_find_space(int npts, int ny, int tsamp) {
  if (tsamp == 0 && ny < 1) {
    return fail("ksvector2_find_space", "Number of y values must be positive");
  }
  Place match;
  if (find_match(npts, ny, tsamp, match)) return take_from_cache(match, npts, ny);
  ksvector2 *const vector = make_record(npts, ny, tsamp);
  if (vector == nullptr) return fail_errno("ksvector2_find_space", "malloc() error");
  if (verbose) {
    std::printf("malloced %d bytes %d %d for %d %d\n", vector->heap_size,
                vector->nalloc, vector->nyalloc, npts, ny);
  }
  return vector;
}

void ksvector2_free_vector(ksvector2 *vector) {
  if (is_vector(vector)) Vectors2::free_record(vector);
}

int ksvector2_make_lblbuf(ksvector2 *vector) {
  if (!is_vector(vector)) return fail("ksvector2_make_lblbuf", "No vector");
  if (vector->labels != nullptr) return 0;
  vector->labels = static_cast<char **>(
      zeroed(static_cast<std::size_t>(vector->nalloc), sizeof(char *)));
  if (vector->labels != nullptr) return 0;
  return fail_errno("ksvector2_make_lblbuf", "malloc() error");
}

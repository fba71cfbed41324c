#include "pipeline/pmtmanagedfifo.h"

#include <cstdio>
#include <cstdlib>
#include <new>

#include "pipeline/internal/pmtmanagedfifo_record.h"
#include "platform/elog/failure.h"

using ksutil::ArrPtr;
using ksutil::Entry;
using ksutil::fail;
using ksutil::fail_memory;
using ksutil::MallocPtr;
using ksutil::TblPtr;

namespace {

void log_name_in_use(const char *name) {
  fail("pmtmanagedfifo_create", "name '%s' already in use", name);
}

/* Stores a value under a new key; false when memory is short. */
bool add_to(Arr *arr, const char *key, void *value) {
  setarr(arr, key, value);
  return containsarr(arr, key) != 0;
}

/* Prints a heading and the names of a list below it. */
void display_names(const char *prefix, const char *fifo_name, const char *heading,
                   Tbl *names) {
  elog_notify(0, "%s%12s %s:\n", prefix, fifo_name, heading);
  for (long i = 0; i < counttbl(names); ++i) {
    elog_notify(0, "%s             %12s\n", prefix,
                static_cast<const char *>(gettbl(names, i)));
  }
}

int display_one(const char *prefix, pmtmanagedfifo *fifo) {
  /* Names live as long as their maps, so they may be printed after unlocking. */
  TblPtr consumers, producers;
  bool complete = true;
  bool has_producers = false;
  {
    const std::lock_guard state(fifo->state_mutex);
    const std::lock_guard lock(fifo->producers_mutex);
    if (fifo->consumer_map != nullptr) {
      consumers.reset(keysarr(fifo->consumer_map.get()));
      complete = consumers != nullptr;
    }
    has_producers = fifo->producers != nullptr;
    if (has_producers) {
      producers.reset(keysarr(fifo->producers.get()));
      complete = complete && producers != nullptr;
    }
  }
  if (!complete) {
    return fail("pmtmanagedfifo_display", "keysarr() error");
  }
  display_names(prefix, fifo->name, "Consumers", consumers.get());
  if (has_producers) display_names(prefix, fifo->name, "Producers", producers.get());
  return 0;
}

}  // namespace

pmtmanagedfifo *pmtmanagedfifo_create(const char *name) {
  if (name == nullptr) {
    return fail("pmtmanagedfifo_create", "name must be given");
  }
  if (pmtmanagedfifo_get(name) != nullptr) {
    log_name_in_use(name);
    return nullptr;
  }
  std::unique_ptr<pmtmanagedfifo> fifo(new (std::nothrow) pmtmanagedfifo);
  if (fifo == nullptr) {
    return fail_memory("pmtmanagedfifo_create");
  }
  std::snprintf(fifo->name, sizeof fifo->name, "%s", name);
  fifo->consumers.reset(newtbl(0));
  if (fifo->consumers == nullptr) {
    return fail("pmtmanagedfifo_create", "newtbl() error");
  }
  fifo->consumer_map.reset(newarr(nullptr));
  if (fifo->consumer_map == nullptr) {
    return fail("pmtmanagedfifo_create", "newarr() error");
  }
  switch (ksutil::register_managed_fifo(fifo.get())) {
    case Entry::kTaken:
      log_name_in_use(name);
      return nullptr;
    case Entry::kNoMemory:
      fail("pmtmanagedfifo_create", "setarr() error");
      return nullptr;
    case Entry::kEntered:
      break;
  }
  return fifo.release();
}

pmtfifo *pmtmanagedfifo_set_consumer(pmtmanagedfifo *fifo, const char *name,
                                     int maxsize, int block) {
  if (fifo == nullptr || name == nullptr) {
    return fail("pmtmanagedfifo_set_consumer", "fifo and name must be given");
  }
  const std::lock_guard state(fifo->state_mutex);
  if (fifo->consumer_map == nullptr) {
    return fail("pmtmanagedfifo_set_consumer", "fifo '%s' no longer exists",
                fifo->name);
  }
  if (containsarr(fifo->consumer_map.get(), name) != 0) {
    return fail("pmtmanagedfifo_set_consumer",
                "consumer name '%s' already in use in fifo '%s'", name, fifo->name);
  }
  pmtfifo *const consumer = pmtfifo_create(maxsize, block, 0);
  if (consumer == nullptr) {
    return fail("pmtmanagedfifo_set_consumer",
                "pmtfifo_create() error for consumer name '%s' fifo '%s'", name,
                fifo->name);
  }
  if (!add_to(fifo->consumer_map.get(), name, consumer)) {
    fail("pmtmanagedfifo_set_consumer", "setarr() error");
    pmtfifo_destroy(consumer, nullptr);
    return nullptr;
  }
  if (settbl(fifo->consumers.get(), -1, consumer) < 0) {
    fail("pmtmanagedfifo_set_consumer", "settbl() error");
    delarr(fifo->consumer_map.get(), name);
    pmtfifo_destroy(consumer, nullptr);
    return nullptr;
  }
  return consumer;
}

pmtfifo *pmtmanagedfifo_get_consumer(pmtmanagedfifo *fifo, const char *name) {
  if (fifo == nullptr || name == nullptr) return nullptr;
  const std::lock_guard state(fifo->state_mutex);
  return static_cast<pmtfifo *>(getarr(fifo->consumer_map.get(), name));
}

int pmtmanagedfifo_set_producer(pmtmanagedfifo *fifo, const char *name) {
  if (fifo == nullptr || name == nullptr) {
    return fail("pmtmanagedfifo_set_producer", "fifo and name must be given");
  }
  const std::lock_guard state(fifo->state_mutex);
  const std::lock_guard lock(fifo->producers_mutex);
  if (fifo->producers == nullptr) fifo->producers.reset(newarr(nullptr));
  if (fifo->producers == nullptr) {
    return fail("pmtmanagedfifo_set_producer", "newarr() error");
  }
  if (containsarr(fifo->producers.get(), name) != 0) {
    return fail("pmtmanagedfifo_set_producer",
                "producer name '%s' already in use in fifo '%s'", name, fifo->name);
  }
  MallocPtr<char> copy(ks_strdup(name));
  if (copy == nullptr) {
    return fail_memory("pmtmanagedfifo_set_producer");
  }
  if (!add_to(fifo->producers.get(), name, copy.get())) {
    return fail("pmtmanagedfifo_set_producer", "setarr() error");
  }
  copy.release();
  ++fifo->live_producers;
  return 0;
}

int pmtmanagedfifo_destroy(pmtmanagedfifo *fifo) {
  if (fifo == nullptr) return 0;
  const std::lock_guard state(fifo->state_mutex);
  for (long i = 0; i < counttbl(fifo->consumers.get()); ++i) {
    auto *const consumer = static_cast<pmtfifo *>(gettbl(fifo->consumers.get(), i));
    pmtfifo_destroy(consumer, ksutil::drop_managed_item);
  }
  fifo->consumers.reset();
  fifo->consumer_map.reset();
  return 0;
}

int pmtmanagedfifo_display(const char *prefix, pmtmanagedfifo *fifo) {
  bool open = false;
  const TblPtr names = ksutil::managed_fifo_names(&open);
  if (!open) return 0;
  if (prefix == nullptr) prefix = "";
  if (fifo != nullptr) return display_one(prefix, fifo);
  if (names == nullptr) {
    return fail("pmtmanagedfifo_display", "keysarr() error");
  }
  for (long i = 0; i < counttbl(names.get()); ++i) {
    const auto *const name = static_cast<const char *>(gettbl(names.get(), i));
    if (display_one(prefix, pmtmanagedfifo_get(name)) < 0) return -1;
  }
  return 0;
}

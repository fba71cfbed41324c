#include "pipeline/internal/pmtfifo_registry.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>

#include "pipeline/internal/pthread_lock.h"
#include "platform/stock/arr.h"
#include "platform/stock/memory.h"

namespace ksutil {
namespace {

pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
std::once_flag g_opened;
Arr *g_registry = nullptr;  // address text to fifo; guarded by g_mutex once made
pmtfifo *g_pool = nullptr;  // destroyed registered records; guarded by g_mutex

using Key = std::array<char, 128>;

Key key_of(const pmtfifo *fifo) {
  Key key;
  std::snprintf(key.data(), key.size(), "0x%lx",
                static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(fifo)));
  return key;
}

pmtfifo *take_from_pool() {
  const PthreadLock lock(g_mutex);
  pmtfifo *const fifo = g_pool;
  if (fifo != nullptr) g_pool = fifo->next_in_pool;
  return fifo;
}

pmtfifo *allocate(int registered) {
  void *const memory = ks_malloc(sizeof(pmtfifo));
  if (memory == nullptr) return nullptr;
  pmtfifo *const fifo = new (memory) pmtfifo{};
  fifo->registered = registered;
  return fifo;
}

/* Leaves `registered` untouched: another thread may read it through a stale pointer. */
void set_up(pmtfifo &fifo, int maxsize) {
  fifo.maxsize = maxsize;
  fifo.count = 0;
  fifo.flushed = 0;
  fifo.released = 0;
  fifo.releases = 0;
  fifo.block = 0;
  fifo.timeout = 0.0;
  fifo.items = FifoItems{};
  fifo.wait_for_space.forget();
  fifo.wait_for_data.forget();
  fifo.waiting_readers = fifo.waiting_pushers = 0;
  pthread_mutex_init(&fifo.mutex, nullptr);
  pthread_cond_init(&fifo.space, nullptr);
  pthread_cond_init(&fifo.data, nullptr);
}

}  // namespace

pthread_mutex_t &fifo_registry_mutex() { return g_mutex; }

pmtfifo *new_fifo_record(int maxsize, int registered) {
  pmtfifo *fifo = registered != 0 ? take_from_pool() : nullptr;
  if (fifo == nullptr) fifo = allocate(registered);
  if (fifo != nullptr) set_up(*fifo, maxsize);
  return fifo;
}

void retire_fifo_record(pmtfifo *fifo) {
  pthread_mutex_destroy(&fifo->mutex);
  pthread_cond_destroy(&fifo->space);
  pthread_cond_destroy(&fifo->data);
  fifo->items.release();
  if (fifo->registered == 0) {
    std::free(fifo);
    return;
  }
  const PthreadLock lock(g_mutex);
  fifo->next_in_pool = g_pool;
  g_pool = fifo;
}

Registry open_fifo_registry() {
  bool tried = false;
  std::call_once(g_opened, [&tried] {
    g_registry = newarr(nullptr);
    tried = true;
  });
  if (g_registry != nullptr) return Registry::kOpen;
  return tried ? Registry::kJustFailed : Registry::kAbsent;
}

bool register_fifo(pmtfifo *fifo) {
  const Key key = key_of(fifo);
  const PthreadLock lock(g_mutex);
  setarr(g_registry, key.data(), fifo);
  return containsarr(g_registry, key.data()) != 0;
}

bool deregister_fifo(const pmtfifo *fifo) {
  const Key key = key_of(fifo);
  const PthreadLock lock(g_mutex);
  return delarr(g_registry, key.data()) == fifo;
}

bool is_registered_fifo(const pmtfifo *fifo) {
  const Key key = key_of(fifo);
  const PthreadLock lock(g_mutex);
  return getarr(g_registry, key.data()) == fifo;
}

}  // namespace ksutil

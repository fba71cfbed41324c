#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>

#include "pipeline/internal/pmtmanagedfifo_record.h"
#include "platform/elog/elog.h"

namespace ksutil {
namespace {

std::mutex g_mutex;
std::once_flag g_opened;
std::atomic<Arr *> g_registry{nullptr};  // name to fifo; its content guarded by g_mutex

}  // namespace

Entry register_managed_fifo(pmtmanagedfifo *fifo) {
  const std::lock_guard lock(g_mutex);
  if (containsarr(g_registry, fifo->name) != 0) return Entry::kTaken;
  setarr(g_registry, fifo->name, fifo);
  return containsarr(g_registry, fifo->name) != 0 ? Entry::kEntered : Entry::kNoMemory;
}

TblPtr managed_fifo_names(bool *open) {
  *open = g_registry != nullptr;
  const std::lock_guard lock(g_mutex);
  return TblPtr(*open ? keysarr(g_registry) : nullptr);
}

}  // namespace ksutil

pmtmanagedfifo *pmtmanagedfifo_get(const char *name) {
  using namespace ksutil;
  std::call_once(g_opened, [] {
    g_registry = newarr(nullptr);
    if (g_registry == nullptr) elog_die(0, "pmtmanagedfifo_get: newarr() error.\n");
  });
  if (name == nullptr) return nullptr;
  std::array<char, sizeof(pmtmanagedfifo::name)> key;
  std::snprintf(key.data(), key.size(), "%s", name);
  const std::lock_guard lock(g_mutex);
  return static_cast<pmtmanagedfifo *>(getarr(g_registry, key.data()));
}

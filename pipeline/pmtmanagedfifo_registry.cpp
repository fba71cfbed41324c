#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>

#include "pipeline/internal/pmtmanagedfifo_record.h"
#include "platform/elog/elog.h"

namespace ksutil {
namespace {

std::mutex g_managed_mutex;
std::once_flag g_managed_opened;
std::atomic<Arr *> g_managed_fifos{
    nullptr};  // name to fifo; its content guarded by g_managed_mutex

}  // namespace

Entry register_managed_fifo(pmtmanagedfifo *fifo) {
  const std::lock_guard lock(g_managed_mutex);
  if (containsarr(g_managed_fifos, fifo->name) != 0) return Entry::kTaken;
  setarr(g_managed_fifos, fifo->name, fifo);
  return containsarr(g_managed_fifos, fifo->name) != 0 ? Entry::kEntered
                                                       : Entry::kNoMemory;
}

TblPtr managed_fifo_names(bool *open) {
  *open = g_managed_fifos != nullptr;
  const std::lock_guard lock(g_managed_mutex);
  return TblPtr(*open ? keysarr(g_managed_fifos) : nullptr);
}

}  // namespace ksutil

pmtmanagedfifo *pmtmanagedfifo_get(const char *name) {
  using namespace ksutil;
  std::call_once(g_managed_opened, [] {
    g_managed_fifos = newarr(nullptr);
    if (g_managed_fifos == nullptr)
      elog_die(0, "pmtmanagedfifo_get: newarr() error.\n");
  });
  if (name == nullptr) return nullptr;
  std::array<char, sizeof(pmtmanagedfifo::name)> key;
  std::snprintf(key.data(), key.size(), "%s", name);
  const std::lock_guard lock(g_managed_mutex);
  return static_cast<pmtmanagedfifo *>(getarr(g_managed_fifos, key.data()));
}

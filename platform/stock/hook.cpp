#include "platform/stock/hook.h"

#include <cstdlib>

#include "platform/stock/memory.h"

Hook *new_hook(void *data, void (*release)(void *)) {
  auto *hook = static_cast<Hook *>(ks_malloc(sizeof(Hook)));
  if (hook != nullptr) *hook = Hook{data, release};
  return hook;
}

void free_hook(Hook **hook) {
  if (hook == nullptr || *hook == nullptr) return;
  Hook *gone = *hook;
  *hook = nullptr;
  if (gone->data != nullptr) {
    (gone->release != nullptr ? gone->release : std::free)(gone->data);
  }
  std::free(gone);
}

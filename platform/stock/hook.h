/* hook: private data that an operation leaves with its caller between calls. */
#ifndef KSUTIL_PLATFORM_STOCK_HOOK_H
#define KSUTIL_PLATFORM_STOCK_HOOK_H

#include "platform/stock/export.h"

/* `release` frees `data`; null means free(). */
struct Hook {
  void *data;
  void (*release)(void *);
};

extern "C" {

/* A new hook, or null when memory is short. */
KSUTIL_API Hook *new_hook(void *data, void (*release)(void *));

/* Releases the data and the hook and nulls *hook.  A null argument, a null hook and
 * null data are accepted. */
KSUTIL_API void free_hook(Hook **hook);

}  // extern "C"
#endif

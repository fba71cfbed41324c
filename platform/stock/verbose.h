/* verbose: the process-wide verbosity switch, off by default.  Safe from any thread. */
#ifndef KSUTIL_PLATFORM_STOCK_VERBOSE_H
#define KSUTIL_PLATFORM_STOCK_VERBOSE_H

#include "platform/stock/export.h"

extern "C" {
KSUTIL_API int verbose_exists(void);
KSUTIL_API void set_verbose(int on);
}  // extern "C"
#endif

/* A Tbl of fixed-size elements kept in a file. */
#ifndef KSUTIL_PLATFORM_TRACE_FILETBL_H
#define KSUTIL_PLATFORM_TRACE_FILETBL_H

#include "platform/stock/export.h"
#include "platform/stock/tbl.h"

extern "C" {

KSUTIL_API Tbl *filetbl(const char *path, const char *tag, long maxn, int element_size);
KSUTIL_API int filetbl_fd(Tbl *table);

}  // extern "C"
#endif

/* Where a file really lives: local disk or another host's. */
#ifndef KSUTIL_PLATFORM_STOCK_FSPATH_H
#define KSUTIL_PLATFORM_STOCK_FSPATH_H

#include "platform/stock/export.h"

extern "C" {

/* Splits the path of an existing file (or of a file to be made in an existing directory)
 * into its resolved path on this machine and the host that serves its file system.
 *
 * local, host   out: new texts, freed by the caller; *host is "" for a local file.  The
 *               host of a network mount is found in the mount table; a network file
 *               system that names none gives its type.
 * Returns 0, or -1 with both null and no message when the path does not exist. */
KSUTIL_API int fspath(const char *path, char **local, char **host);

}  // extern "C"

namespace ksutil {

/* Reads another mount table than /proc/self/mounts; null restores it.  For tests. */
KSUTIL_API void set_mount_table(const char *path);

}  // namespace ksutil
#endif

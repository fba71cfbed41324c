/* fspath: finds the absolute and the resolved path of a file and the host that serves it. */
#ifndef KSUTIL_PLATFORM_STOCK_FSPATH_H
#define KSUTIL_PLATFORM_STOCK_FSPATH_H

#include <string>

#include "platform/stock/export.h"

extern "C" {

/* Splits the path of a file into its resolved path on this machine and the host that serves
 * its file system.  The file itself need not exist: a name in an existing folder is the
 * path of a file that is yet to be made, and succeeds.
 *
 * local, host   out: new texts, freed by the caller; *host is "" for a local file.  The
 *               host of a network mount is found in the mount table; a network file
 *               system that names none gives its type.
 * Returns 0; -1 with both null and no message when the folder of the file does not exist
 * (or is not a folder), when the path is null or empty, and when memory is short. */
KSUTIL_API int fspath(const char *path, char **local, char **host);

}  // extern "C"

namespace ksutil {

/* A path from the root, which stays that of the file when the program changes its working
 * directory; links in it stay as they are.  The path itself when the working directory
 * cannot be had. */
KSUTIL_API std::string absolute_path(const std::string &path);

/* Reads another mount table than /proc/self/mounts; null restores it.  For tests. */
KSUTIL_API void set_mount_table(const char *path);

}  // namespace ksutil
#endif

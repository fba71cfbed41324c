/* replace_file: replaces a file as a whole. */
#ifndef KSUTIL_CONFIG_INTERNAL_REPLACE_FILE_H
#define KSUTIL_CONFIG_INTERNAL_REPLACE_FILE_H

#include <string>
#include <string_view>

namespace ksutil {

/* Writes a new file beside `path`, flushes it to disk and renames it to `path`, with
 * the mode and, where allowed, the owner of the old file.  Symbolic links are followed
 * and stay, also one whose file is not there yet.  False with errno set and the old
 * file untouched. */
bool replace_file(const std::string &path, std::string_view text);

}  // namespace ksutil
#endif

/* write_safely: writes a file that appears under its name only when it is whole. */
#ifndef KSUTIL_TOOLS_COMMON_WRITE_SAFELY_H
#define KSUTIL_TOOLS_COMMON_WRITE_SAFELY_H

#include <functional>
#include <string>

namespace ksutil::tools {

/* Calls `write` with the name of a new file in the folder of `path`, brings that file to
 * the disk and puts it in the place of `path`, or of the file that `path` links to, with
 * the mode of the file that was there.  A device or a pipe is handed to `write` itself.
 *
 * False with a message when a step fails or `write` gives false; it registers its own
 * message.  The file that was there before is then untouched, and the new one removed;
 * so too when `write` throws. */
bool write_safely(const std::string &path,
                  const std::function<bool(const std::string &)> &write);

}  // namespace ksutil::tools
#endif

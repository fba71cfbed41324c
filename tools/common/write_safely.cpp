#include "tools/common/write_safely.h"

#include <sys/stat.h>

#include "platform/elog/elog.h"
#include "platform/stock/draft_file.h"

namespace ksutil::tools {

bool write_safely(const std::string &path,
                  const std::function<bool(const std::string &)> &write) {
  struct stat there {};
  if (::stat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) return write(path);
  DraftFile draft;
  if (!draft.open(path)) {
    elog_log(1, "cannot make a file beside %s.\n", path.c_str());
    return false;
  }
  if (!write(draft.path())) return false;
  if (draft.put_in_place()) return true;
  elog_log(1, "cannot replace %s.\n", path.c_str());
  return false;
}

}  // namespace ksutil::tools

#include "platform/pf/shared/pf_files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "platform/elog/failure.h"
#include "platform/pf/pf.h"
#include "platform/stock/files.h"

namespace ksutil {
namespace {

/* The files of that name in all directories of a colon-separated path.  A file that is
 * there but cannot be read is an error: skipping it would silently give the settings of
 * another directory. */
bool find_along(const char *function, const std::string &name,
                const std::string &directories, std::vector<PfFile> &files) {
  for (std::size_t at = 0; at < directories.size();) {
    const std::size_t end = std::min(directories.find(':', at), directories.size());
    PfFile file{directories.substr(at, end - at) + "/" + name, {}};
    at = end + 1;
    if (read_file(file.path, kPfMaxBytes, file.text)) {
      files.push_back(std::move(file));
    } else if (errno != ENOENT && errno != ENOTDIR) {
      return fail_errno(function, "Cannot read %s", file.path.c_str());
    }
  }
  if (files.empty()) {
    fail(function, "Cannot find %s in %s", name.c_str(), directories.c_str());
  }
  return !files.empty();
}

}  // namespace

bool read_pf_file(const char *function, const std::string &path, PfFile &file) {
  file.path = path;
  if (read_file(path, kPfMaxBytes, file.text)) return true;
  return fail_errno(function, "Cannot read %s", path.c_str());
}

bool find_pf_files(const char *function, const std::string &name,
                   std::vector<PfFile> &files) {
  files.clear();
  if (name.find('/') != std::string::npos) {
    return read_pf_file(function, name, files.emplace_back());
  }
  const char *const directories = std::getenv("KSUTIL_PF_PATH");
  return find_along(function, name.ends_with(".pf") ? name : name + ".pf",
                    directories == nullptr || *directories == '\0' ? "." : directories,
                    files);
}

}  // namespace ksutil

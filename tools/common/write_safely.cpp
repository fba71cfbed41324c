#include "tools/common/write_safely.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "platform/stock/memory.h"

namespace ksutil::tools {
namespace {

/* The mode that a new file gets. */
mode_t mode_of_new_files() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

/* The file behind symbolic links, or the path itself for a new file. */
std::string resolved(const std::string &path) {
  const MallocPtr<char> real(::realpath(path.c_str(), nullptr));
  return real == nullptr ? path : std::string(real.get());
}

/* A file beside the target, which is removed unless it is put in its place. */
class Draft {
 public:
  explicit Draft(const std::string &target) : path_(target + ".XXXXXX") {}
  ~Draft() {
    if (made_) ::unlink(path_.c_str());
  }
  Draft(const Draft &) = delete;
  Draft &operator=(const Draft &) = delete;

  bool make(mode_t mode) {
    const FileHandle file(::mkostemp(path_.data(), O_CLOEXEC));
    made_ = static_cast<bool>(file);
    return made_ && ::fchmod(file.get(), mode) == 0;
  }
  const std::string &path() const { return path_; }
  bool put_in_place(const std::string &target) {
    const FileHandle file = open_file(path_, O_RDONLY);
    if (!file || sync_file(file.get()) != 0) return false;
    if (std::rename(path_.c_str(), target.c_str()) != 0) return false;
    made_ = false;
    return true;
  }

 private:
  std::string path_;
  bool made_ = false;
};

}  // namespace

bool write_safely(const std::string &path,
                  const std::function<bool(const std::string &)> &write) {
  const std::string target = resolved(path);
  struct stat status {};
  const bool present = ::stat(target.c_str(), &status) == 0;
  if (!present && errno != ENOENT) {
    elog_log(1, "cannot look at %s.\n", target.c_str());
    return false;
  }
  if (present && !S_ISREG(status.st_mode)) return write(target);
  Draft draft(target);
  if (!draft.make(present ? status.st_mode & 07777 : mode_of_new_files())) {
    elog_log(1, "cannot make a file beside %s.\n", target.c_str());
    return false;
  }
  if (!write(draft.path())) return false;
  if (draft.put_in_place(target)) return true;
  elog_log(1, "cannot replace %s.\n", target.c_str());
  return false;
}

}  // namespace ksutil::tools

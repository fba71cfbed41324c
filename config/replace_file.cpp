#include "config/internal/replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "platform/stock/files.h"

namespace ksutil {
namespace {

/* Removes a file at the end of its scope unless it has been kept; keeps errno. */
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  ~TemporaryFile() {
    if (path_.empty()) return;
    const int saved = errno;
    unlink(path_.c_str());
    errno = saved;
  }
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;

  bool rename_to(const std::string &target) {
    if (std::rename(path_.c_str(), target.c_str()) != 0) return false;
    path_.clear();
    return true;
  }

 private:
  std::string path_;
};

/* The file that a path means: behind symbolic links, also when the last one leads to a
 * file that is yet to be made.  Empty with errno set when they lead in a circle. */
std::string resolved(const std::string &path) {
  constexpr int kMostLinks = 40;  // as many as the system follows
  std::filesystem::path file = path;
  for (int links = 0; links <= kMostLinks; ++links) {
    std::error_code no_link;
    const std::filesystem::path target = std::filesystem::read_symlink(file, no_link);
    if (no_link) return file.string();
    file = file.parent_path() / target;
  }
  errno = ELOOP;
  return "";
}

/* Creates a new file beside the target, under a name that no leftover of a killed
 * program has. */
FileHandle create_beside(const std::string &target, mode_t mode, std::string &path) {
  for (int n = 0;; ++n) {
    path = target + "." + std::to_string(getpid()) + "-" + std::to_string(n) + ".new";
    FileHandle file = open_file(path, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (file || errno != EEXIST || n == 1000) return file;
  }
}

/* Makes the new name durable; the contents of the file already are. */
void sync_folder_of(const std::string &path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder =
      slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const FileHandle handle = open_file(folder, O_RDONLY | O_DIRECTORY);
  if (handle) sync_file(handle.get());
}

}  // namespace

bool replace_file(const std::string &path, std::string_view text) {
  const std::string target = resolved(path);
  if (target.empty()) return false;
  struct stat old {};
  const bool present = stat(target.c_str(), &old) == 0;
  if (present && !S_ISREG(old.st_mode)) {
    errno = S_ISDIR(old.st_mode) ? EISDIR : EINVAL;
    return false;
  }
  if (present && access(target.c_str(), W_OK) != 0) return false;
  std::string beside;
  FileHandle file = create_beside(target, present ? 0600 : 0666, beside);
  if (!file) return false;
  TemporaryFile made(std::move(beside));  // without an allocation that could fail
  if (present) {
    /* Only a privileged program may give a file away; the mode is set after that, as
     * changing the owner clears bits of it. */
    if (fchown(file.get(), old.st_uid, old.st_gid) != 0) errno = 0;
    if (fchmod(file.get(), old.st_mode & 07777) != 0) return false;
  }
  const auto size = static_cast<ssize_t>(text.size());
  if (write_all(file.get(), text.data(), text.size()) != size) {
    if (errno == 0) errno = EIO;
    return false;
  }
  if (sync_file(file.get()) != 0) return false;
  file.reset();
  if (!made.rename_to(target)) return false;
  sync_folder_of(target);
  return true;
}

}  // namespace ksutil

#include "platform/stock/draft_file.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace ksutil {
namespace {

/* Makes a new name durable; the contents of the file already are. */
void sync_folder_of(const std::string &path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder =
      slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const FileHandle handle = open_file(folder, O_RDONLY | O_DIRECTORY);
  if (handle) sync_file(handle.get());
}

}  // namespace

std::string path_behind_links(const std::string &path) {
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

DraftFile::~DraftFile() {
  if (path_.empty()) return;
  const int cause = errno;
  ::unlink(path_.c_str());
  errno = cause;
}

bool DraftFile::open(const std::string &path) {
  target_ = path_behind_links(path);
  if (target_.empty()) return false;
  struct stat old {};
  const bool present = ::stat(target_.c_str(), &old) == 0;
  if (!present && errno != ENOENT) return false;
  if (present && !S_ISREG(old.st_mode)) {
    errno = S_ISDIR(old.st_mode) ? EISDIR : EINVAL;
    return false;
  }
  if (present && existing_ == Existing::kKeep) {
    errno = EEXIST;
    return false;
  }
  if (present && ::access(target_.c_str(), W_OK) != 0) return false;
  if (!make_beside(present ? 0600 : 0666)) return false;
  if (!present) return true;
  /* Only a privileged program may give a file away.  The mode is set after that, as
   * changing the owner clears bits of it. */
  if (::fchown(file_.get(), old.st_uid, old.st_gid) != 0) errno = 0;
  return ::fchmod(file_.get(), old.st_mode & 07777) == 0;
}

bool DraftFile::open_or_device(const std::string &path) {
  struct stat there {};
  const bool special = ::stat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode) &&
                       !S_ISDIR(there.st_mode);
  if (!special) return open(path);
  file_ = open_file(path, O_WRONLY);
  return static_cast<bool>(file_);
}

/* Creates the draft under a name that no draft of a killed process has. */
bool DraftFile::make_beside(mode_t mode) {
  const std::size_t name = target_.rfind('/') + 1;
  constexpr int kMostNames = 1000;
  for (int n = 0; n <= kMostNames; ++n) {
    const std::string end =
        "." + std::to_string(::getpid()) + "-" + std::to_string(n) + ".new";
    std::string beside =
        target_.substr(0, std::min(target_.size(), name + NAME_MAX - end.size()));
    beside += end;
    file_ = open_file(beside, O_RDWR | O_CREAT | O_EXCL, mode);
    if (file_) {
      path_ = std::move(beside);
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

bool DraftFile::write(std::string_view bytes) {
  errno = 0;
  if (write_all(file_.get(), bytes.data(), bytes.size()) ==
      static_cast<ssize_t>(bytes.size())) {
    return true;
  }
  if (errno == 0) errno = EIO;
  return false;
}

bool DraftFile::take_name() {
  if (existing_ == Existing::kKeep) {
    /* A link, unlike a new name, never takes the place of a file that came meanwhile; some
     * file systems have none. */
    if (::link(path_.c_str(), target_.c_str()) == 0) {
      ::unlink(path_.c_str());
      return true;
    }
    if (errno == EEXIST) return false;
  }
  return std::rename(path_.c_str(), target_.c_str()) == 0;
}

bool DraftFile::put_in_place() {
  if (path_.empty()) return true;
  if (sync_ == Sync::kNow && sync_file(file_.get()) != 0) return false;
  file_.reset();
  if (!take_name()) return false;
  path_.clear();
  if (sync_ == Sync::kNow) sync_folder_of(target_);
  return true;
}

}  // namespace ksutil

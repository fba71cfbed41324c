#include "platform/db/store/internal/flat_replacement.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

namespace ksutil::db {
namespace {

constexpr std::size_t kReplacementBuffer = std::size_t{1} << 20;

constexpr const char *kEnding = ".replacement";

bool refuse(const std::string &table, const char *what) {
  return fail_errno("dbput", "%s: %s", table.c_str(), what);
}

/* The new name of a file is data of its folder. */
void sync_folder_of(const std::string &path) {
  const FileHandle folder =
      open_file(path.substr(0, path.rfind('/') + 1), O_RDONLY | O_DIRECTORY);
  if (folder) sync_file(folder.get());
}

}  // namespace

std::string hidden_name_beside(const std::string &path, const char *ending) {
  const std::size_t slash = path.rfind('/') + 1;
  return path.substr(0, slash) + "." + path.substr(slash) + ending;
}

std::string real_path(const std::string &path) {
  const MallocPtr<char> real(::realpath(path.c_str(), nullptr));
  return real == nullptr ? std::string() : std::string(real.get());
}

bool take_owner_and_mode(int fd, const struct stat &of) {
  if (::fchown(fd, of.st_uid, of.st_gid) != 0 &&
      ::fchown(fd, static_cast<uid_t>(-1), of.st_gid) != 0) {
    errno = 0;
  }
  return ::fchmod(fd, of.st_mode & 07777) == 0;
}

FlatReplacement::~FlatReplacement() {
  if (!path_.empty()) ::unlink(path_.c_str());
}

bool FlatReplacement::make(const std::string &table, int old) {
  struct stat before;
  target_ = real_path(table);
  if (target_.empty() || ::fstat(old, &before) != 0) {
    return refuse(table, "Cannot look at the file");
  }
  std::string beside = hidden_name_beside(target_, kEnding);
  /* The table is locked and the journal made: no living process has such a file. */
  ::unlink(beside.c_str());
  file_ = open_file(beside, O_RDWR | O_CREAT | O_EXCL, before.st_mode & 0777);
  if (!file_) return refuse(table, "Cannot make a file beside it");
  path_ = std::move(beside);
  return take_owner_and_mode(file_.get(), before) ||
         refuse(table, "Cannot set the permissions of the new file");
}

bool FlatReplacement::flush() {
  const auto bytes = static_cast<std::int64_t>(waiting_.size());
  errno = 0;
  if (write_at(file_.get(), waiting_.data(), waiting_.size(), size_ - bytes) != bytes) {
    if (errno == 0) errno = EIO;
    return refuse(target_, "Cannot write the new file");
  }
  waiting_.clear();
  return true;
}

bool FlatReplacement::append(std::string_view rows) {
  waiting_ += rows;
  size_ += static_cast<std::int64_t>(rows.size());
  return waiting_.size() < kReplacementBuffer || flush();
}

bool FlatReplacement::finish() {
  return (waiting_.empty() || flush()) &&
         (sync_file(file_.get()) == 0 ||
          refuse(target_, "Cannot bring the records to disk"));
}

bool FlatReplacement::put_in_place() {
  if (std::rename(path_.c_str(), target_.c_str()) != 0) {
    return refuse(target_, "Cannot put the new file in its place");
  }
  path_.clear();
  sync_folder_of(target_);
  return true;
}

bool FlatReplacement::finish_for(const std::string &table, std::int64_t size) {
  const std::string target = real_path(table);
  struct stat status;
  if (target.empty()) return refuse(table, "Cannot look at the file");
  const std::string beside = hidden_name_beside(target, kEnding);
  const bool waits = ::stat(beside.c_str(), &status) == 0;
  if (!waits && (errno != ENOENT || ::stat(target.c_str(), &status) != 0)) {
    return refuse(table, "Cannot look at the file");
  }
  if (status.st_size != size) {
    return fail("dbput", "%s: The rows of an interrupted change are not whole",
                table.c_str());
  }
  if (!waits) return true;
  if (std::rename(beside.c_str(), target.c_str()) != 0) {
    return refuse(table, "Cannot put the new file in its place");
  }
  sync_folder_of(target);
  return true;
}

void FlatReplacement::remove_for(const std::string &table) {
  const std::string target = real_path(table);
  if (!target.empty()) ::unlink(hidden_name_beside(target, kEnding).c_str());
}

}  // namespace ksutil::db

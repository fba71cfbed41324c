/* files: the file operations of the platform, which tests can replace to refuse a
 * write, shorten a read or fill a disk.
 *
 * Results and errno are those of the system calls.  The read and write functions
 * continue after EINTR and short transfers, so that a short count means end of file or
 * an error. */
#ifndef KSUTIL_PLATFORM_STOCK_FILES_H
#define KSUTIL_PLATFORM_STOCK_FILES_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <utility>

#include "platform/stock/export.h"

namespace ksutil {

/* The system calls behind the functions below.  A test installs a table of its own for
 * a scope with ScopedFileCalls; only one table may be installed at a time. */
struct FileCalls {
  int (*open)(const char *path, int flags, mode_t mode);
  ssize_t (*pread)(int fd, void *to, std::size_t bytes, off_t at);
  ssize_t (*pwrite)(int fd, const void *from, std::size_t bytes, off_t at);
  ssize_t (*read)(int fd, void *to, std::size_t bytes);
  ssize_t (*write)(int fd, const void *from, std::size_t bytes);
  int (*fsync)(int fd);
  int (*ftruncate)(int fd, off_t size);
};

/* The system's own calls.  Copy the table and change the calls to be replaced. */
KSUTIL_API const FileCalls &system_file_calls();

class KSUTIL_API ScopedFileCalls {
 public:
  explicit ScopedFileCalls(const FileCalls &calls);
  ~ScopedFileCalls();
  ScopedFileCalls(const ScopedFileCalls &) = delete;
  ScopedFileCalls &operator=(const ScopedFileCalls &) = delete;

 private:
  FileCalls calls_;
};

/* Owns an open descriptor and closes it at the end of the scope; -1: holds none. */
class KSUTIL_API FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(int fd) : fd_(fd) {}
  ~FileHandle() { reset(); }
  FileHandle(FileHandle &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileHandle &operator=(FileHandle &&other) noexcept;
  FileHandle(const FileHandle &) = delete;
  FileHandle &operator=(const FileHandle &) = delete;

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  void reset();

 private:
  int fd_ = -1;
};

/* open(2) with O_CLOEXEC; an empty handle with errno set on failure. */
KSUTIL_API FileHandle open_file(const std::string &path, int flags, mode_t mode = 0666);

/* Transfer all bytes.  Return the number of bytes transferred, -1 after an error before
 * the first byte.  After a short count errno is 0 at the end of the file, else the
 * error. */
KSUTIL_API ssize_t read_at(int fd, void *to, std::size_t bytes, off_t at);
KSUTIL_API ssize_t write_at(int fd, const void *from, std::size_t bytes, off_t at);
KSUTIL_API ssize_t read_all(int fd, void *to, std::size_t bytes);
KSUTIL_API ssize_t write_all(int fd, const void *from, std::size_t bytes);
KSUTIL_API int sync_file(int fd);
KSUTIL_API int truncate_file(int fd, off_t size);

/* Whether two looks found one and the same file. */
inline bool same_file(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/* Reads a whole file; false with errno set (EFBIG when it is larger than `limit`
 * bytes). */
KSUTIL_API bool read_file(const std::string &path, std::size_t limit,
                          std::string &text);

/* Holds the exclusive advisory lock of a file for one scope.  The lock belongs to the
 * open file description, so that it also excludes other threads of the process.  In a
 * forked child the end of the scope leaves the parent's lock in place. */
class KSUTIL_API FileLock {
 public:
  enum class Wait { kUntilFree, kNever };

  /* Takes the lock.  Check held(): if it is false, errno is the reason, EAGAIN when the
   * lock is taken and `wait` is kNever. */
  explicit FileLock(int fd, Wait wait = Wait::kUntilFree);
  ~FileLock();
  FileLock(const FileLock &) = delete;
  FileLock &operator=(const FileLock &) = delete;
  bool held() const { return held_; }

 private:
  int fd_;
  pid_t owner_;  // a forked child shares the lock and must not release it
  bool held_;
};

}  // namespace ksutil
#endif

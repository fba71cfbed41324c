#include "platform/stock/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>

namespace {

using ksutil::FileCalls;

int real_open(const char *path, int flags, mode_t mode) {
  return ::open(path, flags, mode);
}

constexpr FileCalls kSystemCalls = {real_open, ::pread, ::pwrite,   ::read,
                                    ::write,   ::fsync, ::ftruncate};

std::atomic<const FileCalls *> current_calls{&kSystemCalls};

const FileCalls &calls() { return *current_calls.load(std::memory_order_acquire); }

/* Repeats a call that a signal interrupted. */
template <class Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

/* Repeats `move(done, rest)` until all bytes are transferred, the file ends or an error
 * occurs.  `end_error` becomes errno when a call transfers nothing. */
template <class Move>
ssize_t whole(std::size_t bytes, int end_error, Move move) {
  std::size_t done = 0;
  while (done < bytes) {
    const ssize_t moved = uninterrupted([&] { return move(done, bytes - done); });
    if (moved < 0) return done > 0 ? static_cast<ssize_t>(done) : -1;
    if (moved == 0) {
      errno = end_error;
      if (end_error != 0 && done == 0) return -1;
      break;
    }
    done += static_cast<std::size_t>(moved);
  }
  return static_cast<ssize_t>(done);
}

int lock_file(int fd, int command, short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return uninterrupted([&] { return ::fcntl(fd, command, &lock); });
}

}  // namespace

namespace ksutil {

const FileCalls &system_file_calls() { return kSystemCalls; }

ScopedFileCalls::ScopedFileCalls(const FileCalls &table) : calls_(table) {
  current_calls.store(&calls_, std::memory_order_release);
}

ScopedFileCalls::~ScopedFileCalls() {
  current_calls.store(&kSystemCalls, std::memory_order_release);
}

FileHandle &FileHandle::operator=(FileHandle &&other) noexcept {
  if (this != &other) {
    reset();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

/* Keeps errno: it may be that of the failure that ends the handle's scope. */
void FileHandle::reset() {
  if (fd_ < 0) return;
  const int saved = errno;
  ::close(std::exchange(fd_, -1));
  errno = saved;
}

FileHandle open_file(const std::string &path, int flags, mode_t mode) {
  return FileHandle(uninterrupted(
      [&] { return calls().open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

ssize_t read_at(int fd, void *to, std::size_t bytes, off_t at) {
  return whole(bytes, 0, [&](std::size_t done, std::size_t rest) {
    return calls().pread(fd, static_cast<char *>(to) + done, rest,
                         at + static_cast<off_t>(done));
  });
}

ssize_t write_at(int fd, const void *from, std::size_t bytes, off_t at) {
  return whole(bytes, ENOSPC, [&](std::size_t done, std::size_t rest) {
    return calls().pwrite(fd, static_cast<const char *>(from) + done, rest,
                          at + static_cast<off_t>(done));
  });
}

ssize_t read_all(int fd, void *to, std::size_t bytes) {
  return whole(bytes, 0, [&](std::size_t done, std::size_t rest) {
    return calls().read(fd, static_cast<char *>(to) + done, rest);
  });
}

ssize_t write_all(int fd, const void *from, std::size_t bytes) {
  return whole(bytes, ENOSPC, [&](std::size_t done, std::size_t rest) {
    return calls().write(fd, static_cast<const char *>(from) + done, rest);
  });
}

int sync_file(int fd) {
  return uninterrupted([&] { return calls().fsync(fd); });
}

int truncate_file(int fd, off_t size) {
  return uninterrupted([&] { return calls().ftruncate(fd, size); });
}

bool read_file(const std::string &path, std::size_t limit, std::string &text) try {
  const FileHandle file = open_file(path, O_RDONLY);
  if (!file) return false;
  std::string content;
  /* Reads to the end instead of asking for the size: the size may change, and special
   * files have none. */
  for (std::size_t step = 65536;; step = std::min<std::size_t>(step * 2, 1 << 24)) {
    const std::size_t before = content.size();
    /* Reads one byte beyond the limit: a file that just fits does not have it. */
    const std::size_t room = limit - before;
    const std::size_t wanted = room < step ? room + 1 : step;
    content.resize(before + wanted);
    const ssize_t got = read_all(file.get(), content.data() + before, wanted);
    if (got < 0) return false;
    const auto taken = static_cast<std::size_t>(got);
    if (taken < wanted && errno != 0) return false;
    content.resize(before + taken);
    if (content.size() > limit) {
      errno = EFBIG;
      return false;
    }
    if (taken < wanted) break;
  }
  text = std::move(content);
  return true;
} catch (const std::bad_alloc &) {
  errno = ENOMEM;
  return false;
}

FileLock::FileLock(int fd, Wait wait)
    : fd_(fd),
      owner_(::getpid()),
      held_(lock_file(fd, wait == Wait::kNever ? F_OFD_SETLK : F_OFD_SETLKW, F_WRLCK) ==
            0) {}

FileLock::~FileLock() {
  if (!held_ || ::getpid() != owner_) return;
  const int saved = errno;
  lock_file(fd_, F_OFD_SETLK, F_UNLCK);
  errno = saved;
}

}  // namespace ksutil

/* List files for tests: a scratch folder, whole files as texts, and a disk that stops
 * taking bytes at a chosen one, as when the writer is killed there. */
#ifndef KSUTIL_TESTS_PLATFORM_TRACE_LIST_FILES_H
#define KSUTIL_TESTS_PLATFORM_TRACE_LIST_FILES_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "platform/trace/filetbl.h"
#include "tests/support/folder.h"
#include "tests/support/register.h"

namespace ksutil::test {

class ListFolder : public testing::Test {
 protected:
  ListFolder() : file_(folder_ / "list") { elog_clear_register(0); }

  static std::string read(const std::string &path) { return read_file(path); }
  /* Writes over what is there: a file system may take milliseconds to empty a file. */
  static void write(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::app).close();
    std::ofstream(path, std::ios::binary | std::ios::in | std::ios::out) << bytes;
    std::filesystem::resize_file(path, bytes.size());
  }
  static std::string messages() { return taken_messages(); }

 private:
  const TempFolder folder_;

 protected:
  const std::string file_;
};

/* Takes `bytes` more bytes; then every write fails. */
class FullDisk {
 public:
  explicit FullDisk(long bytes) : scope_(calls()) { room() = bytes; }
  static bool full() { return room() < 0; }

 private:
  static long &room() {
    static long bytes = 0;
    return bytes;
  }
  static FileCalls calls() {
    FileCalls calls = system_file_calls();
    calls.pwrite = [](int fd, const void *from, std::size_t n, off_t at) -> ssize_t {
      const auto taken = std::min(static_cast<long>(n), std::max(room(), 0L));
      room() = static_cast<long>(n) > room() ? -1 : room() - taken;
      if (taken > 0) return ::pwrite(fd, from, static_cast<std::size_t>(taken), at);
      errno = ENOSPC;
      return -1;
    };
    calls.ftruncate = [](int fd, off_t size) -> int {
      if (full()) {
        errno = EIO;
        return -1;
      }
      return ::ftruncate(fd, size);
    };
    return calls;
  }
  const ScopedFileCalls scope_;
};

}  // namespace ksutil::test
#endif

/* Tables, parameter files and histories are read and written through these functions.  A
 * short transfer taken for a whole one is a damaged database. */
#include "platform/stock/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "platform/stock/fspath.h"
#include "platform/stock/memory.h"
#include "tests/support/folder.h"

namespace {

namespace fs = std::filesystem;

class Files : public testing::Test {
 protected:
  void TearDown() override { ksutil::set_mount_table(nullptr); }
  std::string path(const char *name) const { return (folder_ / name).string(); }
  void write(const char *name, const std::string &text) const {
    std::ofstream(path(name)) << text;
  }

  const ksutil::test::TempFolder temporary_;
  const fs::path folder_ = fs::canonical(temporary_.path());
};

/* Each call is interrupted once and then moves at most three bytes. */
std::atomic<int> interruptions{0};
template <class Move>
ssize_t in_small_steps(std::size_t bytes, Move move) {
  if (interruptions++ % 2 == 0) {
    errno = EINTR;
    return -1;
  }
  return move(bytes < 3 ? bytes : 3);
}

ksutil::FileCalls small_steps() {
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.read = [](int fd, void *to, std::size_t n) {
    return in_small_steps(n, [&](std::size_t few) { return ::read(fd, to, few); });
  };
  calls.write = [](int fd, const void *from, std::size_t n) {
    return in_small_steps(n, [&](std::size_t few) { return ::write(fd, from, few); });
  };
  calls.pread = [](int fd, void *to, std::size_t n, off_t at) {
    return in_small_steps(n, [&](std::size_t few) { return ::pread(fd, to, few, at); });
  };
  calls.pwrite = [](int fd, const void *from, std::size_t n, off_t at) {
    return in_small_steps(n,
                          [&](std::size_t few) { return ::pwrite(fd, from, few, at); });
  };
  return calls;
}

TEST_F(Files, TransfersAreWholeInSpiteOfSignalsAndShortCounts) {
  const ksutil::ScopedFileCalls scope(small_steps());
  const auto file = ksutil::open_file(path("f"), O_RDWR | O_CREAT);
  ASSERT_TRUE(file);
  EXPECT_EQ(ksutil::write_all(file.get(), "0123456789", 10), 10);
  EXPECT_EQ(ksutil::write_at(file.get(), "abcdefgh", 8, 6), 8);
  char room[32] = {};
  EXPECT_EQ(ksutil::read_at(file.get(), room, sizeof room, 1), 13);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(std::string(room), "12345abcdefgh");
  std::string text;
  EXPECT_TRUE(ksutil::read_file(path("f"), 14, text));
  EXPECT_EQ(text, "012345abcdefgh");
}

TEST_F(Files, AFullDiskShowsInCountAndErrno) {
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.pwrite = [](int fd, const void *from, std::size_t n, off_t at) -> ssize_t {
    if (at >= 4) {
      errno = ENOSPC;
      return -1;
    }
    return ::pwrite(fd, from, n < 4 ? n : 4, at);
  };
  calls.write = [](int, const void *, std::size_t) -> ssize_t { return 0; };
  const ksutil::ScopedFileCalls scope(calls);
  const auto file = ksutil::open_file(path("f"), O_RDWR | O_CREAT);
  EXPECT_EQ(ksutil::write_at(file.get(), "012345", 6, 0), 4);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(ksutil::write_at(file.get(), "45", 2, 4), -1);
  errno = 0;
  EXPECT_EQ(ksutil::write_all(file.get(), "x", 1), -1);  // nothing written, no reason
  EXPECT_EQ(errno, ENOSPC);
}

TEST_F(Files, ReadFileKeepsItsLimitAndTellsWhy) {
  write("exact", std::string(200000, 'x'));
  std::string text = "before";
  EXPECT_FALSE(ksutil::read_file(path("exact"), 199999, text));
  EXPECT_EQ(errno, EFBIG);
  EXPECT_FALSE(ksutil::read_file("/dev/zero", 100000, text));
  EXPECT_EQ(errno, EFBIG);
  EXPECT_FALSE(ksutil::read_file(path("absent"), 10, text));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(ksutil::read_file(folder_.string(), 10, text));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(text, "before");
  EXPECT_TRUE(ksutil::read_file(path("exact"), 200000, text));
  EXPECT_EQ(text.size(), 200000u);
  write("empty", "");
  EXPECT_TRUE(ksutil::read_file(path("empty"), SIZE_MAX, text));
  EXPECT_EQ(text, "");
}

TEST_F(Files, AnErrorInTheMiddleOfAFileIsNoEnd) {
  write("f", std::string(100, 'x'));
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.read = [](int fd, void *to, std::size_t) -> ssize_t {
    if (lseek(fd, 0, SEEK_CUR) == 0) return ::read(fd, to, 50);
    errno = EIO;
    return -1;
  };
  const ksutil::ScopedFileCalls scope(calls);
  std::string text;
  EXPECT_FALSE(ksutil::read_file(path("f"), 1000, text));
  EXPECT_EQ(errno, EIO);
}

TEST_F(Files, LocksExcludeThreadsOfOneProcess) {
  write("f", "");
  int value = 0;  // guarded by the file's lock alone
  const auto work = [&] {
    for (int i = 0; i < 200; ++i) {
      const auto file = ksutil::open_file(path("f"), O_RDWR);
      const ksutil::FileLock lock(file.get());
      ASSERT_TRUE(lock.held());
      const int seen = __atomic_load_n(&value, __ATOMIC_RELAXED);
      std::this_thread::yield();
      __atomic_store_n(&value, seen + 1, __ATOMIC_RELAXED);
    }
  };
  std::thread first(work), second(work);
  first.join();
  second.join();
  EXPECT_EQ(value, 400);
  const ksutil::FileLock bad(-1);
  EXPECT_FALSE(bad.held());
  EXPECT_EQ(errno, EBADF);
}

struct Place {
  int result = 0;
  std::string local, host;
};

Place place_of(const std::string &path) {
  char *local = nullptr, *host = nullptr;
  Place place;
  place.result = fspath(path.c_str(), &local, &host);
  const ksutil::MallocPtr<char> local_text(local), host_text(host);
  if (local != nullptr) place.local = local;
  if (host != nullptr) place.host = host;
  return place;
}

TEST_F(Files, FspathFindsTheServerOfTheInnermostMount) {
  for (const char *name : {"net", "net/disk", "net/with blank", "network", "smb", "v6",
                           "fuse", "auto", "afs", "guest"}) {
    fs::create_directory(folder_ / name);
  }
  const std::string at = folder_.string();
  write("mounts",
        "/dev/sda1 / ext4 rw 0 0\n"
        "old:/x " +
            at +
            "/net nfs rw 0 0\n"
            "server.example:/export " +
            at +
            "/net nfs4 rw 0 0\n"
            "/dev/sdb1 " +
            at +
            "/net/disk xfs rw 0 0\n"
            "blank:/b " +
            at +
            "/net/with\\040blank nfs rw 0 0\n"
            "//files/share " +
            at +
            "/smb cifs rw 0 0\n"
            "[fe80::1]:/e " +
            at +
            "/v6 nfs rw 0 0\n"
            "me@far:/home " +
            at +
            "/fuse fuse.sshfs rw 0 0\n"
            "AFS " +
            at +
            "/afs afs rw 0 0\n"
            "host:/x " +
            at +
            "/guest 9p rw 0 0\n"
            "broken\n");
  ksutil::set_mount_table(path("mounts").c_str());
  EXPECT_EQ(place_of(path("net/new")).host, "server.example");
  EXPECT_EQ(place_of(path("net/new")).local, at + "/net/new");
  EXPECT_EQ(place_of(path("net/disk")).host, "");
  EXPECT_EQ(place_of(path("net/with blank")).host, "blank");
  EXPECT_EQ(place_of(path("network/x")).host, "");
  EXPECT_EQ(place_of(path("smb")).host, "files");
  EXPECT_EQ(place_of(path("v6")).host, "fe80::1");
  EXPECT_EQ(place_of(path("fuse/x")).host, "far");
  EXPECT_EQ(place_of(path("afs")).host, "afs");
  EXPECT_EQ(place_of(path("guest")).host, "");
  fs::create_symlink(folder_ / "net", folder_ / "link");
  EXPECT_EQ(place_of(path("link/../net/./x")).local, at + "/net/x");
  EXPECT_EQ(place_of(path("link/x")).host, "server.example");
}

TEST_F(Files, FspathRefusesWhatCannotExist) {
  write("f", "");
  for (const char *name : {"absent/x", "f/x", "absent/", "absent/.."}) {
    const Place place = place_of(path(name));
    EXPECT_EQ(place.result, -1) << name;
    EXPECT_EQ(place.local + place.host, "") << name;
  }
  EXPECT_EQ(place_of("").result, -1);
  EXPECT_EQ(place_of("/").local, "/");
  EXPECT_EQ(place_of("/no_such_file_at_the_root").local, "/no_such_file_at_the_root");
  for (int n = 1; n <= 2; ++n) {
    ks_test_fail_alloc(n);
    EXPECT_EQ(place_of(path("f")).result, -1);
  }
  ks_test_fail_alloc(0);
}

}  // namespace

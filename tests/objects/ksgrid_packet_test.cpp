/* Packets come from other machines: a lying count must not take memory, a short transfer
 * must not shift all that follows, and a damaged packet must not replace a good grid. */
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <random>
#include <thread>

#include "platform/stock/bytes.h"
#include "platform/stock/files.h"
#include "tests/objects/ksgrid_support.h"

namespace {

using ksutil::FileHandle;
using testing::HasSubstr;

OwnedGrid blank() {
  return OwnedGrid(static_cast<KSGrid *>(std::calloc(1, sizeof(KSGrid))));
}

OwnedGrid sample_grid() {
  OwnedGrid grid = new_grid({1, 2, 4}, {-1, 8}, nullptr, "beam power");
  const Floats frames = {1, 2, 3, 4, 5, 6, -1, -2, -3, -4, NAN, grid->gapval};
  EXPECT_EQ(ksgrid_put_ksgrid(grid.get(), 2, frames.data(), 1e9 + 0.25, 0.1), 0);
  for (int i = 0; i < 20; ++i) grid->params[i] = i / 8.0;
  return grid;
}

std::string stuffed(const KSGrid &grid) {
  char *packet = nullptr;
  int nbytes = 0, allocated = 0;
  EXPECT_EQ(ksgrid_stuff_ksgrid(&grid, &packet, &nbytes, &allocated), 0);
  const ksutil::MallocPtr<char> owned(packet);
  return {packet, static_cast<std::size_t>(nbytes)};
}

int unstuff(const std::string &packet, KSGrid *grid) {
  /* A copy of its exact size, so that the sanitizer sees a read beyond the end. */
  const std::vector<char> exact(packet.begin(), packet.end());
  return ksgrid_unstuff(exact.data(), static_cast<int>(exact.size()), grid);
}

TEST(KsgridPacket, HoldsEverythingInMachineIndependentOrder) {
  const OwnedGrid grid = new_grid({1.5F, 2}, {-2}, nullptr, "n");
  const Floats frame = {4, 0.25F};
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 1, frame.data(), 2.0, 0.5), 0);
  grid->params[19] = -1;
  const auto bytes = [](std::initializer_list<unsigned> list) {
    return std::string(list.begin(), list.end());
  };
  const std::string zeros(19 * 8, '\0');
  EXPECT_EQ(stuffed(*grid),
            bytes({0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 1}) +
                bytes({0x40, 0, 0, 0, 0, 0, 0, 0, 0x3f, 0xe0, 0, 0, 0, 0, 0, 0}) +
                zeros + bytes({0xbf, 0xf0, 0, 0, 0, 0, 0, 0}) +
                bytes({0x3f, 0xc0, 0, 0, 0x40, 0, 0, 0, 0xc0, 0, 0, 0}) +
                bytes({0x40, 0x80, 0, 0, 0x3e, 0x80, 0, 0}) +
                std::string("n\0east\0km\0\0\0north\0first\0\0", 25));
}

TEST(KsgridPacket, ReadsIntoGridsAndZeroedRecords) {
  const OwnedGrid grid = sample_grid(), zeroed = blank();
  char tag[KS_TAG_SIZE];
  const OwnedGrid other = new_grid({0}, {0}, tag, "other");
  other->gapval = -7;
  other->order = 0;
  const std::string packet = stuffed(*grid);
  ASSERT_EQ(unstuff(packet, zeroed.get()), 0);
  ASSERT_EQ(unstuff(packet, other.get()), 0);
  for (const KSGrid *read : {zeroed.get(), other.get()}) {
    EXPECT_EQ(stuffed(*read), packet);
    EXPECT_STREQ(read->ytext2, "north");
    EXPECT_EQ(read->text2, nullptr);
    EXPECT_EQ(node(*read, 1, 2, 0), -3);
    EXPECT_EQ(read->ndata, 12);
  }
  EXPECT_EQ(zeroed->gapval, grid->gapval);
  EXPECT_EQ(zeroed->order, 1);
  EXPECT_EQ(other->gapval, -7);
  EXPECT_EQ(other->order, 0);
  EXPECT_EQ(ksgrid_get_grid(tag), other.get());
}

TEST(KsgridPacket, ReusesAndGrowsTheCallersBuffer) {
  const OwnedGrid grid = sample_grid();
  const std::string packet = stuffed(*grid);
  const int size = static_cast<int>(packet.size());
  char *buffer = static_cast<char *>(std::malloc(8));
  int nbytes = 0, allocated = 8;
  ks_test_fail_alloc(1);
  EXPECT_EQ(ksgrid_stuff_ksgrid(grid.get(), &buffer, &nbytes, &allocated), -1);
  EXPECT_THAT(taken_messages(),
              testing::StartsWith("ksgrid_stuff_ksgrid: realloc(packet," +
                                  std::to_string(size) + ") error.\n"));
  EXPECT_EQ(allocated, 8);
  ASSERT_EQ(ksgrid_stuff_ksgrid(grid.get(), &buffer, &nbytes, &allocated), 0);
  EXPECT_EQ(allocated, size);
  char *const before = buffer;
  ASSERT_EQ(ksgrid_trim_ksgrid(grid.get(), 1), 0);
  ASSERT_EQ(ksgrid_stuff_ksgrid(grid.get(), &buffer, &nbytes, &allocated), 0);
  const ksutil::MallocPtr<char> owned(buffer);
  EXPECT_EQ(buffer, before);
  EXPECT_EQ(allocated, size);
  EXPECT_EQ(nbytes, size - 24);
}

/* Whatever is accepted must be a grid of exactly these bytes; whatever is refused must
 * leave the grid. */
void expect_sound(const std::string &packet) {
  const OwnedGrid grid = new_grid({0, 1}, {0}, nullptr, "kept");
  const std::string before = stuffed(*grid);
  if (unstuff(packet, grid.get()) == 0) {
    EXPECT_EQ(stuffed(*grid), packet);
  } else {
    EXPECT_EQ(stuffed(*grid), before);
    EXPECT_EQ(taken_messages(), "ksgrid_unstuff: Illegal packet.\n");
  }
}

TEST(KsgridPacket, DamagedOnesAreRefusedOrHarmless) {
  const std::string packet = stuffed(*sample_grid());
  const OwnedGrid grid = blank();
  for (std::size_t size = 0; size < packet.size(); ++size) {
    EXPECT_EQ(unstuff(packet.substr(0, size), grid.get()), -1) << size;
  }
  EXPECT_EQ(unstuff(packet + '\0', grid.get()), -1);
  EXPECT_EQ(grid->x, nullptr);
  elog_clear_register(0);
  std::mt19937 random(3);
  for (int round = 0; round < 4000; ++round) {
    std::string damaged = packet;
    for (auto flips = 1 + random() % 3; flips > 0; --flips) {
      /* The counts and the texts decide: they are hit more often than their share. */
      const std::size_t at = random() % 3 == 0   ? random() % 12
                             : random() % 2 == 0 ? packet.size() - 1 - random() % 40
                                                 : random() % packet.size();
      damaged[at] = static_cast<char>(random() % 3 == 0 ? 0 : random());
    }
    expect_sound(damaged);
  }
  /* Counts whose product overflows to what fits. */
  for (const auto &[nx, ny, nframes] :
       {std::tuple(1 << 16, 1 << 16, 1 << 16), std::tuple(1 << 30, 4, 1 << 2),
        std::tuple(-3, -2, 2), std::tuple(3, 2, -2), std::tuple(0, 2, 2),
        std::tuple(0x7fffffff, 0x7fffffff, 0x7fffffff)}) {
    const std::int32_t counts[] = {nx, ny, nframes};
    std::string damaged = packet;
    hi2mi(counts, damaged.data(), 3);
    EXPECT_EQ(unstuff(damaged, grid.get()), -1);
    elog_clear_register(0);
  }
}

/* Axes whose product is not a count of values, in a packet that they fill exactly. */
TEST(KsgridPacket, TooManyNodesAreRefusedEvenWithoutFrames) {
  constexpr std::int32_t kCounts[] = {60000, 60000, 0};
  std::string packet(12 + 22 * 8 + 4 * 120000 + 8, '\0');
  hi2mi(kCounts, packet.data(), 3);
  const OwnedGrid grid = blank();
  EXPECT_EQ(unstuff(packet, grid.get()), -1);
  EXPECT_EQ(taken_messages(), "ksgrid_unstuff: Illegal packet.\n");
}

struct Pipe {
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    out = FileHandle(ends[0]);
    in = FileHandle(ends[1]);
  }
  FileHandle out, in;
};

/* Transfers of a few bytes, between signals. */
std::size_t few(std::size_t bytes) {
  thread_local unsigned calls = 0;
  if (++calls % 3 != 0) return std::min<std::size_t>(bytes, 1 + calls % 7);
  errno = EINTR;
  return 0;
}
ssize_t read_few(int fd, void *to, std::size_t bytes) {
  const std::size_t n = few(bytes);
  return n == 0 ? -1 : ::read(fd, to, n);
}
ssize_t write_few(int fd, const void *from, std::size_t bytes) {
  const std::size_t n = few(bytes);
  return n == 0 ? -1 : ::write(fd, from, n);
}

TEST(KsgridStream, GoesOnAfterShortTransfersAndSignals) {
  const OwnedGrid grid = sample_grid(), read = blank();
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.read = read_few;
  calls.write = write_few;
  const ksutil::ScopedFileCalls scope(calls);
  Pipe pipe;
  for (int i = 0; i < 3; ++i)
    ASSERT_EQ(ksgrid_write_fd_ksgrid(grid.get(), pipe.in.get()), 0);
  pipe.in.reset();
  const std::string packet = stuffed(*grid);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(ksgrid_read_fd(pipe.out.get(), read.get()), packet.size());
    EXPECT_EQ(stuffed(*read), packet);
  }
  EXPECT_EQ(ksgrid_read_fd(pipe.out.get(), read.get()), 0);
  EXPECT_EQ(taken_messages(), "");
}

/* A grid larger than the socket's buffers and than the first buffer of the reader, with
 * both ends in non-blocking mode. */
TEST(KsgridStream, WaitsForSocketsThatDoNotBlock) {
  Floats axis(300);
  for (std::size_t i = 0; i < axis.size(); ++i) axis[i] = static_cast<float>(i);
  const OwnedGrid grid = new_grid(axis, axis), read = blank();
  Floats frame(axis.size() * axis.size());
  for (std::size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<float>(i);
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 1, frame.data(), 0, 1), 0);
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends),
            0);
  const FileHandle reader(ends[0]), writer(ends[1]);
  std::thread writing(
      [&] { EXPECT_EQ(ksgrid_write_fd_ksgrid(grid.get(), ends[1]), 0); });
  EXPECT_GT(ksgrid_read_fd(ends[0], read.get()), 360000);
  writing.join();
  EXPECT_EQ(values(*read), frame);
}

std::string read_failure(const std::string &bytes) {
  Pipe pipe;
  EXPECT_EQ(write(pipe.in.get(), bytes.data(), bytes.size()), bytes.size());
  pipe.in.reset();
  const OwnedGrid grid = blank();
  EXPECT_EQ(ksgrid_read_fd(pipe.out.get(), grid.get()), -1);
  return taken_messages();
}

std::string announced(int nbytes) {
  return {reinterpret_cast<const char *>(&nbytes), 4};
}

TEST(KsgridStream, TellsWhatIsWrong) {
  const std::string packet = stuffed(*sample_grid());
  EXPECT_EQ(read_failure("abc"), "ksgrid_read_fd: read(nbytes,4) error.\n");
  EXPECT_EQ(read_failure(announced(0) + packet), "ksgrid_read_fd: nbytes < 1.\n");
  EXPECT_EQ(read_failure(announced(-5) + packet), "ksgrid_read_fd: nbytes < 1.\n");
  EXPECT_EQ(read_failure(announced(1000) + packet),
            "ksgrid_read_fd: read(packet,1000) error.\n");
  EXPECT_EQ(read_failure(announced(200) + packet),
            "ksgrid_unstuff: Illegal packet.\n"
            "ksgrid_read_fd: ksgrid_unstuff() error.\n");
  ks_test_fail_alloc(1);
  EXPECT_THAT(read_failure(announced(1000) + packet),
              testing::StartsWith("ksgrid_read_fd: malloc(packet,1000) error.\n"));

  const OwnedGrid grid = sample_grid();
  EXPECT_EQ(ksgrid_write_fd_ksgrid(grid.get(), -1), -1);
  EXPECT_THAT(taken_messages(),
              testing::StartsWith("ksgrid_write_fd_ksgrid: write(nbytes,4) error.\n"));
  static int writes;
  writes = 0;
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.write = [](int, const void *, std::size_t bytes) {
    errno = ENOSPC;
    return ++writes == 1 ? static_cast<ssize_t>(bytes) : ssize_t{-1};
  };
  const ksutil::ScopedFileCalls scope(calls);
  EXPECT_EQ(ksgrid_write_fd_ksgrid(grid.get(), 1), -1);
  EXPECT_THAT(taken_messages(),
              testing::StartsWith("ksgrid_write_fd_ksgrid: write(packet," +
                                  std::to_string(packet.size()) + ") error.\n"));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
/* With little memory to be had, a count of two gigabytes must end where the data does. */
TEST(KsgridStream, TakesNoMemoryForALyingCount) {
  EXPECT_EXIT(
      {
        rlimit limit{};
        getrlimit(RLIMIT_AS, &limit);
        limit.rlim_cur = rlim_t{1} << 30;
        setrlimit(RLIMIT_AS, &limit);
        const std::string text = read_failure(announced(0x7fffffff) + "short");
        std::exit(text == "ksgrid_read_fd: read(packet,2147483647) error.\n" ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}
#endif

}  // namespace

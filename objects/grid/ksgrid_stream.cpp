#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "objects/grid/internal/grid_storage.h"
#include "objects/ksgrid.h"
#include "platform/elog/failure.h"
#include "platform/stock/files.h"

using namespace ksutil;
using namespace ksutil::grids;

namespace {

/* The size that a buffer for an announced packet has at first. */
constexpr int kFirstRoom = 1 << 16;

/* Moves all bytes, waiting where the descriptor does not block; the count moved, less
 * than all at the end of the file (errno 0) and after an error. */
template <class Byte>
int transfer(ssize_t (*move)(int, Byte *, std::size_t), int fd, Byte *bytes, int n,
             short ready) {
  int done = 0;
  while (done < n) {
    const ssize_t moved = move(fd, bytes + done, static_cast<std::size_t>(n - done));
    if (moved > 0) done += static_cast<int>(moved);
    if (done == n) break;
    if (errno != EAGAIN && errno != EWOULDBLOCK) break;
    pollfd waiting = {fd, ready, 0};
    if (poll(&waiting, 1, -1) < 0 && errno != EINTR) break;
  }
  return done;
}

int read_bytes(int fd, char *to, int n) {
  return transfer<char>(
      [](int from, char *at, std::size_t size) { return read_all(from, at, size); }, fd,
      to, n, POLLIN);
}

int write_bytes(int fd, const char *from, int n) {
  return transfer<const char>(
      [](int to, const char *at, std::size_t size) { return write_all(to, at, size); },
      fd, from, n, POLLOUT);
}

/* Reads a packet into a buffer that at most doubles with what has arrived; null with a
 * message. */
MallocPtr<char> read_packet(int fd, int nbytes) {
  MallocPtr<char> packet;
  int room = 0, done = 0;
  while (done < nbytes) {
    room = room == 0           ? std::min(nbytes, kFirstRoom)
           : room > nbytes / 2 ? nbytes
                               : 2 * room;
    void *const grown = ks_realloc(packet.get(), static_cast<std::size_t>(room));
    if (grown == nullptr) {
      return fail_errno("ksgrid_read_fd", "malloc(packet,%ld) error",
                        static_cast<long>(room));
    }
    static_cast<void>(packet.release());
    packet.reset(static_cast<char *>(grown));
    done += read_bytes(fd, packet.get() + done, room - done);
    if (done < room) {
      return fail_errno("ksgrid_read_fd", "read(packet,%d) error", nbytes);
    }
  }
  return packet;
}

}  // namespace

int ksgrid_write_fd_ksgrid(const KSGrid *grid, int fd) {
  char *made = nullptr;
  int nbytes = 0, allocated = 0;
  if (ksgrid_stuff_ksgrid(grid, &made, &nbytes, &allocated) != 0) {
    return fail("ksgrid_write_fd_ksgrid", "ksgrid_stuff_ksgrid() error");
  }
  const MallocPtr<char> packet(made);
  if (nbytes < 1) return fail("ksgrid_write_fd_ksgrid", "nbytes < 1");
  if (write_bytes(fd, reinterpret_cast<const char *>(&nbytes), 4) != 4) {
    return fail_errno("ksgrid_write_fd_ksgrid", "write(nbytes,4) error");
  }
  if (write_bytes(fd, packet.get(), nbytes) != nbytes) {
    return fail_errno("ksgrid_write_fd_ksgrid", "write(packet,%d) error", nbytes);
  }
  return 0;
}

int ksgrid_read_fd(int fd, KSGrid *grid) {
  int nbytes = 0;
  const int got = read_bytes(fd, reinterpret_cast<char *>(&nbytes), 4);
  if (got == 0 && errno == 0) return 0;
  if (got != 4) return fail_errno("ksgrid_read_fd", "read(nbytes,4) error");
  if (nbytes < 1) return fail("ksgrid_read_fd", "nbytes < 1");
  const MallocPtr<char> packet = read_packet(fd, nbytes);
  if (packet == nullptr) return -1;
  if (ksgrid_unstuff(packet.get(), nbytes, grid) != 0) {
    return fail("ksgrid_read_fd", "ksgrid_unstuff() error");
  }
  return nbytes;
}

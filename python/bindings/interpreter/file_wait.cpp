#include "bindings/interpreter/file_wait.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"

namespace ksutil::python {
namespace {

constexpr int kSliceMilliseconds = 100;
/* A pipe that can be written at all takes as much without waiting. */
constexpr std::size_t kPiece = 4096;
constexpr std::size_t kReadPiece = std::size_t{1} << 20;

[[noreturn]] void fail(const char *what) {
  throw Error(std::string(what) + ": " + std::strerror(errno));
}

/* Waits until a descriptor is ready, and takes the signals meanwhile. */
void await(int fd, short events, const char *what) {
  for (;;) {
    pollfd entry{fd, events, 0};
    const int ready = released([&] { return poll(&entry, 1, kSliceMilliseconds); });
    if (ready < 0 && errno != EINTR) fail(what);
    check_signals();
    if (ready > 0) return;
  }
}

bool should_retry() { return errno == EINTR || errno == EAGAIN; }

}  // namespace

int descriptor_of(pybind11::handle file) {
  if (py::hasattr(file, "flush") && !py::isinstance<py::int_>(file)) {
    file.attr("flush")();
  }
  const int fd = PyObject_AsFileDescriptor(file.ptr());
  if (fd < 0) throw py::error_already_set();
  return fd;
}

void write_all(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    await(fd, POLLOUT, "write");
    const ssize_t written = released(
        [&] { return ::write(fd, bytes.data(), std::min(bytes.size(), kPiece)); });
    if (written < 0 && !should_retry()) fail("write");
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

std::string read_all(int fd, std::size_t count) {
  std::string bytes;
  while (bytes.size() < count) {
    await(fd, POLLIN, "read");
    const std::size_t before = bytes.size();
    bytes.resize(before + std::min(count - before, kReadPiece));
    const ssize_t got = released(
        [&] { return ::read(fd, bytes.data() + before, bytes.size() - before); });
    const int error = errno;
    bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    errno = error;
    if (got < 0 && !should_retry()) fail("read");
    if (got == 0) break;
  }
  return bytes;
}

}  // namespace ksutil::python

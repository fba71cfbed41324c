#include "bindings/interpreter/memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"

namespace ksutil::python {

MemoryFile::MemoryFile(pybind11::handle source) {
  if (PyObject_CheckBuffer(source.ptr()) == 0) {
    path_ = path_of(source);
    return;
  }
  const auto bytes =
      py::reinterpret_steal<py::object>(PyBytes_FromObject(source.ptr()));
  if (!bytes) throw py::error_already_set();
  const char *at = PyBytes_AS_STRING(bytes.ptr());
  auto left = static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr()));
  const bool good = released([&] {
    fd_ = memfd_create("ksutil", MFD_CLOEXEC);
    while (fd_ >= 0 && left > 0) {
      const ssize_t written = ::write(fd_, at, left);
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return false;
      at += written;
      left -= static_cast<std::size_t>(written);
    }
    return fd_ >= 0;
  });
  if (!good) {
    const std::string cause = std::strerror(errno);
    if (fd_ >= 0) ::close(fd_);
    throw Error("no file in memory: " + cause);
  }
  path_ = "/proc/self/fd/" + std::to_string(fd_);
}

MemoryFile::~MemoryFile() {
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace ksutil::python

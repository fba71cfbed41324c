/* memory_file: shows bytes of Python to readers that take the path of a file. */
#ifndef KSUTIL_PYTHON_BINDINGS_INTERPRETER_MEMORY_FILE_H
#define KSUTIL_PYTHON_BINDINGS_INTERPRETER_MEMORY_FILE_H

#include <pybind11/pybind11.h>

#include <string>

namespace ksutil::python {

/* A path, or bytes that lie in a file in memory while the object lives. */
class MemoryFile {
 public:
  /* `source` is bytes, bytearray or memoryview: contents; else a path.  Needs the GIL. */
  explicit MemoryFile(pybind11::handle source);
  ~MemoryFile();
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  const std::string &path() const { return path_; }

 private:
  int fd_ = -1;
  std::string path_;
};

}  // namespace ksutil::python
#endif

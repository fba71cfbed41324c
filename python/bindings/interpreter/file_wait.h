/* file_wait: reads and writes descriptors so that Ctrl-C ends every wait. */
#ifndef KSUTIL_PYTHON_BINDINGS_INTERPRETER_FILE_WAIT_H
#define KSUTIL_PYTHON_BINDINGS_INTERPRETER_FILE_WAIT_H

#include <pybind11/pybind11.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace ksutil::python {

/* The descriptor of a number or of an object with fileno(), which is flushed first where it
 * can be. */
int descriptor_of(pybind11::handle file);

/* Writes all bytes; Error, or the exception of a signal handler.  Needs the GIL, which it
 * releases while it waits. */
void write_all(int fd, std::string_view bytes);

/* Reads up to `count` bytes, fewer at the end of the file.  Memory grows with what
 * arrives. */
std::string read_all(int fd, std::size_t count);

}  // namespace ksutil::python
#endif

/* arguments: takes what Python hands over, or says what is wrong with it.
 *
 * All functions need the GIL. */
#ifndef KSUTIL_PYTHON_BINDINGS_INTERPRETER_ARGUMENTS_H
#define KSUTIL_PYTHON_BINDINGS_INTERPRETER_ARGUMENTS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <string>

namespace ksutil::python {

namespace py = pybind11;

using Doubles = py::array_t<double, py::array::c_style>;
using Floats = py::array_t<float, py::array::c_style>;

/* Numbers in the order of C.  Masked elements become `masked`.  TypeError for anything but
 * real numbers, ValueError for another number of dimensions; -1 allows any. */
Doubles doubles(py::handle value, const char *name, int dimensions, double masked);
Floats floats(py::handle value, const char *name, int dimensions, float masked);

/* The size of an array of one dimension as the int of the library; ValueError above. */
int count_of(const py::array &array, const char *name);

/* Throws ValueError for a text that holds a NUL, at which the library would end it.
 * `what` begins the message: "the name". */
void refuse_nul(const std::string &text, const char *what);

/* A path without a NUL: a text, bytes or an object with __fspath__. */
std::string path_of(py::handle path);

/* The path of a database: of an object with the attribute `path`, such as a Database, or a
 * path itself. */
std::string database_path(py::handle database);

/* A value as a type of C++; TypeError, with its name, when it is of another kind. */
template <class Value>
Value value_as(py::handle value, const char *name) {
  try {
    return value.cast<Value>();
  } catch (const py::cast_error &) {
    throw py::type_error(std::string(name) + ": wrong type or out of range: " +
                         std::string(py::repr(value)));
  }
}

/* An index of Python, negative ones counted from the end; IndexError with `message`. */
int index_below(py::handle index, std::size_t count, const char *message);

}  // namespace ksutil::python
#endif

/* calls: calls back into Python. */
#ifndef KSUTIL_PYTHON_BINDINGS_INTERPRETER_CALLS_H
#define KSUTIL_PYTHON_BINDINGS_INTERPRETER_CALLS_H

#include <pybind11/pybind11.h>

namespace ksutil::python {

namespace py = pybind11;

/* Takes the signals that have arrived, so that Ctrl-C ends a wait; needs the GIL. */
inline void check_signals() {
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

/* Calls a function of a module of the package ksutil with an object and further
 * arguments: for methods that are written in Python. */
inline py::object call_python(const char *module, const char *function, py::handle self,
                              const py::args &args, const py::kwargs &kwargs) {
  return py::module_::import(module).attr(function)(self, *args, **kwargs);
}

}  // namespace ksutil::python
#endif

/* gil: gives up the lock of the interpreter for one scope.
 *
 * Use GilReleased instead of py::gil_scoped_release.  When the interpreter ends while a
 * thread is in such a scope, it unwinds the thread as soon as that asks for the lock; the
 * process would then be terminated in a destructor.  GilReleased stops the thread instead,
 * until the process ends. */
#ifndef KSUTIL_PYTHON_BINDINGS_INTERPRETER_GIL_H
#define KSUTIL_PYTHON_BINDINGS_INTERPRETER_GIL_H

#include <pybind11/pybind11.h>
#include <unistd.h>

namespace ksutil::python {

class GilReleased {
 public:
  GilReleased() : state_(PyEval_SaveThread()) {}
  ~GilReleased() {
    try {
      PyEval_RestoreThread(state_);
    } catch (...) {      // only the unwinding of the thread, which has no object
      for (;;) pause();  // leaving the handler would go on with it
    }
  }
  GilReleased(const GilReleased &) = delete;
  GilReleased &operator=(const GilReleased &) = delete;

 private:
  PyThreadState *state_;
};

}  // namespace ksutil::python
#endif

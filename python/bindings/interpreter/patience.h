/* patience: cuts waits into pieces, so that Ctrl-C ends them. */
#ifndef KSUTIL_PYTHON_BINDINGS_INTERPRETER_PATIENCE_H
#define KSUTIL_PYTHON_BINDINGS_INTERPRETER_PATIENCE_H

#include <pybind11/pybind11.h>
#include <unistd.h>

#include <chrono>

namespace ksutil::python {

namespace py = pybind11;

/* A wait is cut into pieces, between which the main thread looks at signals; another
 * thread only looks whether it still has to wait. */
inline std::chrono::milliseconds slice() {
  return std::chrono::milliseconds(getpid() == gettid() ? 50 : 500);
}

/* Seconds to wait: without a limit when `limited` is false. */
struct Patience {
  using Clock = std::chrono::steady_clock;

  /* None has no limit.  Throws ValueError for NaN and TypeError for what is not a
   * number. */
  explicit Patience(const py::object &timeout) : limited(!timeout.is_none()) {
    if (!limited) return;
    const double seconds = PyFloat_AsDouble(timeout.ptr());
    if (seconds == -1.0 && PyErr_Occurred() != nullptr) throw py::error_already_set();
    if (seconds != seconds) throw py::value_error("timeout is not a number");
    constexpr double kLongest = 1e9;
    end = Clock::now() +
          std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
              seconds < 0.0 ? 0.0 : (seconds > kLongest ? kLongest : seconds)));
  }
  bool over() const { return limited && Clock::now() >= end; }
  /* The end of the next piece of the wait. */
  Clock::time_point slice_end() const {
    const Clock::time_point next = Clock::now() + slice();
    return limited && end < next ? end : next;
  }

  bool limited;
  Clock::time_point end;
};

}  // namespace ksutil::python
#endif

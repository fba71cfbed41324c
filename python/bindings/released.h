/* released: runs C++ code without the GIL.
 *
 * Python may end while a thread of a program is inside such code.  A thread that wants the
 * GIL back from then on never gets it: it sleeps until the process ends, instead of being
 * thrown out through the destructors of C++. */
#ifndef KSUTIL_PYTHON_BINDINGS_RELEASED_H
#define KSUTIL_PYTHON_BINDINGS_RELEASED_H

#include <pybind11/pybind11.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <type_traits>

namespace ksutil::python {

namespace py = pybind11;

/* Gives the GIL away for the scope. */
class Released {
 public:
  Released() : state_(PyEval_SaveThread()) {}
  ~Released() {
    if (_Py_IsFinalizing() != 0 && getpid() != gettid()) {
      for (;;) pause();
    }
    PyEval_RestoreThread(state_);
  }
  Released(const Released &) = delete;
  Released &operator=(const Released &) = delete;

 private:
  PyThreadState *state_;
};

/* The result of function(), which runs without the GIL and must not touch Python. */
template <class Function>
std::invoke_result_t<Function> without_gil(Function function) {
  const Released released;
  return function();
}

/* Runs the handlers of signals that have come; throws what they raise, as Ctrl-C does. */
inline void look_at_signals() {
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

/* A wait is cut into pieces of this length, between which signals are looked at. */
inline constexpr std::chrono::milliseconds kSlice{50};

/* Seconds to wait: without a limit when `limited` is false. */
struct Patience {
  using Clock = std::chrono::steady_clock;

  /* None has no limit.  Throws ValueError for NaN and TypeError for what is not a
   * number. */
  explicit Patience(const py::object &timeout) : limited(!timeout.is_none()) {
    if (!limited) return;
    const double seconds = timeout.cast<double>();
    if (seconds != seconds) throw py::value_error("timeout is not a number");
    constexpr double kLongest = 1e9;
    end = Clock::now() +
          std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
              seconds < 0.0 ? 0.0 : (seconds > kLongest ? kLongest : seconds)));
  }
  bool over() const { return limited && Clock::now() >= end; }
  /* The end of the next piece of the wait. */
  Clock::time_point slice_end() const {
    const Clock::time_point slice = Clock::now() + kSlice;
    return limited && end < slice ? end : slice;
  }

  bool limited;
  Clock::time_point end;
};

}  // namespace ksutil::python
#endif
